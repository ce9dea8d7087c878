// A number of which a part was typed.
#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "pellor/platform/PhoneNumberFormatter.h"
#include "pellor/platform/ReachabilityService.h"
#include "pellor/platform/TextService.h"

namespace pellor {

/// The rules by which numbers that are typed in part are compared with whole ones.
class TypedNumber {
 public:
  /// Absent for a text that holds anything but digits of any script and the signs of numbers, and without a digit.
  static std::optional<TypedNumber> read(std::string_view text, TextService& textService,
                                         ReachabilityService& destinations, PhoneNumberFormatter& phoneNumbers) {
    constexpr std::string_view signs = " \t+-()/.*#";
    std::string digits;
    bool isForeign = false;  // digits of another script than ASCII's
    for (std::size_t at = 0; at < text.size();) {
      const std::size_t length = characterLength(text, at);
      const std::string_view character = text.substr(at, length);
      at += length;
      if (character[0] >= '0' && character[0] <= '9') {
        digits += character;
      } else if (textService.containsDecimalDigit(character)) {
        const std::string digit = digitsOf(destinations.comparableNumber(character).value_or(std::string()));
        isForeign = isForeign || digit.size() != 1;
        digits += digit;
      } else if (length > 1 || signs.find(character[0]) == std::string_view::npos) {
        return std::nullopt;
      }
    }
    const std::string comparable = destinations.comparableNumber(text).value_or(std::string());
    if (isForeign) digits = digitsOf(comparable);
    if (digits.empty()) return std::nullopt;
    return TypedNumber(digits, text.find('+') != std::string_view::npos, comparable, phoneNumbers);
  }

  /// The canonical forms of the numbers that were meant begin with one of these.
  const std::vector<std::string>& beginnings() const { return _beginnings; }
  /// The digits backwards, as `endingKey` has them; empty for fewer than three, with which too many numbers end.
  const std::string& ending() const { return _ending; }

  /// The digits of a canonical form backwards.
  static std::string endingKey(std::string_view canonical) {
    std::string key = digitsOf(canonical);
    std::ranges::reverse(key);
    return key;
  }

 private:
  TypedNumber(const std::string& digits, bool isInternational, const std::string& comparable,
              PhoneNumberFormatter& phoneNumbers) {
    constexpr std::size_t leastEnding = 3;
    if (comparable.starts_with('+')) _beginnings.push_back(comparable);
    if (digits.starts_with("00")) {
      _beginnings.push_back('+' + digits.substr(2));
    } else {
      _beginnings.push_back('+' + digits);
    }
    if (!isInternational) {
      _beginnings.push_back(digits);
      addNational(digits, phoneNumbers);
    }
    if (digits.size() >= leastEnding) _ending = endingKey(digits);
  }

  void addNational(const std::string& digits, PhoneNumberFormatter& phoneNumbers) {
    const std::string callingCode = phoneNumbers.homeCallingCode(), trunkPrefix = phoneNumbers.homeTrunkPrefix();
    if (callingCode.empty()) return;
    std::vector<std::string> nationals = {digits,
                                          digits.substr(std::min(digits.find_first_not_of('0'), digits.size()))};
    if (!trunkPrefix.empty() && digits.starts_with(trunkPrefix)) nationals.push_back(digits.substr(trunkPrefix.size()));
    for (const std::string& national : nationals)
      if (!national.empty()) _beginnings.push_back('+' + callingCode + national);
  }
  static std::string digitsOf(std::string_view text) {
    std::string digits;
    std::ranges::copy_if(text, std::back_inserter(digits), [](char c) { return c >= '0' && c <= '9'; });
    return digits;
  }
  /// Of the UTF-8 character; one byte of a text that is none.
  static std::size_t characterLength(std::string_view text, std::size_t at) {
    std::size_t end = at + 1;
    while (end < text.size() && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U) ++end;
    return end - at;
  }

  std::vector<std::string> _beginnings;
  std::string _ending;
};

}  // namespace pellor
