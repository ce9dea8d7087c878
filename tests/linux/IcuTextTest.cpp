#include "pellor/linux/text/IcuText.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "pellor/testing/contract/PersonNameFormatterContract.h"
#include "pellor/testing/contract/TextServiceContract.h"

namespace pellor {
namespace {

struct TextByIcu {
  static std::shared_ptr<IcuText> make(const std::string& locale) {
    return std::make_shared<IcuText>([locale] { return locale; });
  }
};

TEST(IcuTextTest, BytesThatAreNoTextAreReplaced) {
  EXPECT_EQ(TextByIcu::make("")->uppercase("a\xFFz"), "A\xEF\xBF\xBDZ");
}

TEST(IcuTextTest, InitialsFollowTheLocaleAndTheScript) {
  using Part = std::optional<std::string>;
  struct Case {
    const char* locale;
    Part given, family;
    const char* initials;
  };
  const std::vector<Case> cases = {
      {"zh_Hant_TW", "Ada", "Lovelace", "LA"},
      {"en_US", "(Bob)", "'t Hart", "BH"},
      {"nl_NL", "Jan", "van der Berg", "JB"},
      {"en_US", "bell", "hooks", "bh"},
      {"haw_US", "ʻIolani", std::nullopt, "I"},
      {"en_US", "e\xCC\x81mile", "\xC3\x89luard", "e\xCC\x81\xC3\x89"},
      {"ar_EG", "\xD9\x84\xD9\x8A\xD9\x84\xD9\x89", std::nullopt, ""},
  };
  for (const Case& test : cases) {
    EXPECT_EQ(TextByIcu::make(test.locale)->abbreviatedName(test.given, test.family), test.initials)
        << test.given.value_or("-") << " " << test.family.value_or("-") << " in " << test.locale;
  }
}

TEST(IcuTextTest, ScriptsAndPicturesAreTold) {
  struct Case {
    const char* text;
    bool nonLatin, emoji;
  };
  const std::vector<Case> cases = {
      {"50 \xC2\xB5m \xE2\x82\xAC \xE2\x80\x94", false, false},
      {"Anna \xD0\x90", true, false},
      {"Ann \xF0\x9F\x98\x80", false, true},
      {"1\xEF\xB8\x8F\xE2\x83\xA3", false, true},
      {"\xF0\x9F\x87\xA9\xF0\x9F\x87\xAA", false, true},
      {"Acme\xE2\x84\xA2 \xC2\xA9 \xC2\xAE", false, false},
      {"Acme\xE2\x84\xA2\xEF\xB8\x8F", false, true},
  };
  for (const Case& test : cases) {
    EXPECT_EQ(containsNonLatinCharacters(test.text), test.nonLatin) << test.text;
    EXPECT_EQ(containsEmojiCharacters(test.text), test.emoji) << test.text;
  }
}

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Icu, PersonNameFormatterContract, TextByIcu);
INSTANTIATE_TYPED_TEST_SUITE_P(Icu, TextServiceContract, TextByIcu);

}  // namespace pellor
