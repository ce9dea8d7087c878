// What every formatter of phone numbers must do, written against the interface alone. Needs GoogleTest.
//
// A factory makes one of a home country; "DE" and "US" are asked for:
//
//   struct MyNumbers {
//     std::shared_ptr<PhoneNumberFormatter> make(const std::string& homeCountry);
//   };
//   INSTANTIATE_TYPED_TEST_SUITE_P(Mine, PhoneNumberFormatterContract, MyNumbers);
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "pellor/platform/PhoneNumberFormatter.h"

namespace pellor {

template <class Factory>
class PhoneNumberFormatterContract : public testing::Test {
 protected:
  static std::optional<std::string> canonical(PhoneNumberFormatter& numbers, const std::string& text,
                                              const std::string& country) {
    const auto parsed = numbers.parsePhoneNumber(text, country);
    if (!parsed) return std::nullopt;
    return numbers.phoneNumberString(*parsed, PhoneNumberForm::canonical);
  }

  Factory _numbers;
};

TYPED_TEST_SUITE_P(PhoneNumberFormatterContract);

TYPED_TEST_P(PhoneNumberFormatterContract, SpellingsOfOneNumberHaveOneFormAndACountryWhereverHomeIs) {
  const struct {
    const char *country, *form, *countryOfNumber;
    std::vector<const char*> spellings;
  } cases[] = {
      {"DE",
       "+49301234567",
       "DE",
       {"030 1234567", "(030) 123-45 67", "030/1234567", "+49 30 1234567", "00 49 30 1234567",
        "\xD9\xA0\xD9\xA3\xD9\xA0 \xD9\xA1\xD9\xA2\xD9\xA3\xD9\xA4\xD9\xA5\xD9\xA6\xD9\xA7"}},
      {"US", "+12025550123", "US", {"(202) 555-0123", "202.555.0123", "+1 202 555 0123"}},
      {"DE", "+12025550123", "US", {"+1 202-555-0123", "001 202 555 0123"}},
      {"FR", "+33123456789", "FR", {"01 23 45 67 89", "+33 1 23 45 67 89"}},
      {"DE", "+80012345678", "", {"+800 1234 5678"}},
  };
  for (const std::string home : {"DE", "US"}) {
    const auto numbers = this->_numbers.make(home);
    EXPECT_EQ(numbers->homeCountryCode(), home);
    for (const auto& test : cases) {
      for (const std::string spelling : test.spellings) {
        SCOPED_TRACE(spelling + " at home in " + home);
        const auto parsed = numbers->parsePhoneNumber(spelling, test.country);
        ASSERT_NE(parsed, nullptr);
        const std::string form = numbers->phoneNumberString(*parsed, PhoneNumberForm::canonical);
        EXPECT_EQ(form, test.form);
        EXPECT_EQ(numbers->phoneNumberCountryCode(*parsed), test.countryOfNumber);
        EXPECT_EQ(this->canonical(*numbers, form, "FR"), form) << "a form is read everywhere, as itself";
      }
    }
  }
}

TYPED_TEST_P(PhoneNumberFormatterContract, ShownNumbersAreReadAsTheSameNumber) {
  const auto numbers = this->_numbers.make("DE");
  for (const std::uint32_t shortness : {0U, PhoneNumberOptionShort}) {
    const std::string international =
        numbers->formatPhoneNumber("+49301234567", "DE", PhoneNumberStyleCompact, shortness);
    EXPECT_EQ(this->canonical(*numbers, international, "US"), "+49301234567") << international;
    const std::string national = numbers->formatPhoneNumber("+49301234567", "DE", PhoneNumberStyleCompact,
                                                            PhoneNumberOptionNational | shortness);
    EXPECT_EQ(national.find("49"), std::string::npos) << national;
    EXPECT_EQ(this->canonical(*numbers, national, "DE"), "+49301234567") << national;
  }
}

TYPED_TEST_P(PhoneNumberFormatterContract, TextThatIsNoNumberIsShownAsItIs) {
  const auto numbers = this->_numbers.make("DE");
  for (const char* text : {"", " ", "+", "911", "not a number", "ada@example.org", "\xFF"}) {
    EXPECT_EQ(numbers->parsePhoneNumber(text, "DE"), nullptr) << text;
    EXPECT_EQ(numbers->formatPhoneNumber(text, "DE", PhoneNumberStyleCompact, PhoneNumberOptionNational), text);
  }
}

REGISTER_TYPED_TEST_SUITE_P(PhoneNumberFormatterContract, SpellingsOfOneNumberHaveOneFormAndACountryWhereverHomeIs,
                            ShownNumbersAreReadAsTheSameNumber, TextThatIsNoNumberIsShownAsItIs);

}  // namespace pellor
