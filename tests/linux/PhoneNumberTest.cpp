// Numbers as libphonenumber reads them, and the identifiers that are made of them.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "pellor/linux/phone/LibPhoneNumber.h"
#include "pellor/linux/reachability/IdentityService.h"
#include "pellor/testing/contract/PhoneNumberFormatterContract.h"
#include "pellor/testing/contract/ReachabilityServiceContract.h"

namespace pellor {
namespace {

RegionSource in(std::string region) {
  return [region]() -> const std::string& { return region; };
}

TEST(PhoneNumberTest, SpellingsOfOneNumberHaveOneCanonicalForm) {
  struct Case {
    const char* region;
    std::string form;
    std::vector<std::string> spellings;
  };
  const std::vector<Case> cases = {
      {"DE",
       "+49301234567",
       {"030 1234567", "(030) 123-45 67", "+49 30 1234567", "00 49 30 1234567", "tel:+49-30-1234567",
        "\xD9\xA0\xD9\xA3\xD9\xA0 \xD9\xA1\xD9\xA2\xD9\xA3\xD9\xA4\xD9\xA5\xD9\xA6\xD9\xA7"}},
      {"DE", "+49301234567;ext=5", {"030 1234567 ext. 5", "+49301234567;ext=5", "tel:+49-30-1234567;ext=5"}},
      {"US", "+12025550123", {"(202) 555-0123", "1-202-555-0123", "+1 202 555 0123", "202.555.0123"}},
      {"DE", "+79161234567", {"+7 916 123-45-67", "007 916 1234567"}},
      {"IT", "+390612345678", {"06 1234 5678", "+39 06 12345678"}},
  };
  for (const Case& test : cases) {
    IdentityService service(in(test.region));
    for (const std::string& spelling : test.spellings) {
      EXPECT_EQ(canonicalForm(service, spelling), test.form) << spelling << " in " << test.region;
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

TEST(PhoneNumberTest, AddressesKeepTheirCase) {
  IdentityService service(in("DE"));
  EXPECT_EQ(service.identifierForEmailAddress("Ann@Example.org"), "mailto:Ann@Example.org");
}

TEST(PhoneNumberTest, NumbersAreShownForTheHomeCountry) {
  LibPhoneNumber numbers(in("DE"));
  struct Case {
    const char *text, *canonical, *country, *national, *international;
  };
  const Case cases[] = {
      {"030 1234567", "+49301234567", "DE", "030 1234567", "+49 30 1234567"},
      {"030 1234567 ext. 5", "+49301234567;ext=5", "DE", "030 1234567 x5", "+49 30 1234567 x5"},
      {"+800 1234 5678", "+80012345678", "", "1234 5678", "+800 1234 5678"},
  };
  for (const Case& test : cases) {
    const auto parsed = numbers.parsePhoneNumber(test.text, "DE");
    ASSERT_NE(parsed, nullptr) << test.text;
    const std::string canonical = numbers.phoneNumberString(*parsed, PhoneNumberForm::canonical);
    const std::string country = numbers.phoneNumberCountryCode(*parsed);
    EXPECT_EQ(canonical, test.canonical);
    EXPECT_EQ(country, test.country);
    EXPECT_EQ(numbers.formatPhoneNumber(canonical, country, PhoneNumberStyleCompact,
                                        PhoneNumberOptionNational | PhoneNumberOptionShort),
              test.national);
    EXPECT_EQ(numbers.formatPhoneNumber(canonical, country, PhoneNumberStyleCompact, PhoneNumberOptionShort),
              test.international);
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
