// What every formatter of names must do, written against the interface alone. Needs GoogleTest.
//
// A factory makes one of a locale; "en_US" is asked for, and "hu_HU", which writes the family name first:
//
//   struct MyNames {
//     std::shared_ptr<PersonNameFormatter> make(const std::string& locale);
//   };
//   INSTANTIATE_TYPED_TEST_SUITE_P(Mine, PersonNameFormatterContract, MyNames);
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "pellor/platform/PersonNameFormatter.h"

namespace pellor {

template <class Factory>
class PersonNameFormatterContract : public testing::Test {
 protected:
  Factory _names;
};

TYPED_TEST_SUITE_P(PersonNameFormatterContract);

TYPED_TEST_P(PersonNameFormatterContract, InitialsAreInTheOrderOfTheLocaleOrThereAreNone) {
  using Part = std::optional<std::string>;
  const struct {
    const char* what;
    const char* locale;
    Part given, family;
    const char* initials;
  } cases[] = {
      {"both", "en_US", "Ada", "Lovelace", "AL"},
      {"family name first", "hu_HU", "Ede", "Bart\xC3\xB3k", "BE"},
      {"beyond ASCII", "en_US", "\xC3\x89mile", "\xC3\x96zil", "\xC3\x89\xC3\x96"},
      {"Cyrillic", "en_US", "\xD0\x90\xD0\xBD\xD0\xBD\xD0\xB0", "\xD0\x98\xD0\xB2\xD0\xB0", "\xD0\x90\xD0\x98"},
      {"an absent part", "en_US", "Ada", std::nullopt, "A"},
      {"an empty part", "en_US", "", "Lovelace", "L"},
      {"an absent part, in the other order", "hu_HU", "Ede", std::nullopt, "E"},
      {"nothing", "en_US", std::nullopt, std::nullopt, ""},
      {"empty parts", "en_US", "", "", ""},
      {"no letters", "en_US", "007", "", ""},
      {"a script without initials", "en_US", "\xE8\x8A\xB1\xE5\xAD\x90", "\xE5\xB1\xB1\xE7\x94\xB0", ""},
      {"one part in a script without initials", "en_US", "Ada", "\xE5\xB1\xB1\xE7\x94\xB0", ""},
      {"the other part", "en_US", "\xE8\x8A\xB1\xE5\xAD\x90", "Lovelace", ""},
  };
  for (const auto& test : cases)
    EXPECT_EQ(this->_names.make(test.locale)->abbreviatedName(test.given, test.family), test.initials) << test.what;
}

REGISTER_TYPED_TEST_SUITE_P(PersonNameFormatterContract, InitialsAreInTheOrderOfTheLocaleOrThereAreNone);

}  // namespace pellor
