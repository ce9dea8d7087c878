// Numbers as libphonenumber reads them, and the identifiers that are made of them.
#include <gtest/gtest.h>

#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "linux/IdentityService.h"
#include "linux/LibPhoneNumber.h"

namespace pellor {
namespace {

RegionSource in(std::string region) {
  return [region] { return region; };
}

/// The form under which a destination is compared and stored.
std::string canonical(IdentityService& service, const std::string& text) {
  const std::string raw = service.rawAddressForDestination(text);
  const auto identifier = service.identifierForPhoneNumberWithOptions(raw, std::nullopt, 1);
  const std::string form = service.rawAddressForDestination(identifier.value_or("none"));
  EXPECT_EQ(service.comparableNumber(raw), form) << text;
  return form;
}

/// What stands between the bars.
std::vector<std::string> partsOf(const std::string& text) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, '|');) parts.push_back(part);
  return parts;
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
      {"US", "+18003569377", {"1-800-FLOWERS", "1-800-356-9377"}},
      {"RU", "+79161234567", {"8 (916) 123-45-67", "+7 916 123 45 67"}},
      {"DE", "+79161234567", {"+7 916 123-45-67", "007 916 1234567"}},
      {"IT", "+390612345678", {"06 1234 5678", "+39 06 12345678"}},
  };
  for (const Case& test : cases) {
    IdentityService service(in(test.region));
    for (const std::string& spelling : test.spellings) {
      EXPECT_EQ(canonical(service, spelling), test.form) << spelling << " in " << test.region;
    }
  }
}

TEST(PhoneNumberTest, TextThatIsNoNumberIsItsOwnForm) {
  IdentityService service(in("DE"));
  for (const char* text :
       {"", " ", "911", "12", "no number", "123456789012345678901234567890", "+", "\xFF 5", "+999 1"}) {
    EXPECT_EQ(canonical(service, text), text);
    EXPECT_EQ(service.identifierForPhoneNumber(text), std::string("tel:") + text);
  }
  // The forms of these, such as +5215987982536, would be read as other numbers.
  using Case = std::pair<const char*, const char*>;
  for (const auto& [region, text] :
       {Case("MX", "115987982536"), Case("CN", "0128715358421"), Case("DE", "0008924644")}) {
    IdentityService home(in(region));
    EXPECT_EQ(canonical(home, text), text);
  }
  EXPECT_EQ(canonical(service, "tel:tel:5"), "5");
  EXPECT_EQ(canonical(service, "x tel:5"), "x 5");
}

TEST(PhoneNumberTest, RawAddressesHoldNoScheme) {
  IdentityService service(in("DE"));
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"mailto:Ann@Example.org", "Ann@Example.org"},
      {"tel:", ""},
      {"mailto:tel:5", "5"},
      {"a mailto:b tel:c", "a b c"},
      {"tetel:l:5", "5"},
      {"mailmailto:to:a@b", "a@b"},
      {"tmailto:el:5", "5"},
      {"TEL:5", "TEL:5"},
      {"tel:mtel:ailto:tel:x", "x"},
  };
  for (const auto& [destination, raw] : cases) EXPECT_EQ(service.rawAddressForDestination(destination), raw);
  EXPECT_EQ(service.identifierForEmailAddress("Ann@Example.org"), "mailto:Ann@Example.org");
  EXPECT_EQ(service.identifierForEmailAddress("mailto:a@b"), "mailto:a@b");
}

TEST(PhoneNumberTest, CanonicalFormsStayAsTheyAre) {
  auto texts = partsOf(
      "911|1-800-FLOWERS|tel:tel:5|x tel:5|mailto:a@b|+7 495 1234567|00 49 30 1234567||   |030 1234567 x 5|"
      "+1 202 555 0123;ext=5;ext=6|+49301234567;isub=12;phone-context=+49|1234567;phone-context=+49|+800 1234 5678|"
      "+49 0 30 1234567|0049(0)301234567|*31#0301234567|+5491123456789|+52 1 55 1234 5678|+39 06 12345678|"
      "5 dogs and 12345678 cats");
  // And whatever else can be put together of the pieces that mean something in a number.
  const auto pieces = partsOf(
      "0|1|2|5|7|9|49|+|+1|(|)|-| |00|;ext=| x|tel:|#|*|,|.|A|mailto:|800|\xD9\xA3|\xEF\xBC\x95|;phone-context=|555|"
      "0123");
  std::mt19937 random(1);
  for (int count = 0; count < 3000; ++count) {
    std::string text;
    for (auto length = random() % 14; length > 0; --length) text += pieces[random() % pieces.size()];
    texts.push_back(text);
  }
  for (const char* region : {"DE", "US", "RU", "IT", "AR", "no region"}) {
    IdentityService service(in(region));
    IdentityService other(in(region));  // which remembers nothing of the texts
    for (const std::string& text : texts) {
      const std::string form = canonical(service, text);
      EXPECT_EQ(canonical(other, form), form) << '"' << text << "\" in " << region;
      EXPECT_EQ(canonical(other, "tel:" + form), form) << '"' << text << "\" in " << region;
    }
  }
}

TEST(PhoneNumberTest, NumbersAreShownForTheHomeCountry) {
  LibPhoneNumber numbers(in("DE"));
  EXPECT_EQ(numbers.homeCountryCode(), "DE");
  EXPECT_EQ(numbers.parsePhoneNumber("no number", "DE"), nullptr);
  EXPECT_EQ(numbers.parsePhoneNumber("911", "DE"), nullptr);

  struct Case {
    const char *text, *canonical, *country, *national, *international;
  };
  const Case cases[] = {
      {"030 1234567", "+49301234567", "DE", "030 1234567", "+49 30 1234567"},
      {"+1 202-555-0123", "+12025550123", "US", "(202) 555-0123", "+1 202-555-0123"},
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
  EXPECT_EQ(numbers.formatPhoneNumber("not a number", "DE", PhoneNumberStyleCompact, 6), "not a number");
}

}  // namespace
}  // namespace pellor
