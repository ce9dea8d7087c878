// Numbers as libphonenumber reads them, and the identifiers that are made of them.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/linux/phone/LibPhoneNumber.h"
#include "pellor/linux/reachability/IdentityService.h"
#include "pellor/linux/text/IcuText.h"
#include "pellor/platform/TypedNumber.h"
#include "pellor/testing/contract/PhoneNumberFormatterContract.h"
#include "pellor/testing/contract/ReachabilityServiceContract.h"

namespace pellor {
namespace {

RegionSource in(std::string region) {
  return [region]() -> const std::string& { return region; };
}

/// As the friends are shown: at home without the country code.
std::string shownAt(const std::string& home, const std::string& text) {
  LibPhoneNumber numbers(in(home));
  const auto parsed = numbers.parsePhoneNumber(text, home);
  if (!parsed) return text;
  const std::string country = numbers.phoneNumberCountryCode(*parsed);
  const std::uint32_t national = country == home ? PhoneNumberOptionNational : 0;
  return numbers.formatPhoneNumber(numbers.phoneNumberString(*parsed, PhoneNumberForm::canonical), country,
                                   PhoneNumberStyleCompact, PhoneNumberOptionShort | national);
}

TEST(PhoneNumberTest, ANumberOfWhichAPartWasTypedMayBeginAsAtHome) {
  const auto begins = [](const char* region, const char* typed, std::string_view number) {
    IcuText text([] { return std::string(); });
    IdentityService service(in(region));
    LibPhoneNumber numbers(in(region));
    const auto read = TypedNumber::read(typed, text, service, numbers);
    const auto fits = [&](const std::string& beginning) { return number.starts_with(beginning); };
    return read && std::ranges::any_of(read->beginnings(), fits);
  };
  EXPECT_TRUE(begins("HU", "06 30 12", "+36301234567"));
  EXPECT_TRUE(begins("RU", "8 916 12", "+79161234567"));
  EXPECT_TRUE(begins("US", "1 (212) 5", "+12125550123"));
  EXPECT_TRUE(begins("US", "212 55", "+12125550123"));
  EXPECT_TRUE(begins("IT", "06 12", "+390612345678"));
  EXPECT_TRUE(begins("EG", "٠١٠ ١٢", "+201012345678"));
  EXPECT_FALSE(begins("EG", "٢١٠", "+201012345678"));
  EXPECT_FALSE(begins("HU", "06 31", "+36301234567"));
}

// Local, short and service numbers are their digits.
TEST(PhoneNumberTest, SpellingsOfOneNumberHaveOneCanonicalForm) {
  struct Case {
    const char* region;
    std::string form;
    std::vector<std::string> spellings;
  };
  const std::vector<Case> cases = {
      {"US",
       "5550123",
       {"555-0123", "555 0123", "(555) 0123", "555.0123", "555\u20110123", "\u202A555\u00A00123\u202C"}},
      {"US", "911", {"9-1-1", "\u0669\u0661\u0661", "tel:911", "\uFF19\uFF11\uFF11"}},
      {"DE", "110", {"1 1 0", "\u06F1\u06F1\u06F0"}},
      {"DE", "116117", {"116 117", "116-117", "tel:116117"}},
      {"DE", "*100#", {"* 100 #", "*1-0-0#", "\uFF0A\u0661\u0660\u0660\uFF03"}},
      {"DE", "*21*0301234567#", {"*21* 030 1234567 #"}},
      {"DE", "+49301234567", {"00 49 30 1234567", "tel:+49-30-1234567"}},
      {"DE", "+49301234567;ext=5", {"030 1234567 #5", "030 1234567 ext. 5", "tel:+49-30-1234567;ext=5"}},
      {"US", "+12025550123", {"(202) 555-0123", "1-202-555-0123"}},
      {"IT", "+390612345678", {"06 1234 5678", "+39 06 12345678"}},
  };
  for (const Case& test : cases) {
    IdentityService service(in(test.region));
    EXPECT_EQ(canonicalForm(service, test.form), test.form);
    EXPECT_EQ(shownAt(test.region, test.form).find("+49 116"), std::string::npos);
    for (const std::string& spelling : test.spellings)
      EXPECT_EQ(canonicalForm(service, spelling), test.form) << spelling;
  }
  IdentityService service(in("DE"));
  for (const char* other : {"5 dogs", "1+1", "*", "#", "12@3", "1;2"}) EXPECT_EQ(canonicalForm(service, other), other);
  EXPECT_EQ(service.identifierForEmailAddress("Ann@Example.org"), "mailto:Ann@Example.org") << "with its case";

  std::mt19937 random(1);
  const std::vector<std::string> between = {"", "", "", " ", "-", ".", "/", "(", ")", "\u00A0", "\u2212"};
  for (const char* region : {"DE", "US", "BR", "MX", "CN", "IT", "AR", "IN", "IS"}) {
    IdentityService home(in(region));
    for (int count = 0; count < 500; ++count) {
      std::string digits, spelling;
      for (auto length = 1 + random() % 13; length > 0; --length) {
        digits += static_cast<char>('0' + random() % 10);
        spelling += between[random() % between.size()] + digits.back();
      }
      EXPECT_EQ(canonicalForm(home, spelling), canonicalForm(home, digits)) << spelling << " in " << region;
    }
  }
}

// The forms of these, such as +5215987982536, would be read as other numbers.
TEST(PhoneNumberTest, TextThatIsNoStableNumberIsItsOwnForm) {
  using Case = std::pair<const char*, const char*>;
  for (const auto& [region, text] : {Case("MX", "115987982536"), Case("CN", "0128715358421"), Case("DE", "0008924644"),
                                     Case("DE", "123456789012345678901234567890")}) {
    IdentityService home(in(region));
    EXPECT_EQ(canonicalForm(home, text), text);
  }
}

TEST(PhoneNumberTest, ShownNumbersDial) {
  const struct {
    const char *home, *text, *shown;
  } cases[] = {
      {"DE", "0151 2345679", "+49 1512345679"},  // a digit short: possible, and nobody's
      {"DE", "0151 23456789", "01512 3456789"},
      {"DE", "00493012345", "030 12345"},
      {"RU", "8 100 1234567", "+7 1001234567"},
      {"US", "202-555-0123", "(202) 555-0123"},
      {"DK", "+45 32123456", "32 12 34 56"},  // nothing is dialled before a number there
      {"DE", "030 1234567 ext. 5", "030 1234567 x5"},
      {"AT", "+49 30 1234567 ext. 5", "+49 30 1234567 x5"},
      {"DE", "030 1234567 ext. 1234567890", "030 1234567 ext. 1234567890"},
      {"DE", "+800 1234 5678", "+800 1234 5678"},
  };
  for (const auto& test : cases) EXPECT_EQ(shownAt(test.home, test.text), test.shown) << test.text;

  std::mt19937 random(1);
  for (const std::string home : {"DE", "GB", "FR", "AT"}) {
    IdentityService identities(in(home));
    for (int count = 0; count < 1000; ++count) {
      std::string text = "0" + std::to_string(1 + random() % 9);
      for (auto length = 4 + random() % 8; length > 0; --length) text += static_cast<char>('0' + random() % 10);
      const std::string shown = shownAt(home, text);
      EXPECT_TRUE(shown.starts_with('0') || shown.starts_with('+')) << text << " in " << home << ": " << shown;
      EXPECT_EQ(canonicalForm(identities, shown), canonicalForm(identities, text)) << text << " in " << home;
    }
  }
}

struct NumbersByLibrary {
  std::shared_ptr<PhoneNumberFormatter> make(const std::string& homeCountry) {
    return std::make_shared<LibPhoneNumber>(in(homeCountry));
  }
};

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Library, PhoneNumberFormatterContract, NumbersByLibrary);

}  // namespace pellor
