#include "pellor/list/SyncedKeys.h"

#include "pellor/friends/PLFriendsManagerKeys.h"

namespace pellor {
namespace {

struct ChangeName {
  std::string_view key;      ///< what was written
  std::string_view setting;  ///< under which the domain may name another
  std::string_view customarily;
};

constexpr ChangeName ChangeNames[] = {
    {PLFriendListKey, PLFriendsChangedExternallyNotificationKey, PLFriendsChangedExternallyNotification},
    {PLGroupTitlesKey, PLFriendGroupTitleChangedExternallyNotificationKey,
     PLFriendGroupTitleChangedExternallyNotification}};

}  // namespace

std::set<std::string> syncedKeys() {
  return {std::string(PLFriendListKey), std::string(PLGroupTitlesKey),
          std::string(PLDidNormalizeFriendListDestinationsKey)};
}

std::string followsContactsKey() { return std::string(PLRefreshAgainstContactsOnInitEnabledKey); }

std::vector<std::string> changeNames(PreferencesStore& preferences, const std::string& domain,
                                     const std::set<std::string>& keys) {
  std::vector<std::string> names;
  for (const ChangeName& name : ChangeNames) {
    if (!keys.contains(std::string(name.key))) continue;
    const auto chosen = preferences.copyValue(name.setting, domain).value();
    const std::string* text = chosen ? chosen->string() : nullptr;
    names.push_back(text && !text->empty() ? *text : std::string(name.customarily));
  }
  return names;
}

}  // namespace pellor
