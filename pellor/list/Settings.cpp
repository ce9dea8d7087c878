#include "pellor/list/Settings.h"

#include <algorithm>
#include <vector>

#include "pellor/friends/internal/PLDomainSettings.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/Fatal.h"
#include "pellor/runtime/Process.h"

namespace pellor {
namespace {

PreferencesStore& preferences() { return *platformOf(Process::current()).preferences; }

const PLDomainSetting& storedSetting(std::string_view name) {
  const auto settings = plDomainSettings();
  const auto found = std::ranges::find(settings, name, &PLDomainSetting::name);
  require(found != settings.end(), "the name of a setting");
  return *found;
}

SettingKind kindOf(PLDomainSetting::Kind kind) {
  switch (kind) {
    case PLDomainSetting::Kind::count:
      return SettingKind::count;
    case PLDomainSetting::Kind::flag:
      return SettingKind::flag;
    case PLDomainSetting::Kind::name:
      break;
  }
  return SettingKind::name;
}

SettingValue settingValue(const Value& value, const PLDomainSetting& setting) {
  switch (setting.kind) {
    case PLDomainSetting::Kind::count:
      return *value.integer();
    case PLDomainSetting::Kind::flag:
      return *value.boolean();
    case PLDomainSetting::Kind::name:
      break;
  }
  return *value.string();
}

std::string textOf(const SettingValue& value) {
  if (const auto* count = std::get_if<std::int64_t>(&value)) return std::to_string(*count);
  if (const auto* flag = std::get_if<bool>(&value)) return *flag ? "true" : "false";
  return std::get<std::string>(value);
}

std::vector<ListSetting> makeTable() {
  std::vector<ListSetting> table;
  for (const PLDomainSetting& each : plDomainSettings())
    table.push_back({each.name, kindOf(each.kind), each.largestCount, each.meaning});
  return table;
}

}  // namespace

std::span<const ListSetting> listSettings() {
  static const std::vector<ListSetting> table = makeTable();
  return table;
}

const ListSetting* listSettingNamed(std::string_view name) {
  const auto settings = listSettings();
  const auto found = std::ranges::find(settings, name, &ListSetting::name);
  return found == settings.end() ? nullptr : &*found;
}

std::optional<CurrentSetting> readSetting(std::string_view name, const std::string& domain) {
  const PLDomainSetting& setting = storedSetting(name);
  const auto answer = preferences().copyValue(setting.key, domain);
  if (!answer.isReadable()) return std::nullopt;
  const auto& stored = answer.value();
  const bool isUsable = stored && setting.isOfKind(*stored);
  return CurrentSetting{settingValue(isUsable ? *stored : setting.absentValue(), setting), !isUsable};
}

std::optional<SettingValue> settingValueIn(std::string_view text, std::string_view name) {
  const PLDomainSetting& setting = storedSetting(name);
  const auto value = setting.valueOf(text);
  return value ? std::optional(settingValue(*value, setting)) : std::nullopt;
}

bool writeSetting(std::string_view name, const SettingValue& value, const std::string& domain) {
  const PLDomainSetting& setting = storedSetting(name);
  const auto stored = setting.valueOf(textOf(value));
  if (!stored || settingValue(*stored, setting) != value) return false;
  return plWriteDomainSetting(preferences(), setting.key, *stored, domain);
}

bool askForRefresh(const std::string& domain) {
  preferences().setValue(PLAddressBookSequenceNumberKey, std::nullopt, domain);
  return preferences().synchronize(domain);
}

bool hasStoredList(const std::string& domain) {
  const auto has = [&](std::string_view key) { return preferences().copyValue(key, domain).value().has_value(); };
  return has(PLFriendListKey) && !has(PLFirstListIsDueKey);
}

}  // namespace pellor
