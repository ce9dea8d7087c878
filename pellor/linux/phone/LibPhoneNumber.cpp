#include "pellor/linux/phone/LibPhoneNumber.h"

#include <dlfcn.h>
#include <phonenumbers/phonenumberutil.h>
#include <phonenumbers/shortnumberinfo.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <utility>

#include "pellor/linux/text/TextLimits.h"

namespace pellor {
namespace {

using i18n::phonenumbers::PhoneNumber;
using i18n::phonenumbers::PhoneNumberUtil;
using i18n::phonenumbers::ShortNumberInfo;

class LibraryNumber final : public ParsedPhoneNumber {
 public:
  explicit LibraryNumber(PhoneNumber number) : content(std::move(number)) {}
  const PhoneNumber content;
};

const PhoneNumber& contentOf(const ParsedPhoneNumber& number) {
  return dynamic_cast<const LibraryNumber&>(number).content;
}

std::atomic<std::uint64_t> callCount = 0;  // counted on any thread

const PhoneNumberUtil& library() {
  callCount.fetch_add(1, std::memory_order_relaxed);
  return *PhoneNumberUtil::GetInstance();
}

// The library spends a third of its time on finding out that the usual punctuation means nothing.
std::string withoutPunctuation(std::string_view text) {
  // Of shorter texts the library reads some only because of their punctuation, longer ones it may refuse.
  constexpr std::size_t shortest = 8;
  constexpr std::size_t longest = 40;
  if (text.size() < shortest || text.size() > longest) return std::string(text);
  const bool isPlain = std::string_view("+(0123456789").find(text.front()) != text.npos &&
                       text.find_first_not_of("0123456789 -().", 1) == text.npos;
  if (!isPlain) return std::string(text);
  std::string digits;
  std::ranges::copy_if(text, std::back_inserter(digits), [](char c) { return c == '+' || (c >= '0' && c <= '9'); });
  return digits.size() < shortest ? std::string(text) : digits;
}

std::string significantNumber(const PhoneNumber& number) {
  std::string digits;
  library().GetNationalSignificantNumber(number, &digits);
  return digits;
}

// It depends on the country and on how many digits there are, and takes the library up to a microsecond.
bool isPossible(const PhoneNumber& number, std::size_t digits) {
  enum Answer : char { notAsked, possible, impossible };
  constexpr std::size_t countries = 1000;
  constexpr std::size_t lengths = 20;
  static std::array<std::atomic<Answer>, countries * lengths> answers;  // written and read on any thread
  const std::size_t place = static_cast<std::size_t>(number.country_code()) * lengths + digits;
  if (place >= answers.size() || digits >= lengths) return false;
  Answer answer = answers[place].load(std::memory_order_relaxed);
  if (answer == notAsked) {
    answer = library().IsPossibleNumberWithReason(number) == PhoneNumberUtil::IS_POSSIBLE ? possible : impossible;
    answers[place].store(answer, std::memory_order_relaxed);
  }
  return answer == possible;
}

// Whether the text is a number such as "116117", which exists inside the country alone: all its digits are significant.
bool isShortNumber(std::string_view text, const PhoneNumber& number, std::size_t digits, const std::string& region) {
  constexpr std::size_t longest = 6;
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  if (digits > longest || static_cast<std::size_t>(std::ranges::count_if(text, isDigit)) != digits) return false;
  if (text.find('+') != text.npos || library().IsValidNumber(number)) return false;
  static const ShortNumberInfo* const numbers = new ShortNumberInfo;  // for the program's life, as the library is
  return numbers->IsValidShortNumberForRegion(number, region);
}

// Numbers that are complete only inside their own area or country are left out: with the country code before them they
// would name another number, or none.
std::optional<PhoneNumber> parse(std::string_view text, std::string_view region) {
  // The library looks for a number at each place of the text.
  if (isTooLongForNumber(text)) return std::nullopt;
  PhoneNumber number;
  const auto error = library().Parse(withoutPunctuation(text), std::string(region), &number);
  if (error != PhoneNumberUtil::NO_PARSING_ERROR) return std::nullopt;
  const std::size_t digits = significantNumber(number).size();
  if (!isPossible(number, digits) || isShortNumber(text, number, digits, std::string(region))) return std::nullopt;
  return number;
}

// A longer one is not read behind an "x".
constexpr std::size_t LongestShortExtension = 9;

std::string format(PhoneNumber number, PhoneNumberUtil::PhoneNumberFormat form) {
  number.clear_extension();
  std::string text;
  library().Format(number, form, &text);
  return text;
}

// A number that it has no pattern for the library writes without what is dialled before it at home: such a text would
// lead to somebody else. Patterns leave that out only where numbers dial without it.
bool dialsAtHome(const PhoneNumber& number, const std::string& national, const std::string& region) {
  std::string prefix;
  library().GetNddPrefixForRegion(region, true, &prefix);
  return national.starts_with(prefix) || (library().IsValidNumber(number) && national != significantNumber(number));
}

// In the national form where that is asked for and dials.
std::string shown(const PhoneNumber& number, const std::string& region, bool isNational) {
  if (isNational) {
    std::string national = format(number, PhoneNumberUtil::NATIONAL);
    if (dialsAtHome(number, national, region)) return national;
  }
  return format(number, PhoneNumberUtil::INTERNATIONAL);
}

std::string canonicalString(const PhoneNumber& number) {
  std::string text = "+" + std::to_string(number.country_code()) + significantNumber(number);
  if (!number.extension().empty()) text += ";ext=" + number.extension();
  return text;
}

// Whether the library is known to read the form of a number as that number, without trying. In some countries it takes
// more off a number than the one digit that is dialled before it at home, and may do so again when it reads the form;
// in these it takes off that digit or nothing.
bool isReadBack(const PhoneNumber& number, std::string_view form) {
  constexpr auto countries = std::to_array<int>({1,  7,  20, 27, 30, 31, 32, 33, 34, 40, 41, 43, 44, 45, 46, 47, 48, 49,
                                                 51, 53, 58, 60, 62, 63, 64, 66, 81, 84, 90, 91, 92, 93, 94, 95, 98});
  if (!number.extension().empty() || !std::ranges::binary_search(countries, number.country_code())) return false;
  const char homeDigit = number.country_code() == 1 ? '1' : number.country_code() == 7 ? '8' : '0';
  return form.at(1 + std::to_string(number.country_code()).size()) != homeDigit;
}

std::optional<std::string> formOf(std::string_view text, std::string_view region) {
  const std::optional<PhoneNumber> number = parse(text, region);
  if (!number) return std::nullopt;
  return canonicalString(*number);
}

// The file with its version in its name, as distributions install it, and what changes when one puts another in place.
std::string descriptionOf(const char* file) {
  std::error_code error;
  const auto path = std::filesystem::canonical(file, error);
  struct stat found {};
  if (error || ::stat(path.c_str(), &found) != 0) return "";
  return path.filename().string() + " " + std::to_string(found.st_size) + " " + std::to_string(found.st_mtim.tv_sec);
}

}  // namespace

std::uint64_t phoneLibraryCalls() { return callCount.load(std::memory_order_relaxed); }

const std::string& phoneLibraryVersion() {
  static const std::string version = [] {
    Dl_info library{};
    const bool isKnown = ::dladdr(reinterpret_cast<const void*>(&PhoneNumberUtil::GetInstance), &library) != 0;
    return isKnown ? descriptionOf(library.dli_fname) : std::string();
  }();
  return version;
}

bool isPhoneNumberRegion(std::string_view region) { return !callingCodeOf(region).empty(); }

std::string callingCodeOf(std::string_view region) {
  const int code = library().GetCountryCodeForRegion(std::string(region));
  return code == 0 ? std::string() : std::to_string(code);
}

std::optional<std::string> internationalPhoneNumber(std::string_view text, std::string_view region) {
  const std::optional<PhoneNumber> number = parse(text, region);
  if (!number) return std::nullopt;
  std::string form = canonicalString(*number);
  if (form == text || isReadBack(*number, form) || formOf(form, region) == form) return form;
  return std::nullopt;
}

LibPhoneNumber::LibPhoneNumber(RegionSource region) : _region(std::move(region)) {}

std::string LibPhoneNumber::homeCountryCode() { return _region(); }

std::string LibPhoneNumber::homeCallingCode() { return callingCodeOf(_region()); }

std::string LibPhoneNumber::homeTrunkPrefix() {
  std::string prefix;
  library().GetNddPrefixForRegion(_region(), true, &prefix);
  return prefix;
}

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
  const std::string text = shown(*parsed, std::string(countryCode), (options & PhoneNumberOptionNational) != 0);
  if (parsed->extension().empty()) return text;
  const bool isShort = (options & PhoneNumberOptionShort) != 0 && parsed->extension().size() <= LongestShortExtension;
  return text + (isShort ? " x" : " ext. ") + parsed->extension();
}

}  // namespace pellor
