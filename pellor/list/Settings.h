// The settings of a list. They lie in its domain, for all programs of the user, and hold for lists that are opened
// later. Main queue.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>

namespace pellor {

/// A number, whether something is so, or a text.
using SettingValue = std::variant<std::int64_t, bool, std::string>;

enum class SettingKind { count, flag, name };

/// One setting.
struct ListSetting {
  std::string_view name;  ///< for users: "page-size"
  SettingKind kind = SettingKind::flag;
  std::int64_t largestCount = 0;  ///< of a count, which is at least 1
  std::string_view meaning;       ///< for users: "slots of a page"
};

// Names of settings.
inline constexpr std::string_view MostPagesSetting = "max-pages";
inline constexpr std::string_view PageSizeSetting = "page-size";
inline constexpr std::string_view KeepsEmptyPageSetting = "trailing-page";
inline constexpr std::string_view FollowsContactsSetting = "refresh-contacts";
inline constexpr std::string_view RemovesDuplicatesSetting = "deduplicate";
inline constexpr std::string_view RemovesUnreachableSetting = "remove-unreachable";
inline constexpr std::string_view ListChangedNameSetting = "list-changed-name";
inline constexpr std::string_view TitlesChangedNameSetting = "titles-changed-name";

/// All settings, in the order in which users are shown them. Any thread.
std::span<const ListSetting> listSettings();
/// Null for a name that is none. Any thread.
const ListSetting* listSettingNamed(std::string_view name);

/// What holds in a domain, of the setting's kind.
struct CurrentSetting {
  SettingValue value;
  bool isDefault = false;  ///< nothing usable is stored
};

/// Absent while the store cannot be read. `name` is one of the names above.
std::optional<CurrentSetting> readSetting(std::string_view name, const std::string& domain);

/// What a user wrote, as a value of the setting; absent for a text that is none within its limits. Any thread.
std::optional<SettingValue> settingValueIn(std::string_view text, std::string_view name);

/// True when the setting is written. False, with nothing written, for a value of another kind or beyond the limits.
bool writeSetting(std::string_view name, const SettingValue& value, const std::string& domain);

/// Has the next program that opens the list look at all its friends again as the contacts have them; true when that is
/// written.
bool askForRefresh(const std::string& domain);

/// Whether there is a stored list that waits for no favorites; false while the store cannot be read.
bool hasStoredList(const std::string& domain);

}  // namespace pellor
