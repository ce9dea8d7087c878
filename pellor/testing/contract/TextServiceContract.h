// What every text service must do, written against the interface alone. Needs GoogleTest.
//
// A factory makes one of a locale, such as "de_DE"; "de_DE" and "tr_TR" are asked for:
//
//   struct MyTexts {
//     std::shared_ptr<TextService> make(const std::string& locale);
//   };
//   INSTANTIATE_TYPED_TEST_SUITE_P(Mine, TextServiceContract, MyTexts);
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "pellor/platform/TextService.h"

namespace pellor {

template <class Factory>
class TextServiceContract : public testing::Test {
 protected:
  std::shared_ptr<TextService> textFor(const std::string& locale) { return _texts.make(locale); }

  Factory _texts;
};

TYPED_TEST_SUITE_P(TextServiceContract);

TYPED_TEST_P(TextServiceContract, DecimalDigitsOfAnyScriptCount) {
  const auto text = this->textFor("de_DE");
  for (const char* with : {"5", "a5", "0", "\xD9\xA5", "\xE0\xA5\xA7", "\xEF\xBC\x95", "\xF0\x9D\x9F\x9E", "\xFF 5"}) {
    EXPECT_TRUE(text->containsDecimalDigit(with)) << with;
  }
  // A superscript, a Roman numeral and an ideograph are numbers, but no decimal digits.
  for (const char* without : {"", "five", "\xC2\xB2", "\xE2\x85\xA4", "\xE4\xBA\x94", "\xFF", "\xD9"}) {
    EXPECT_FALSE(text->containsDecimalDigit(without)) << without;
  }
}

TYPED_TEST_P(TextServiceContract, LettersAndMarksAreToldBy16BitUnit) {
  const auto text = this->textFor("de_DE");
  for (const char16_t unit : {u'a', u'Z', u'\u00C9', u'\u00DF', u'\u0301', u'\u0416', u'\u4E2D', u'\u0939', u'\u093F'})
    EXPECT_TRUE(text->isLetterOrMark(unit)) << static_cast<int>(unit);
  for (const char16_t unit : {u'1', u' ', u'_', u'-', u'\u00D7', u'\u20AC', char16_t{0}, char16_t{0xD83D},
                              char16_t{0xDE00}, char16_t{0xFFFF}})
    EXPECT_FALSE(text->isLetterOrMark(unit)) << static_cast<int>(unit);
}

TYPED_TEST_P(TextServiceContract, UpperCaseFollowsTheLocaleAndMayGrow) {
  const struct {
    const char *locale, *text, *upper;
  } cases[] = {
      {"de_DE", "", ""},
      {"de_DE", "Ada i 1-\xE2\x82\xAC", "ADA I 1-\xE2\x82\xAC"},
      {"de_DE",
       "stra\xC3\x9F"
       "e \xC3\xA9 \xC3\xBF",
       "STRASSE \xC3\x89 \xC5\xB8"},
      {"de_DE", "\xCE\xB1\xCE\xB4\xCE\xB7\xCF\x82 \xD0\xB6\xD1\x91",
       "\xCE\x91\xCE\x94\xCE\x97\xCE\xA3 \xD0\x96\xD0\x81"},
      {"de_DE", "\xE5\xB1\xB1\xE7\x94\xB0", "\xE5\xB1\xB1\xE7\x94\xB0"},
      {"tr_TR", "i\xC4\xB1z", "\xC4\xB0IZ"},
  };
  for (const auto& test : cases)
    EXPECT_EQ(this->textFor(test.locale)->uppercase(test.text), test.upper) << test.text << " in " << test.locale;
}

TYPED_TEST_P(TextServiceContract, WordsAreComparedWithoutCaseMarksAndWidth) {
  const auto text = this->textFor("de_DE");
  const struct {
    const char *typed, *words;
    bool fits;
  } cases[] = {
      {"zoe", "Zo\xC3\xAB", true},
      {"Zo\xC3\x8B", "zoe", true},
      {"zo", "Zo\xC3\xAB", true},
      {"zoee", "Zo\xC3\xAB", false},
      {"reka", "R\xC3\xA9ka", true},
      {"mull", "M\xC3\xBCller", true},
      {"muell", "M\xC3\xBCller", true},
      {"M\xC3\xBCll", "Mueller", true},
      {"mueller", "Muller", false},
      {"strasse",
       "Stra\xC3\x9F"
       "e",
       true},
      {"yildiz", "Y\xC4\xB1ld\xC4\xB1z", true},
      {"istanbul", "\xC4\xB0stanbul", true},
      {"lodz",
       "\xC5\x81\xC3\xB3"
       "d\xC5\xBA",
       true},
      {"\xEF\xBC\xA1nna", "anna", true},
      {"\xD0\xBE\xD0\xBB", "\xD0\x9E\xD0\xBB\xD1\x8F", true},
      {"\xCE\xB1\xCE\xB4", "\xCE\x91\xCE\x94\xCE\x97", true},
      {"anna", "Hanna", false},
  };
  for (const auto& test : cases) {
    const auto typed = text->searchWords(test.typed), words = text->searchWords(test.words);
    ASSERT_EQ(typed.size(), 1U) << test.typed;
    ASSERT_EQ(words.size(), 1U) << test.words;
    EXPECT_EQ(beginsWord(typed[0], words[0]), test.fits) << test.typed << " for " << test.words;
  }
  EXPECT_EQ(text->searchWords(" O'Neil-Smith, (Ana) ").size(), 4U);
  EXPECT_TRUE(text->searchWords(" .,-").empty());
}

REGISTER_TYPED_TEST_SUITE_P(TextServiceContract, DecimalDigitsOfAnyScriptCount, LettersAndMarksAreToldBy16BitUnit,
                            UpperCaseFollowsTheLocaleAndMayGrow, WordsAreComparedWithoutCaseMarksAndWidth);

}  // namespace pellor
