// The settings of a domain: the table of which they are read, set, shown and described.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "pellor/friends/PLFriendsManagerKeys.h"
#include "pellor/platform/PreferencesStore.h"
#include "pellor/runtime/Value.h"

namespace pellor {

/// One setting, as the preferences of the domain have it.
struct PLDomainSetting {
  enum class Kind {
    count,
    flag,
    name,  ///< a text that is not empty
  };

  std::string_view key;
  std::string_view name;  ///< for users
  Kind kind = Kind::flag;
  std::string_view absent;        ///< what holds where nothing usable is stored: "12", "true", "some.name"
  std::int64_t largestCount = 0;  ///< of a count, which is at least 1; what users may set
  std::string_view meaning;       ///< for users

  /// A value of the setting's kind, be it within the limits or not.
  bool isOfKind(const Value& value) const;
  /// The value that holds where nothing usable is stored.
  Value absentValue() const;
  /// What a user wrote, as a value within the limits; absent for text that is none.
  std::optional<Value> valueOf(std::string_view text) const;
};

/// All of them, in the order in which users are shown them. Any thread.
std::span<const PLDomainSetting> plDomainSettings();

/// Writes the key of the domain and synchronises it: for managers that are made later. True when it is written. Any
/// thread that may wait for the store.
bool plWriteDomainSetting(PreferencesStore& preferences, std::string_view key, Value value, const std::string& domain);

/// What holds for one manager, from the time at which it read its settings. Its invariant: a group has 1 to
/// `PLLargestGroupSize` slots, and no name is empty.
class PLDomainSettings {
 public:
  /// Before the store has answered.
  PLDomainSettings() = default;
  /// Absent when the store cannot be read. Logs a group size that is not usable, and takes the default.
  static std::optional<PLDomainSettings> read(PreferencesStore& preferences, const std::string& domain);

  std::uint64_t maxFriendGroups() const { return _maxFriendGroups; }
  std::uint64_t maxFriendsPerGroup() const { return _maxFriendsPerGroup; }
  bool shouldAddEmptyTrailingGroup() const { return _shouldAddEmptyTrailingGroup; }
  bool shouldDeduplicateFriendList() const { return _shouldDeduplicateFriendList; }
  bool shouldRemoveDestinationlessFriends() const { return _shouldRemoveDestinationlessFriends; }
  bool refreshesAgainstContactsOnInit() const { return _refreshesAgainstContactsOnInit; }
  const std::string& friendsChangedExternallyNotificationName() const {
    return _friendsChangedExternallyNotificationName;
  }
  const std::string& friendGroupTitleChangedExternallyNotificationName() const {
    return _friendGroupTitleChangedExternallyNotificationName;
  }
  /// Whether a post of the one name is a post of the other.
  bool haveOneExternalName() const {
    return _friendsChangedExternallyNotificationName == _friendGroupTitleChangedExternallyNotificationName;
  }

 private:
  std::uint64_t _maxFriendGroups = PLDefaultMaxGroupCount;
  std::uint64_t _maxFriendsPerGroup = PLDefaultGroupSize;
  bool _shouldAddEmptyTrailingGroup = true;
  bool _shouldDeduplicateFriendList = true;
  bool _shouldRemoveDestinationlessFriends = false;
  bool _refreshesAgainstContactsOnInit = true;
  std::string _friendsChangedExternallyNotificationName;
  std::string _friendGroupTitleChangedExternallyNotificationName;
};

}  // namespace pellor
