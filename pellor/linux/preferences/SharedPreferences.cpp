#include "pellor/linux/preferences/SharedPreferences.h"

namespace pellor {

PreferenceAnswer<std::int64_t> SharedPreferences::integerValue(std::string_view key, std::string_view domain) {
  const PreferenceAnswer<Value> answer = copyValue(key, domain);
  if (!answer.isReadable()) return PreferenceAnswer<std::int64_t>::unreadable();
  const auto integer = answer.value() ? answer.value()->integer() : std::nullopt;
  return integer ? PreferenceAnswer<std::int64_t>::some(*integer) : PreferenceAnswer<std::int64_t>::none();
}

PreferenceAnswer<bool> SharedPreferences::booleanValue(std::string_view key, std::string_view domain) {
  const PreferenceAnswer<Value> answer = copyValue(key, domain);
  if (!answer.isReadable()) return PreferenceAnswer<bool>::unreadable();
  const auto boolean = answer.value() ? answer.value()->boolean() : std::nullopt;
  return boolean ? PreferenceAnswer<bool>::some(*boolean) : PreferenceAnswer<bool>::none();
}

}  // namespace pellor
