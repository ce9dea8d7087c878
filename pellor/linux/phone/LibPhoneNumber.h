// Phone numbers by libphonenumber: parsing, one fixed spelling, display.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "pellor/platform/PhoneNumberFormatter.h"

namespace pellor {

/// Gives the region of the store, two upper-case letters, for each number anew. Called on any thread.
class RegionSource {
 public:
  /// `source` gives a reference, to a text that stays as long as the source.
  template <class Source>
    requires std::is_same_v<std::invoke_result_t<Source&>, const std::string&>
  RegionSource(Source source) : _source(std::move(source)) {}

  const std::string& operator()() const { return _source(); }

 private:
  std::function<const std::string&()> _source;
};

/// Whether numbers of that region ("DE") can be read. Any thread.
bool isPhoneNumberRegion(std::string_view region);

/// The digits with which international numbers of that region begin, such as "49"; empty for one without numbers. Any
/// thread.
std::string callingCodeOf(std::string_view region);

/// The number in the text as E.164, an extension following as ";ext=5": "+49301234567;ext=5". National numbers are read
/// as numbers of `region`. Absent when the text holds no number that could be dialled from everywhere: "911", "116117"
/// in Germany, local numbers without an area code, too short or too long ones; and when the form would be read as
/// another number, so that a form is always its own form. Any thread; pure.
std::optional<std::string> internationalPhoneNumber(std::string_view text, std::string_view region);

/// How often this program has called libphonenumber: while it is 0 the library, whose start takes milliseconds, was not
/// started. Any thread.
std::uint64_t phoneLibraryCalls();

/// Which libphonenumber this program has: another text when another one was installed before its start. Empty when that
/// cannot be told. Does not start the library. Any thread.
const std::string& phoneLibraryVersion();

class LibPhoneNumber final : public PhoneNumberFormatter {
 public:
  explicit LibPhoneNumber(RegionSource region);

  std::string homeCountryCode() override;
  /// Empty for a region without numbers.
  std::string homeCallingCode() override;
  std::string homeTrunkPrefix() override;
  /// Null also for numbers of an impossible length, which are shown as they were typed.
  std::shared_ptr<ParsedPhoneNumber> parsePhoneNumber(std::string_view text, std::string_view countryCode) override;
  std::string phoneNumberString(const ParsedPhoneNumber& number, PhoneNumberForm form) override;
  std::string phoneNumberCountryCode(const ParsedPhoneNumber& number) override;
  /// With PhoneNumberOptionShort an extension of at most nine digits is written "x5", else "ext. 5". There is one
  /// style. A number whose national form would not dial at home is shown in the international one.
  std::string formatPhoneNumber(std::string_view number, std::string_view countryCode, std::uint32_t style,
                                std::uint32_t options) override;

 private:
  RegionSource _region;
};

}  // namespace pellor
