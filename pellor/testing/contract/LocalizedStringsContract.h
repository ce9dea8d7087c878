// What every source of localised strings must do, written against the interface alone. Needs GoogleTest.
//
// A factory makes one of a user's language, with the texts of the library's bundle, and says what "FAVORITES" is in
// each language that it names, of which there is at least one:
//
//   struct MyStrings {
//     static std::map<std::string, std::string> favorites();  // such as {{"en", "Favorites"}, {"de", "Favoriten"}}
//     std::shared_ptr<LocalizedStrings> make(const std::string& language);
//   };
//   INSTANTIATE_TYPED_TEST_SUITE_P(Mine, LocalizedStringsContract, MyStrings);
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>

#include "pellor/platform/LocalizedStrings.h"

namespace pellor {

template <class Factory>
class LocalizedStringsContract : public testing::Test {
 protected:
  Factory _strings;
};

TYPED_TEST_SUITE_P(LocalizedStringsContract);

TYPED_TEST_P(LocalizedStringsContract, TextsAreInTheUsersLanguageAndFallBackToTheDefaultAndTheKey) {
  constexpr const char* identifier = "org.tapnote.Pellor";
  ASSERT_FALSE(TypeParam::favorites().empty());
  for (const auto& [language, favorites] : TypeParam::favorites()) {
    SCOPED_TRACE(language);
    const auto strings = this->_strings.make(language);
    for (const char* unknown : {"", "org.tapnote", "org.tapnote.pellor", "org.tapnote.Pellor2"})
      EXPECT_EQ(strings->bundleWithIdentifier(unknown), nullptr) << unknown;
    const auto bundle = strings->bundleWithIdentifier(identifier);
    ASSERT_NE(bundle, nullptr);
    EXPECT_EQ(bundle->identifier(), identifier);
    for (const char* defaultValue : {"", "a default"})
      EXPECT_EQ(bundle->localizedString("FAVORITES", defaultValue), favorites);
    EXPECT_EQ(bundle->localizedString("NO SUCH KEY", "a default"), "a default");
    EXPECT_EQ(bundle->localizedString("NO SUCH KEY", ""), "NO SUCH KEY");

    const std::string numbered = bundle->localizedString("NUMBERED_FAVORITES_FORMAT_STRING", "");
    EXPECT_NE(numbered.find("%u"), std::string::npos) << numbered;
    EXPECT_EQ(numbered.find('%'), numbered.rfind('%')) << "one number is filled in: " << numbered;
  }
}

REGISTER_TYPED_TEST_SUITE_P(LocalizedStringsContract, TextsAreInTheUsersLanguageAndFallBackToTheDefaultAndTheKey);

}  // namespace pellor
