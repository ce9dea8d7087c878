// Phone numbers for a simulation, by a few simple rules.
#pragma once

#include <optional>

#include "pellor/platform/PhoneNumberFormatter.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

/// A text is a number when it consists of at least seven decimal digits of any script, blanks, and "-", ".", "/", "(",
/// ")", with or without a "+" in front. "+" and "00" begin an international number; "0" and ten digits alone make a
/// national one; anything else is taken as it stands. One number has one normalised form, and a normalised form is its
/// own.
class SimulatedPhoneNumbers : public PhoneNumberFormatter {
 public:
  /// The home country, at first "DE". One of AT, AU, CH, DE, ES, FR, GB, IN, IT, JP, NL, PL, SE, US. Any thread.
  void setHomeCountry(std::string code);

  /// The normalised form of a number; the text itself when it is none. An absent country is the home country. Any
  /// thread.
  std::string normalised(std::string_view text, const std::optional<std::string>& countryCode = std::nullopt);

  std::string homeCountryCode() override;
  std::string homeCallingCode() override;
  std::string homeTrunkPrefix() override;
  std::shared_ptr<ParsedPhoneNumber> parsePhoneNumber(std::string_view text, std::string_view countryCode) override;
  std::string phoneNumberString(const ParsedPhoneNumber& number, PhoneNumberForm form) override;
  std::string phoneNumberCountryCode(const ParsedPhoneNumber& number) override;
  std::string formatPhoneNumber(std::string_view number, std::string_view countryCode, std::uint32_t style,
                                std::uint32_t options) override;

 private:
  Mutex _mutex;
  std::string _homeCountry PELLOR_GUARDED_BY(_mutex) = "DE";
};

}  // namespace pellor
