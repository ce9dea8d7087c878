// settings

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cctype>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cli/CommandLine.h"
#include "cli/JsonForms.h"
#include "cli/Output.h"
#include "cli/Suggestion.h"
#include "pellor/friends/internal/PLDomainSettings.h"
#include "pellor/linux/preferences/internal/StoreNameSettings.h"
#include "pellor/linux/preferences/internal/StoreRegion.h"
#include "pellor/runtime/BundleIdentifier.h"

namespace pellor::cli {
namespace {

constexpr std::string_view RegionName = "region";

// Kept as those of the list are, for the store as a whole.
constexpr std::array StoreSettings = {
    PLDomainSetting{ShortNamesKey, "short-names", PLDomainSetting::Kind::flag, "false", 0,
                    "call people by their given names, of the whole store"},
    PLDomainSetting{PreferNicknamesKey, "prefer-nicknames", PLDomainSetting::Kind::flag, "false", 0,
                    "call people by their nicknames, of the whole store"},
};

constexpr std::string_view RegionMeaning = "by which national numbers are read, of the whole store";

/// What holds for a setting at present.
struct Current {
  Value value;
  bool isDefault = false;
};

Value valueIn(std::string_view text, const PLDomainSetting& setting) {
  if (auto value = setting.valueOf(text)) return *std::move(value);
  switch (setting.kind) {
    case PLDomainSetting::Kind::count:
      throw UsageError(inQuotes(text) + " is no number from 1 to " + std::to_string(setting.largestCount));
    case PLDomainSetting::Kind::flag:
      throw UsageError(inQuotes(text) + " is neither on (true) nor off (false)");
    case PLDomainSetting::Kind::name:
      break;
  }
  throw UsageError("the value is empty");
}

bool isOfStore(const PLDomainSetting& setting) {
  return std::ranges::find(StoreSettings, setting.name, &PLDomainSetting::name) != StoreSettings.end();
}

std::string domainOf(Session& session, const PLDomainSetting& setting) {
  return isOfStore(setting) ? BundleIdentifier : session.options().domain();
}

std::vector<PLDomainSetting> allSettings() {
  std::vector<PLDomainSetting> all(StoreSettings.begin(), StoreSettings.end());
  const auto ofList = plDomainSettings();
  all.insert(all.end(), ofList.begin(), ofList.end());
  return all;
}

Current currentOf(Session& session, const PLDomainSetting& setting) {
  const auto answer = session.store().copyValue(setting.key, domainOf(session, setting));
  if (!answer.isReadable()) throw CommandError("the settings cannot be read: " + session.storeProblem());
  if (answer.value() && setting.isOfKind(*answer.value())) return {*answer.value(), false};
  return {setting.absentValue(), true};
}

PLDomainSetting settingNamed(std::string_view name) {
  const auto settings = allSettings();
  const auto found = std::ranges::find(settings, name, &PLDomainSetting::name);
  if (found != settings.end()) return *found;
  std::vector<std::string> names = {std::string(RegionName)};
  for (const PLDomainSetting& setting : settings) names.emplace_back(setting.name);
  throw UsageError("there is no setting " + inQuotes(name) + didYouMean(name, names, " (pellor settings lists them)"));
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
  for (const PLDomainSetting& setting : allSettings()) {
    const Current current = currentOf(session, setting);
    text += lineText(setting.name, shown(current.value), current.isDefault, setting.meaning);
  }
  return text;
}

Json allJson(Session& session, const std::string& region) {
  Json settings = Json::object();
  for (const PLDomainSetting& setting : allSettings()) {
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
  requireWritten(session, StoreRegion::change(session.store(), proposedRegion(region)));
  showOne(session, std::string(RegionName), region);
}

// The next program that starts looks at all friends again, and names them anew.
void forgetLastRefresh(Session& session) {
  const std::string domain = session.options().domain();
  session.store().setValue(PLAddressBookSequenceNumberKey, std::nullopt, domain);
  requireWritten(session, session.store().synchronize(domain));
}

void set(Session& session, const std::string& name, const std::string& text) {
  const PLDomainSetting setting = settingNamed(name);
  Value value = valueIn(text, setting);
  session.requireWritableStore();
  requireWritten(session,
                 plWriteDomainSetting(session.store(), setting.key, std::move(value), domainOf(session, setting)));
  if (isOfStore(setting)) forgetLastRefresh(session);
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
