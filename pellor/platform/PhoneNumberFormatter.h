// Parsing and display of phone numbers.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace pellor {

/// A number as the formatter that parsed it understands it.
class ParsedPhoneNumber {
 public:
  virtual ~ParsedPhoneNumber() = default;
};

enum class PhoneNumberForm : std::uint32_t {
  canonical = 1,  ///< the international number in one fixed spelling
};

/// How numbers are shown, as the option bits of `formatPhoneNumber` select it.
inline constexpr std::uint32_t PhoneNumberStyleCompact = 2;
inline constexpr std::uint32_t PhoneNumberOptionNational = 2;  ///< leave the country code out
inline constexpr std::uint32_t PhoneNumberOptionShort = 4;     ///< as short as stays readable

/// Any thread; pure.
class PhoneNumberFormatter {
 public:
  virtual ~PhoneNumberFormatter() = default;
  /// The home country of the store's region: a two-letter code in upper case, such as "DE".
  virtual std::string homeCountryCode() = 0;
  /// The digits with which international numbers of that country begin, such as "49". A port that leaves it as it is
  /// finds a number that is not typed whole by its international beginning and by its ending alone.
  virtual std::string homeCallingCode() { return {}; }
  /// The digits that are dialled before a national number at home and are no part of the international one: "0" in
  /// Germany, "06" in Hungary. Empty where there are none. A port that leaves it as it is has zeros passed over.
  virtual std::string homeTrunkPrefix() { return {}; }
  /// The number in `text`, a national one being read as a number of `countryCode`; null when the text is no number.
  virtual std::shared_ptr<ParsedPhoneNumber> parsePhoneNumber(std::string_view text, std::string_view countryCode) = 0;
  virtual std::string phoneNumberString(const ParsedPhoneNumber& number, PhoneNumberForm form) = 0;
  /// The code of the country that the number belongs to; empty for one that belongs to none.
  virtual std::string phoneNumberCountryCode(const ParsedPhoneNumber& number) = 0;
  /// The display form of a number string; the string itself when it cannot be read.
  virtual std::string formatPhoneNumber(std::string_view number, std::string_view countryCode, std::uint32_t style,
                                        std::uint32_t options) = 0;
};

}  // namespace pellor
