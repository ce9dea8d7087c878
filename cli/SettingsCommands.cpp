// settings

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "cli/CommandLine.h"
#include "cli/CommandSyntax.h"
#include "cli/JsonForms.h"
#include "cli/Output.h"
#include "cli/Suggestion.h"
#include "pellor/linux/preferences/StoreNameSettings.h"
#include "pellor/linux/preferences/StoreRegion.h"
#include "pellor/list/Settings.h"
#include "pellor/runtime/BundleIdentifier.h"

namespace pellor::cli {
namespace {

constexpr std::string_view RegionName = "region";

/// Kept as those of the list are, for the store as a whole.
struct StoreSetting {
  std::string_view key;
  std::string_view name;
  std::string_view meaning;
};
constexpr std::array StoreSettings = {
    StoreSetting{ShortNamesKey, "short-names", "call people by their given names, of the whole store"},
    StoreSetting{PreferNicknamesKey, "prefer-nicknames", "call people by their nicknames, of the whole store"},
};

constexpr std::string_view RegionMeaning = "by which national numbers are read, of the whole store";

/// A setting with what holds for it at present.
struct Shown {
  std::string_view name;
  SettingValue value;
  bool isDefault = false;
  std::string_view meaning;
};

const StoreSetting* storeSettingNamed(std::string_view name) {
  const auto* found = std::ranges::find(StoreSettings, name, &StoreSetting::name);
  return found == StoreSettings.end() ? nullptr : found;
}

CommandError cannotBeRead(Session& session) {
  return CommandError("the settings cannot be read: " + session.storeProblem());
}

Shown shownOf(Session& session, const StoreSetting& setting) {
  const auto answer = session.store().booleanValue(setting.key, BundleIdentifier);
  if (!answer.isReadable()) throw cannotBeRead(session);
  return {setting.name, answer.value().value_or(false), !answer.value(), setting.meaning};
}

Shown shownOf(Session& session, const ListSetting& setting) {
  const auto current = readSetting(setting.name, session.options().domain());
  if (!current) throw cannotBeRead(session);
  return {setting.name, current->value, current->isDefault, setting.meaning};
}

UsageError hasNoSetting(std::string_view name) {
  std::vector<std::string> names = {std::string(RegionName)};
  for (const StoreSetting& setting : StoreSettings) names.emplace_back(setting.name);
  for (const ListSetting& setting : listSettings()) names.emplace_back(setting.name);
  return UsageError("there is no setting " + inQuotes(name) + didYouMean(name, names, " (pellor settings lists them)"));
}

Shown shownNamed(Session& session, std::string_view name) {
  if (const auto* ofStore = storeSettingNamed(name)) return shownOf(session, *ofStore);
  if (const auto* ofList = listSettingNamed(name)) return shownOf(session, *ofList);
  throw hasNoSetting(name);
}

std::vector<Shown> allSettings(Session& session) {
  std::vector<Shown> all;
  for (const StoreSetting& setting : StoreSettings) all.push_back(shownOf(session, setting));
  for (const ListSetting& setting : listSettings()) all.push_back(shownOf(session, setting));
  return all;
}

std::string textOf(const SettingValue& value) {
  if (const auto* count = std::get_if<std::int64_t>(&value)) return std::to_string(*count);
  if (const auto* flag = std::get_if<bool>(&value)) return *flag ? "true" : "false";
  return printable(std::get<std::string>(value));
}

Json jsonOf(const SettingValue& value) {
  return std::visit([](const auto& each) { return Json(each); }, value);
}

std::string lineText(std::string_view name, const std::string& value, bool isDefault, std::string_view meaning) {
  constexpr std::size_t nameWidth = 20;
  return fitted(name, nameWidth) + value + (isDefault ? " (default)" : "") + "  # " + std::string(meaning) + "\n";
}

std::string allText(Session& session) {
  std::string text = lineText(RegionName, session.platform().region(), false, RegionMeaning);
  for (const Shown& each : allSettings(session))
    text += lineText(each.name, textOf(each.value), each.isDefault, each.meaning);
  return text;
}

Json allJson(Session& session, const std::string& region) {
  Json settings = Json::object();
  for (const Shown& each : allSettings(session))
    settings[std::string(each.name)] = Json{{"value", jsonOf(each.value)}, {"isDefault", each.isDefault}};
  return {{"domain", session.options().domain()}, {"region", region}, {"settings", settings}};
}

void showAll(Session& session) {
  session.answer([&] { return allText(session); }, [&] { return allJson(session, session.platform().region()); });
}

std::string valueText(Session& session, const std::string& name, const std::string& region) {
  return name == RegionName ? region : textOf(shownNamed(session, name).value);
}

void showOne(Session& session, const std::string& name, const std::string& region) {
  const std::string text = valueText(session, name, region);
  session.answer([&] { return text + "\n"; }, [&] { return allJson(session, region); });
}

// In a dry run the value was set in this program's own view of the store.
void showSet(Session& session, const std::string& name, const std::string& before, const std::string& region) {
  if (!session.isDry()) return showOne(session, name, region);
  const std::string text =
      "would have set " + name + " to " + valueText(session, name, region) + " (is " + before + ")";
  session.answer([&] { return text + "\n"; }, [&] { return allJson(session, region); });
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
  const std::string before = session.platform().region();
  session.requireWritableStore();
  requireWritten(session, StoreRegion::change(session.store(), proposedRegion(region)));
  showSet(session, std::string(RegionName), before, region);
}

UsageError isNoFlag(std::string_view text) {
  return UsageError(inQuotes(text) + " is neither on (true) nor off (false)");
}

// The next program that starts names all friends anew.
void set(Session& session, const StoreSetting& setting, const std::string& text) {
  const bool isOn = text == "true" || text == "on";
  if (!isOn && text != "false" && text != "off") throw isNoFlag(text);
  session.requireWritableStore();
  session.store().setValue(setting.key, Value(isOn), BundleIdentifier);
  requireWritten(session, session.store().synchronize(BundleIdentifier));
  requireWritten(session, askForRefresh(session.options().domain()));
}

SettingValue valueIn(const std::string& text, const ListSetting& setting) {
  if (auto value = settingValueIn(text, setting.name)) return *std::move(value);
  switch (setting.kind) {
    case SettingKind::count:
      throw UsageError(inQuotes(text) + " is no number from 1 to " + std::to_string(setting.largestCount));
    case SettingKind::flag:
      throw isNoFlag(text);
    case SettingKind::name:
      break;
  }
  throw UsageError("the value is empty");
}

void set(Session& session, const ListSetting& setting, const std::string& text) {
  const SettingValue value = valueIn(text, setting);
  session.requireWritableStore();
  requireWritten(session, writeSetting(setting.name, value, session.options().domain()));
}

void set(Session& session, const std::string& name, const std::string& text) {
  const std::string before = valueText(session, name, session.platform().region());
  if (const auto* ofStore = storeSettingNamed(name)) {
    set(session, *ofStore, text);
  } else if (const auto* ofList = listSettingNamed(name)) {
    set(session, *ofList, text);
  } else {
    throw hasNoSetting(name);
  }
  showSet(session, name, before, session.platform().region());
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

void addSettingsCommands(CommandSyntax program, Command& chosen) {
  const auto command = program.command("settings", "Show or change settings; they hold for programs started later");
  command.offersDryRun();
  const auto arguments = std::make_shared<SettingsArguments>();
  command.option("NAME", arguments->name, "The setting, or region");
  command.option("VALUE", arguments->value, "The new value");
  command.whenGiven(
      [&chosen, arguments] { chosen = [arguments](Session& session) { settings(session, *arguments); }; });
}

}  // namespace pellor::cli
