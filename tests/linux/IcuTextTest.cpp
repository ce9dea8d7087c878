#include "linux/IcuText.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace pellor {
namespace {

IcuText textFor(std::string locale) {
  return IcuText([locale] { return locale; });
}

TEST(IcuTextTest, DigitsOfAnyScriptCount) {
  IcuText text = textFor("de_DE");
  for (const char* with : {"5", "a5", "\xD9\xA5", "\xE0\xA5\xA7", "\xEF\xBC\x95", "\xF0\x9D\x9F\x9E"}) {
    EXPECT_TRUE(text.containsDecimalDigit(with)) << with;
  }
  for (const char* without : {"", "five", "\xC2\xB2", "\xE2\x85\xA4", "\xE4\xBA\x94", "\xFF"}) {
    EXPECT_FALSE(text.containsDecimalDigit(without)) << without;
  }
}

TEST(IcuTextTest, LettersAndMarksAreToldBy16BitUnit) {
  IcuText text = textFor("de_DE");
  for (const char16_t unit : {u'a', u'\u00C9', u'\u0301', u'\u4E2D', u'\u0939'}) EXPECT_TRUE(text.isLetterOrMark(unit));
  for (const char16_t unit : {u'1', u' ', u'_', u'-', u'\u20AC', char16_t{0xD83D}, char16_t{0xDE00}}) {
    EXPECT_FALSE(text.isLetterOrMark(unit)) << static_cast<int>(unit);
  }
}

TEST(IcuTextTest, UpperCaseFollowsTheLocale) {
  EXPECT_EQ(textFor("de_DE").uppercase("straße é i"), "STRASSE É I");
  EXPECT_EQ(textFor("tr_TR").uppercase("i\xC4\xB1"), "\xC4\xB0I");
  EXPECT_EQ(textFor("").uppercase("a\xFFz"), "A\xEF\xBF\xBDZ");
}

TEST(IcuTextTest, InitialsFollowTheLocaleAndTheScript) {
  using Part = std::optional<std::string>;
  struct Case {
    const char* locale;
    Part given, family;
    const char* initials;
  };
  const std::vector<Case> cases = {
      {"de_DE", "Ada", "Lovelace", "AL"},
      {"hu_HU", "B\xC3\xA9la", "Bart\xC3\xB3k", "BB"},
      {"zh_Hant_TW", "Ada", "Lovelace", "LA"},
      {"en_US", "Ada", std::nullopt, "A"},
      {"en_US", std::nullopt, std::nullopt, ""},
      {"en_US", "(Bob)", "'t Hart", "Bt"},
      {"en_US", "e\xCC\x81mile", "\xC3\x89luard", "e\xCC\x81\xC3\x89"},
      {"ru_RU", "\xD0\x90\xD0\xBD\xD0\xBD\xD0\xB0", "\xD0\x98\xD0\xB2\xD0\xB0", "\xD0\x90\xD0\x98"},
      {"ja_JP", "\xE8\x8A\xB1\xE5\xAD\x90", "\xE5\xB1\xB1\xE7\x94\xB0", ""},
      {"ar_EG", "\xD9\x84\xD9\x8A\xD9\x84\xD9\x89", std::nullopt, ""},
  };
  for (const Case& test : cases) {
    IcuText text = textFor(test.locale);
    EXPECT_EQ(text.abbreviatedName(test.given, test.family), test.initials)
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
}  // namespace pellor
