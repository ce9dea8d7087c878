// Names of the friends manager: its default domain, notifications and preference keys, and what its store fails at.
#pragma once

#include <cstdint>
#include <string_view>

namespace pellor {

/// The default domain, to which the favorites import, the normalisation flag and the counters belong.
inline constexpr std::string_view TapnoteDomain = "org.tapnote.TN";

// In-process notifications, all posted on the main queue.
/// Friends were added, updated, deleted or moved. Object: the manager. User info: the `PLChangeLog`.
inline constexpr std::string_view PLFriendsManagerChangedNotification = "PLFriendsManagerChangedNotification";
/// The number of groups changed. No object, no user info.
inline constexpr std::string_view PLFriendsManagerGroupListChanged = "PLFriendsManagerGroupListChanged";
/// Statuses of destinations arrived. Object: the manager, null when it is gone. User info: a `Dictionary` that holds,
/// under the key below, a dictionary from canonical destinations to the numbers of their `DestinationStatus`.
inline constexpr std::string_view PLFriendsManagerDestinationStatusUpdatedNotification =
    "PLFriendsManagerDestinationStatusUpdatedNotification";
inline constexpr std::string_view PLFriendsManagerDestinationStatusUpdatedDestinationsKey =
    "PLFriendsManagerDestinationStatusUpdatedDestinationsKey";
/// The store began to fail, fails otherwise, or works again (`PLFriendsManager::storeTrouble`). Object: the manager.
inline constexpr std::string_view PLFriendsManagerStoreTroubleChangedNotification =
    "PLFriendsManagerStoreTroubleChangedNotification";

/// What a store fails at.
enum class PLStoreTrouble {
  reading,  ///< and so nothing is written either
  writing,
};

// Cross-process names, used where the domain configures no others.
inline constexpr std::string_view PLFriendsChangedExternallyNotification = "PLFriendsChangedExternallyNotification";
inline constexpr std::string_view PLFriendGroupTitleChangedExternallyNotification =
    "PLFriendGroupTitleChangedExternallyNotification";

// Preference keys of a manager's domain.
inline constexpr std::string_view PLFriendListKey = "FriendList";
inline constexpr std::string_view PLGroupTitlesKey = "TNFriendGroupTitles";
/// True while the first list waits for favorites that could not be read.
inline constexpr std::string_view PLFirstListIsDueKey = "PLFirstListIsDue";
/// An array, attached to the list: what a user took back that the manager had decided by itself (PLException).
inline constexpr std::string_view PLFriendListExceptionsKey = "PLFriendListExceptions";
inline constexpr std::string_view PLDidNormalizeFriendListDestinationsKey = "DidNormalizeFriendListDestinations";
inline constexpr std::string_view PLMaxGroupCountKey = "PLMaxGroupCount";
inline constexpr std::string_view PLGroupSizeKey = "PLGroupSize";
inline constexpr std::uint64_t PLDefaultMaxGroupCount = 20;
inline constexpr std::uint64_t PLDefaultGroupSize = 12;  ///< also in place of a size that is not usable
inline constexpr std::int64_t PLLargestGroupSize = 65536;
inline constexpr std::string_view PLEmptyTrailingGroupEnabledKey = "PLEmptyTrailingGroupEnabled";
inline constexpr std::string_view PLFriendsChangedExternallyNotificationKey =
    "PLFriendsChangedExternallyNotificationName";
inline constexpr std::string_view PLFriendGroupTitleChangedExternallyNotificationKey =
    "PLFriendGroupTitleChangedExternallyNotificationName";
inline constexpr std::string_view PLDeduplicateFriendListEnabledKey = "PLDeduplicateFriendListEnabled";
inline constexpr std::string_view PLRemoveDestinationlessFriendsEnabledKey = "PLRemoveDestinationlessFriendsEnabled";
inline constexpr std::string_view PLRefreshAgainstContactsOnInitEnabledKey = "PLRefreshAgainstContactsOnInitEnabled";
/// A boolean of the process's own defaults for the domain, which are not shared.
inline constexpr std::string_view PLSkipHasSatelliteCheckKey = "TNSkipHasSatelliteCheck";
/// An integer: the sequence number of the contacts at the last refresh that ran to its end.
inline constexpr std::string_view PLAddressBookSequenceNumberKey = "ABSequenceNumber";

}  // namespace pellor
