#include "pellor/friends/internal/PLDomainSettings.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

#include "pellor/friends/PLBundle.h"
#include "pellor/runtime/Fatal.h"

namespace pellor {
namespace {

using Kind = PLDomainSetting::Kind;

constexpr std::array Settings = {
    PLDomainSetting{PLMaxGroupCountKey, "max-pages", Kind::count, "20", 65536, "how many pages there may be"},
    PLDomainSetting{PLGroupSizeKey, "page-size", Kind::count, "12", PLLargestGroupSize, "slots of a page"},
    PLDomainSetting{PLEmptyTrailingGroupEnabledKey, "trailing-page", Kind::flag, "true", 0,
                    "keep an empty page at the end"},
    PLDomainSetting{PLRefreshAgainstContactsOnInitEnabledKey, "refresh-contacts", Kind::flag, "true", 0,
                    "follow the contacts"},
    PLDomainSetting{PLDeduplicateFriendListEnabledKey, "deduplicate", Kind::flag, "true", 0,
                    "remove a contact's second place"},
    // The one flag that is off when absent: removing friends has to be asked for.
    PLDomainSetting{PLRemoveDestinationlessFriendsEnabledKey, "remove-unreachable", Kind::flag, "false", 0,
                    "remove friends without number and address"},
    PLDomainSetting{PLFriendsChangedExternallyNotificationKey, "list-changed-name", Kind::name,
                    PLFriendsChangedExternallyNotification, 0, "what is posted after the list was saved"},
    PLDomainSetting{PLFriendGroupTitleChangedExternallyNotificationKey, "titles-changed-name", Kind::name,
                    PLFriendGroupTitleChangedExternallyNotification, 0, "what is posted after the titles were saved"},
};

const PLDomainSetting& settingOf(std::string_view key) {
  const auto found = std::ranges::find(Settings, key, &PLDomainSetting::key);
  require(found != Settings.end(), "a setting of the table");
  return *found;
}

// Reads settings and remembers whether each of them could be read.
class SettingsReader {
 public:
  SettingsReader(PreferencesStore& preferences, const std::string& domain)
      : _preferences(preferences), _domain(domain) {}

  std::int64_t count(std::string_view key) {
    return noted(_preferences.integerValue(key, _domain)).value_or(*settingOf(key).absentValue().integer());
  }
  bool flag(std::string_view key) {
    return noted(_preferences.booleanValue(key, _domain)).value_or(*settingOf(key).absentValue().boolean());
  }
  std::string name(std::string_view key) {
    const auto value = noted(_preferences.copyValue(key, _domain));
    const PLDomainSetting& setting = settingOf(key);
    return value && setting.isOfKind(*value) ? *value->string() : std::string(setting.absent);
  }
  bool couldReadAll() const { return _couldReadAll; }

 private:
  template <class T>
  std::optional<T> noted(const PreferenceAnswer<T>& answer) {
    _couldReadAll = _couldReadAll && answer.isReadable();
    return answer.value();
  }

  PreferencesStore& _preferences;
  const std::string& _domain;
  bool _couldReadAll = true;
};

}  // namespace

bool PLDomainSetting::isOfKind(const Value& value) const {
  switch (kind) {
    case Kind::count:
      return value.integer().has_value();
    case Kind::flag:
      return value.boolean().has_value();
    case Kind::name:
      return value.string() && !value.string()->empty();
  }
  return false;
}

Value PLDomainSetting::absentValue() const {
  const auto value = valueOf(absent);
  require(value.has_value(), "a default within the limits");
  return *value;
}

std::optional<Value> PLDomainSetting::valueOf(std::string_view text) const {
  if (kind == Kind::name) return text.empty() ? std::nullopt : std::optional(Value(text));
  if (kind == Kind::flag) {
    const bool isOn = text == "true" || text == "on";
    return isOn || text == "false" || text == "off" ? std::optional(Value(isOn)) : std::nullopt;
  }
  std::int64_t count = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
  const bool isCount = error == std::errc() && end == text.data() + text.size();
  return isCount && count >= 1 && count <= largestCount ? std::optional(Value(count)) : std::nullopt;
}

std::span<const PLDomainSetting> plDomainSettings() { return Settings; }

bool plWriteDomainSetting(PreferencesStore& preferences, std::string_view key, Value value, const std::string& domain) {
  preferences.setValue(key, std::move(value), domain);
  return preferences.synchronize(domain);
}

std::optional<PLDomainSettings> PLDomainSettings::read(PreferencesStore& preferences, const std::string& domain) {
  SettingsReader reader(preferences, domain);
  PLDomainSettings settings;
  const std::int64_t groupSize = reader.count(PLGroupSizeKey);
  // Taken as it stands.
  settings._maxFriendGroups = static_cast<std::uint64_t>(reader.count(PLMaxGroupCountKey));
  settings._shouldAddEmptyTrailingGroup = reader.flag(PLEmptyTrailingGroupEnabledKey);
  settings._shouldDeduplicateFriendList = reader.flag(PLDeduplicateFriendListEnabledKey);
  settings._shouldRemoveDestinationlessFriends = reader.flag(PLRemoveDestinationlessFriendsEnabledKey);
  settings._refreshesAgainstContactsOnInit = reader.flag(PLRefreshAgainstContactsOnInitEnabledKey);
  settings._friendsChangedExternallyNotificationName = reader.name(PLFriendsChangedExternallyNotificationKey);
  settings._friendGroupTitleChangedExternallyNotificationName =
      reader.name(PLFriendGroupTitleChangedExternallyNotificationKey);
  if (!reader.couldReadAll()) return std::nullopt;
  const bool isUsable = groupSize >= 1 && groupSize <= PLLargestGroupSize;
  if (isUsable) settings._maxFriendsPerGroup = static_cast<std::uint64_t>(groupSize);
  if (!isUsable) {
    _PLGetLogSystem().log("group size %d is not between 1 and %d, using %lu", groupSize, PLLargestGroupSize,
                          PLDefaultGroupSize);
  }
  return settings;
}

}  // namespace pellor
