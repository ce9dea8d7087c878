#include "cli/NameMatch.h"

#include <algorithm>
#include <utility>

#include "pellor/linux/contacts/NameSearchKey.h"
#include "pellor/linux/phone/LibPhoneNumber.h"
#include "pellor/linux/text/IcuText.h"
#include "pellor/linux/text/TextLimits.h"
#include "pellor/list/Destination.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/Process.h"

namespace pellor::cli {
namespace {

constexpr std::ptrdiff_t FewestDigits = 3;

bool isEmailAddress(std::string_view text) {
  const auto at = text.rfind('@');
  return at != std::string_view::npos && at > 0 && at + 1 < text.size() && text.find(' ') == std::string_view::npos;
}

bool isDigit(char character) { return character >= '0' && character <= '9'; }

// In canonical form, but for what stands between the digits of a number that nobody can read: "911", "*100#", "+999 1".
bool isWrittenNumber(std::string_view text) {
  constexpr std::string_view signs = "+-()/. \t*#";
  return std::ranges::count_if(text, isDigit) >= FewestDigits &&
         std::ranges::all_of(text, [&](char c) { return isDigit(c) || signs.find(c) != std::string_view::npos; });
}

// Another language's rules would take one address for another, or tell equal ones apart.
std::string lowerCaseAddress(std::string_view address) {
  std::string text(address);
  for (char& character : text) {
    if (character >= 'A' && character <= 'Z') character = static_cast<char>(character - 'A' + 'a');
  }
  return text;
}

std::string upperCaseName(std::string_view name) {
  return platformOf(Process::current()).text->uppercase(nameWithinLimit(name));
}

}  // namespace

NameMatch::NameMatch(const std::string& typed)
    : _key(wholeNameKey(typed)), _upperCase(upperCaseName(typed)), _lowerCaseAddress(lowerCaseAddress(typed)) {}

bool NameMatch::isWhole(const std::optional<std::string>& name) const { return name && wholeNameKey(*name) == _key; }

bool NameMatch::isPart(const std::optional<std::string>& name) const {
  return name && upperCaseName(*name).find(_upperCase) != std::string::npos;
}

bool NameMatch::isPartOfAddress(std::string_view address) const {
  return lowerCaseAddress(address).find(_lowerCaseAddress) != std::string::npos;
}

WrittenName::WrittenName(const std::string& typed, std::string locale)
    : _locale(std::move(locale)), _form(lowerCaseForm(nameWithinLimit(typed), _locale)) {}

bool WrittenName::is(const std::optional<std::string>& name) const {
  return name && lowerCaseForm(nameWithinLimit(*name), _locale) == _form;
}

// No key of words begins with a zero byte.
std::string wholeNameKey(const std::string& name) {
  std::string key = nameSearchKey(name);
  return key.empty() ? '\0' + upperCaseName(name) : key;
}

bool isPlainDestination(std::string_view text) {
  if (isTooLongForDestination(text)) return false;
  const std::string address = rawDestination(text);
  if (isEmailAddress(address) || isWrittenNumber(canonicalDestination(text).value_or(""))) return true;
  const std::string region = platformOf(Process::current()).phoneNumbers->homeCountryCode();
  return internationalPhoneNumber(address, region).has_value();
}

}  // namespace pellor::cli
