#include "pellor/linux/phone/ComparableNumber.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <optional>

#include "pellor/linux/phone/LibPhoneNumber.h"
#include "pellor/linux/text/TextLimits.h"

namespace pellor {
namespace {

// Keyboards of East Asia write letters, digits and signs in a width of their own.
UChar32 ofUsualWidth(UChar32 character) {
  constexpr UChar32 firstWide = 0xFF01, lastWide = 0xFF5E, distance = 0xFEE0;
  return character >= firstWide && character <= lastWide ? character - distance : character;
}

// What people put between digits, and the marks of direction that stand around copied numbers.
bool isPunctuation(UChar32 character) {
  constexpr std::string_view signs = " \t-.()/[]";
  if (character < 0x80) return signs.find(static_cast<char>(character)) != std::string_view::npos;
  constexpr UChar32 minus = 0x2212;
  return character == minus || (U_GET_GC_MASK(character) & (U_GC_ZS_MASK | U_GC_PD_MASK | U_GC_CF_MASK)) != 0;
}

bool isCodeSign(UChar32 character) { return character == '*' || character == '#'; }

// Digits and the signs of service codes, when the text has nothing else but punctuation. Absent also without a digit.
std::optional<std::string> plainNumber(std::string_view text) {
  std::string plain;
  bool hasDigit = false;
  const auto length = static_cast<std::int32_t>(text.size());
  for (std::int32_t at = 0; at < length;) {
    UChar32 character = 0;
    U8_NEXT_OR_FFFD(reinterpret_cast<const std::uint8_t*>(text.data()), at, length, character);
    character = ofUsualWidth(character);
    if (const std::int32_t digit = u_charDigitValue(character); digit >= 0) {
      plain += static_cast<char>('0' + digit);
      hasDigit = true;
    } else if (isCodeSign(character)) {
      plain += static_cast<char>(character);
    } else if (!isPunctuation(character)) {
      return std::nullopt;
    }
  }
  return hasDigit ? std::optional(plain) : std::nullopt;
}

}  // namespace

std::string comparableNumber(std::string_view text, std::string_view region) {
  if (isTooLongForNumber(text)) return std::string(text);
  const std::optional<std::string> plain = plainNumber(text);
  if (!plain) return internationalPhoneNumber(text, region).value_or(std::string(text));
  // The phone library would take the digits of a code for a number.
  if (isCodeSign(plain->front())) return *plain;
  // A "#" behind a number may begin an extension, which the library knows by what stands before it.
  const bool hasCodeSign = std::ranges::any_of(*plain, isCodeSign);
  if (hasCodeSign) {
    if (auto form = internationalPhoneNumber(text, region)) return *std::move(form);
  }
  // Else the digits alone are asked about: of short texts the library reads some only because of their punctuation.
  return internationalPhoneNumber(*plain, region).value_or(*plain);
}

std::optional<std::string> keysOfNumber(std::string_view text) {
  if (isTooLongForNumber(text)) return std::nullopt;
  for (const std::string_view plus : {"+", "\uFF0B"}) {
    const std::size_t place = text.find(plus);
    if (place == text.npos) continue;
    const bool isFirst = plainNumber(std::string(text.substr(0, place)) + "0") == "0";
    const auto plain = isFirst ? plainNumber(text.substr(place + plus.size())) : std::nullopt;
    return plain ? std::optional("+" + *plain) : std::nullopt;
  }
  return plainNumber(text);
}

}  // namespace pellor
