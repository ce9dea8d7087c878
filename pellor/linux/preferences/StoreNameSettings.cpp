#include "pellor/linux/preferences/StoreNameSettings.h"

#include <array>
#include <string>

#include "pellor/runtime/BundleIdentifier.h"

namespace pellor {

NameSettings StoreNameSettings::current() {
  const std::array keys = {std::string(ShortNamesKey), std::string(PreferNicknamesKey)};
  const auto answer = _store->read(keys, BundleIdentifier);
  if (!answer.isReadable()) return _known;
  const auto isOn = [&](std::string_view key) {
    const auto& value = answer.value()->find(key)->second.value;
    return value && value->boolean() == true;
  };
  _known = {isOn(ShortNamesKey), isOn(PreferNicknamesKey)};
  return _known;
}

}  // namespace pellor
