#include "pellor/linux/ldap/LdapFilter.h"

#include <cstdint>

namespace pellor {

std::string escapedFilterValue(std::string_view value) {
  constexpr std::string_view special = "*()\\";
  constexpr std::string_view digits = "0123456789abcdef";
  std::string escaped;
  for (const char character : value) {
    const auto byte = static_cast<std::uint8_t>(character);
    if (byte >= ' ' && byte < 0x7F && special.find(character) == std::string_view::npos) {
      escaped += character;
    } else {
      escaped.append({'\\', digits[byte >> 4], digits[byte & 0x0F]});
    }
  }
  return escaped;
}

std::string filterOfAny(const std::vector<FilterTerm>& terms, const std::string& condition) {
  std::string any = "(|";
  for (const auto& [attribute, value] : terms) any += "(" + attribute + "=" + escapedFilterValue(value) + ")";
  any += ")";
  return condition.empty() ? any : "(&" + condition + any + ")";
}

}  // namespace pellor
