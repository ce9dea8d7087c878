#include "linux/LibPhoneNumber.h"

#include <phonenumbers/phonenumberutil.h>

#include <utility>

namespace pellor {
namespace {

using i18n::phonenumbers::PhoneNumber;
using i18n::phonenumbers::PhoneNumberUtil;

class LibraryNumber final : public ParsedPhoneNumber {
 public:
  explicit LibraryNumber(PhoneNumber number) : content(std::move(number)) {}
  const PhoneNumber content;
};

const PhoneNumber& contentOf(const ParsedPhoneNumber& number) {
  return dynamic_cast<const LibraryNumber&>(number).content;
}

const PhoneNumberUtil& library() { return *PhoneNumberUtil::GetInstance(); }

// Numbers that are complete only inside their own area are left out: with the country code before them they would name
// another number, or none.
std::optional<PhoneNumber> parse(std::string_view text, std::string_view region) {
  PhoneNumber number;
  const auto error = library().Parse(std::string(text), std::string(region), &number);
  if (error != PhoneNumberUtil::NO_PARSING_ERROR) return std::nullopt;
  if (library().IsPossibleNumberWithReason(number) != PhoneNumberUtil::IS_POSSIBLE) return std::nullopt;
  return number;
}

std::string format(PhoneNumber number, PhoneNumberUtil::PhoneNumberFormat form) {
  number.clear_extension();
  std::string text;
  library().Format(number, form, &text);
  return text;
}

std::string canonicalString(const PhoneNumber& number) {
  std::string text = format(number, PhoneNumberUtil::E164);
  if (!number.extension().empty()) text += ";ext=" + number.extension();
  return text;
}

}  // namespace

bool isPhoneNumberRegion(std::string_view region) {
  return library().GetCountryCodeForRegion(std::string(region)) != 0;
}

std::optional<std::string> internationalPhoneNumber(std::string_view text, std::string_view region) {
  const std::optional<PhoneNumber> number = parse(text, region);
  if (!number) return std::nullopt;
  return canonicalString(*number);
}

LibPhoneNumber::LibPhoneNumber(RegionSource region) : _region(std::move(region)) {}

std::string LibPhoneNumber::homeCountryCode() { return _region(); }

std::shared_ptr<ParsedPhoneNumber> LibPhoneNumber::parsePhoneNumber(std::string_view text,
                                                                    std::string_view countryCode) {
  std::optional<PhoneNumber> number = parse(text, countryCode);
  return number ? std::make_shared<LibraryNumber>(*std::move(number)) : nullptr;
}

std::string LibPhoneNumber::phoneNumberString(const ParsedPhoneNumber& number, PhoneNumberForm /*form*/) {
  return canonicalString(contentOf(number));
}

std::string LibPhoneNumber::phoneNumberCountryCode(const ParsedPhoneNumber& number) {
  std::string region;
  library().GetRegionCodeForNumber(contentOf(number), &region);
  // The library's codes for "nowhere" and "worldwide" are no countries.
  return region == "ZZ" || region == "001" ? "" : region;
}

std::string LibPhoneNumber::formatPhoneNumber(std::string_view number, std::string_view countryCode,
                                              std::uint32_t /*style*/, std::uint32_t options) {
  const std::optional<PhoneNumber> parsed = parse(number, countryCode);
  if (!parsed) return std::string(number);
  const bool isNational = (options & PhoneNumberOptionNational) != 0;
  std::string text = format(*parsed, isNational ? PhoneNumberUtil::NATIONAL : PhoneNumberUtil::INTERNATIONAL);
  if (parsed->extension().empty()) return text;
  return text + ((options & PhoneNumberOptionShort) != 0 ? " x" : " ext. ") + parsed->extension();
}

}  // namespace pellor
