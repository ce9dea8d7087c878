// settings

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "cli/CommandLine.h"
#include "cli/JsonForms.h"
#include "cli/Output.h"
#include "linux/StoreRegion.h"

namespace pellor::cli {
namespace {

enum class SettingKind { count, boolean, text };

/// A setting of a domain: what the user calls it, its key in the store, what it is where nothing is stored.
struct Setting {
  std::string_view name;
  std::string_view key;
  SettingKind kind;
  std::string_view unset;
  std::string_view meaning;
};

constexpr std::array Settings = {
    Setting{"max-pages", PLMaxGroupCountKey, SettingKind::count, "20", "how many pages there may be"},
    Setting{"page-size", PLGroupSizeKey, SettingKind::count, "12", "slots of a page"},
    Setting{"trailing-page", PLEmptyTrailingGroupEnabledKey, SettingKind::boolean, "true",
            "keep an empty page at the end"},
    Setting{"refresh-contacts", PLRefreshAgainstContactsOnInitEnabledKey, SettingKind::boolean, "true",
            "follow the contacts"},
    Setting{"deduplicate", PLDeduplicateFriendListEnabledKey, SettingKind::boolean, "true",
            "remove a contact's second place"},
    Setting{"remove-unreachable", PLRemoveDestinationlessFriendsEnabledKey, SettingKind::boolean, "false",
            "remove friends without number and address"},
    Setting{"list-changed-name", PLFriendsChangedExternallyNotificationKey, SettingKind::text,
            PLFriendsChangedExternallyNotification, "what is posted after the list was saved"},
    Setting{"titles-changed-name", PLFriendGroupTitleChangedExternallyNotificationKey, SettingKind::text,
            PLFriendGroupTitleChangedExternallyNotification, "what is posted after the titles were saved"},
};
constexpr std::string_view RegionName = "region";

constexpr std::string_view RegionMeaning = "by which national numbers are read, of the whole store";

/// What holds for a setting at present.
struct Current {
  Value value;
  bool isDefault = false;
};

bool isOfKind(const Value& value, SettingKind kind) {
  switch (kind) {
    case SettingKind::count:
      return value.integer().has_value();
    case SettingKind::boolean:
      return value.boolean().has_value();
    case SettingKind::text:
      return value.string() && !value.string()->empty();
  }
  return false;
}

std::uint64_t countIn(std::string_view text, std::uint64_t largest) {
  std::uint64_t count = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
  if (error == std::errc() && end == text.data() + text.size() && count >= 1 && count <= largest) return count;
  throw UsageError(inQuotes(text) + " is no number from 1 to " + std::to_string(largest));
}

bool booleanIn(std::string_view text) {
  if (text == "true" || text == "false") return text == "true";
  throw UsageError(inQuotes(text) + " is neither true nor false");
}

// A group size beyond this reads as the default.
constexpr std::uint64_t LargestCount = 65536;

Value valueIn(std::string_view text, SettingKind kind) {
  switch (kind) {
    case SettingKind::count:
      return countIn(text, LargestCount);
    case SettingKind::boolean:
      return booleanIn(text);
    case SettingKind::text:
      break;
  }
  if (text.empty()) throw UsageError("the value is empty");
  return text;
}

Current currentOf(Session& session, const Setting& setting) {
  const auto answer = session.platform().preferences().copyValue(setting.key, session.options().domain());
  if (!answer.isReadable()) throw CommandError("the settings cannot be read: " + session.storeProblem());
  if (answer.value() && isOfKind(*answer.value(), setting.kind)) return {*answer.value(), false};
  return {valueIn(setting.unset, setting.kind), true};
}

const Setting& settingNamed(std::string_view name) {
  const auto found = std::ranges::find(Settings, name, &Setting::name);
  if (found != Settings.end()) return *found;
  throw UsageError("there is no setting " + inQuotes(name) + " (pellor settings lists them)");
}

std::string shown(const Value& value) {
  if (value.boolean()) return *value.boolean() ? "true" : "false";
  return printable(value.description());
}

std::string lineText(std::string_view name, const std::string& value, bool isDefault, std::string_view meaning) {
  constexpr std::size_t nameWidth = 20;
  return fitted(name, nameWidth) + value + (isDefault ? " (default)" : "") + "  # " + std::string(meaning) + "\n";
}

std::string allText(Session& session) {
  std::string text = lineText(RegionName, session.platform().region(), false, RegionMeaning);
  for (const Setting& setting : Settings) {
    const Current current = currentOf(session, setting);
    text += lineText(setting.name, shown(current.value), current.isDefault, setting.meaning);
  }
  return text;
}

Json allJson(Session& session, const std::string& region) {
  Json settings = Json::object();
  for (const Setting& setting : Settings) {
    const Current current = currentOf(session, setting);
    settings[std::string(setting.name)] = Json{{"value", jsonOf(current.value)}, {"isDefault", current.isDefault}};
  }
  return {{"domain", session.options().domain()}, {"region", region}, {"settings", settings}};
}

void showAll(Session& session) {
  session.answer([&] { return allText(session); }, [&] { return allJson(session, session.platform().region()); });
}

void showOne(Session& session, const std::string& name, const std::string& region) {
  const std::string text = name == RegionName ? region : shown(currentOf(session, settingNamed(name)).value);
  session.answer([&] { return text + "\n"; }, [&] { return allJson(session, region); });
}

// Two settings have no operation of their own.
bool write(Session& session, const Setting& setting, const Value& value) {
  const std::string domain = session.options().domain();
  if (setting.key == PLMaxGroupCountKey) {
    return PLFriendsManager::setMaxGroupCountDomain(static_cast<std::uint64_t>(*value.integer()), domain);
  }
  if (setting.key == PLGroupSizeKey) {
    return PLFriendsManager::setGroupSizeDomain(static_cast<std::uint64_t>(*value.integer()), domain);
  }
  if (setting.key == PLEmptyTrailingGroupEnabledKey) {
    return PLFriendsManager::setEnableEmptyTrailingGroupDomain(*value.boolean(), domain);
  }
  if (setting.key == PLRefreshAgainstContactsOnInitEnabledKey) {
    return PLFriendsManager::setRefreshAgainstContactsOnInitEnabledDomain(*value.boolean(), domain);
  }
  if (setting.key == PLFriendsChangedExternallyNotificationKey) {
    return PLFriendsManager::setFriendsChangedExternallyNotificationNameDomain(*value.string(), domain);
  }
  if (setting.key == PLFriendGroupTitleChangedExternallyNotificationKey) {
    return PLFriendsManager::setFriendGroupTitleChangedExternallyNotificationNameDomain(*value.string(), domain);
  }
  PreferencesStore& preferences = session.platform().preferences();
  preferences.setValue(setting.key, value, domain);
  return preferences.synchronize(domain);
}

std::string regionIn(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  if (!isRegion(text)) throw UsageError(inQuotes(text) + " is no region such as DE");
  return text;
}

void requireWritten(Session& session, bool isWritten) {
  if (!isWritten) session.throwNotSaved();
}

// The list is written anew in the region's spelling by the next program that starts.
void setRegion(Session& session, const std::string& text) {
  const std::string region = regionIn(text);
  session.requireWritableStore();
  requireWritten(session, StoreRegion::change(session.platform().preferences(), proposedRegion(region)));
  showOne(session, std::string(RegionName), region);
}

void set(Session& session, const std::string& name, const std::string& text) {
  const Setting& setting = settingNamed(name);
  const Value value = valueIn(text, setting.kind);
  session.requireWritableStore();
  requireWritten(session, write(session, setting, value));
  showOne(session, name, session.platform().region());
}

struct SettingsArguments {
  std::optional<std::string> name;
  std::optional<std::string> value;
};

// The list is not loaded: a new store gets its settings before its first list.
void settings(Session& session, const SettingsArguments& arguments) {
  if (!arguments.name) return showAll(session);
  if (!arguments.value) return showOne(session, *arguments.name, session.platform().region());
  if (*arguments.name == RegionName) return setRegion(session, *arguments.value);
  set(session, *arguments.name, *arguments.value);
}

}  // namespace

void addSettingsCommands(CLI::App& program, Command& chosen) {
  auto* command = program.add_subcommand("settings", "Show or change settings; they hold for programs started later");
  const auto arguments = std::make_shared<SettingsArguments>();
  command->add_option("NAME", arguments->name, "The setting, or region");
  command->add_option("VALUE", arguments->value, "The new value");
  command->callback(
      [&chosen, arguments] { chosen = [arguments](Session& session) { settings(session, *arguments); }; });
}

}  // namespace pellor::cli
