#include "pellor/testing/SimulatedPhoneNumbers.h"

#include <utility>

#include "pellor/runtime/Fatal.h"
#include "pellor/testing/internal/Characters.h"

namespace pellor {

namespace {

struct Country {
  std::string_view code;
  std::string_view callingCode;
  std::string_view trunkPrefix;
};

constexpr Country Countries[] = {{"AT", "43", "0"}, {"AU", "61", "0"}, {"CH", "41", "0"}, {"DE", "49", "0"},
                                 {"ES", "34", ""},  {"FR", "33", "0"}, {"GB", "44", "0"}, {"IN", "91", "0"},
                                 {"IT", "39", "0"}, {"JP", "81", "0"}, {"NL", "31", "0"}, {"PL", "48", ""},
                                 {"SE", "46", "0"}, {"US", "1", ""}};

const Country* countryWithCode(std::string_view code) {
  for (const Country& country : Countries) {
    if (country.code == code) return &country;
  }
  return nullptr;
}

const Country* countryOfNumber(std::string_view international) {
  for (const Country& country : Countries) {
    if (international.substr(1).starts_with(country.callingCode)) return &country;
  }
  return nullptr;
}

bool isSeparator(char32_t c) {
  return c == ' ' || c == 0xA0 || c == 0x202F || c == '-' || c == '.' || c == '/' || c == '(' || c == ')';
}

constexpr std::size_t FewestDigits = 7;

// The digits, behind "+" when the text begins with one; absent when the text is no number.
std::optional<std::string> dialled(std::string_view text) {
  std::string result;
  for (const char32_t c : characters::decode(text)) {
    if (isSeparator(c)) continue;
    if (const auto digit = characters::decimalDigit(c)) {
      result.push_back(static_cast<char>('0' + *digit));
    } else if (c == '+' && result.empty()) {
      result.push_back('+');
    } else {
      return std::nullopt;
    }
  }
  const std::size_t digits = result.size() - (result.starts_with('+') ? 1 : 0);
  if (digits < FewestDigits) return std::nullopt;
  return result;
}

std::optional<std::string> numberIn(std::string_view text, std::string_view countryCode) {
  auto number = dialled(text);
  if (!number || number->starts_with('+')) return number;
  // What is too short behind its prefix is no number, so that every form that is given is its own form.
  if (number->starts_with("00")) return dialled("+" + number->substr(2));
  const Country* country = countryWithCode(countryCode);
  if (!country) return number;
  const std::string international = "+" + std::string(country->callingCode);
  if (number->starts_with('0')) return international + number->substr(1);
  return number->size() == 10 ? international + *number : *number;
}

class SimulatedPhoneNumber : public ParsedPhoneNumber {
 public:
  explicit SimulatedPhoneNumber(std::string number) : _number(std::move(number)) {}
  const std::string& number() const { return _number; }

 private:
  std::string _number;
};

const std::string& numberOf(const ParsedPhoneNumber& number) {
  const auto* parsed = dynamic_cast<const SimulatedPhoneNumber*>(&number);
  require(parsed != nullptr, "a phone number that this formatter parsed");
  return parsed->number();
}

}  // namespace

void SimulatedPhoneNumbers::setHomeCountry(std::string code) {
  require(countryWithCode(code) != nullptr, "a home country that the simulation knows");
  const MutexLock lock(_mutex);
  _homeCountry = std::move(code);
}

std::string SimulatedPhoneNumbers::normalised(std::string_view text, const std::optional<std::string>& countryCode) {
  return numberIn(text, countryCode ? *countryCode : homeCountryCode()).value_or(std::string(text));
}

std::string SimulatedPhoneNumbers::homeCountryCode() {
  const MutexLock lock(_mutex);
  return _homeCountry;
}

std::string SimulatedPhoneNumbers::homeCallingCode() {
  return std::string(countryWithCode(homeCountryCode())->callingCode);
}

std::string SimulatedPhoneNumbers::homeTrunkPrefix() {
  return std::string(countryWithCode(homeCountryCode())->trunkPrefix);
}

std::shared_ptr<ParsedPhoneNumber> SimulatedPhoneNumbers::parsePhoneNumber(std::string_view text,
                                                                           std::string_view countryCode) {
  auto number = numberIn(text, countryCode);
  return number ? std::make_shared<SimulatedPhoneNumber>(*std::move(number)) : nullptr;
}

std::string SimulatedPhoneNumbers::phoneNumberString(const ParsedPhoneNumber& number, PhoneNumberForm) {
  return numberOf(number);
}

std::string SimulatedPhoneNumbers::phoneNumberCountryCode(const ParsedPhoneNumber& number) {
  if (!numberOf(number).starts_with('+')) return {};
  const Country* country = countryOfNumber(numberOf(number));
  return country ? std::string(country->code) : std::string();
}

std::string SimulatedPhoneNumbers::formatPhoneNumber(std::string_view number, std::string_view countryCode,
                                                     std::uint32_t /*style*/, std::uint32_t options) {
  const auto international = numberIn(number, countryCode);
  if (!international) return std::string(number);
  const Country* country = countryWithCode(countryCode);
  const std::string prefix = country ? "+" + std::string(country->callingCode) : "+";
  if (!country || !international->starts_with(prefix)) return *international;
  const std::string subscriber = international->substr(prefix.size());
  if (options & PhoneNumberOptionNational) return std::string(country->trunkPrefix) + subscriber;
  return prefix + " " + subscriber;
}

}  // namespace pellor
