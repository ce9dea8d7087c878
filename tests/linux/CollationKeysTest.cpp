#include "pellor/linux/text/CollationKeys.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/linux/text/IcuText.h"

namespace pellor {
namespace {

bool findsAtItsBeginning(std::string_view typed, std::string_view text) {
  const auto words = searchWords(typed), known = searchWords(text);
  return words.size() == 1 &&
         std::ranges::any_of(known, [&](const SearchWord& word) { return beginsWord(words.front(), word); });
}

TEST(CollationKeys, AWordIsFoundHoweverItIsTyped) {
  const struct {
    const char* typed;
    const char* text;
    bool isFound = true;
  } cases[] = {
      {"zoe", "Zoë Brown"},
      {"reka", "Kovács RÉKA"},
      {"muller", "Müller"},
      {"mueller", "Müller"},
      {"Müller", "Mueller"},
      {"mue", "MU\u0308LLER"},
      {"mü", "Mueller"},
      {"mul", "Müller"},
      {"muel", "Muller", false},
      {"muller", "Mueller", false},
      {"strasse", "Straße"},
      {"aase", "Åse"},
      {"ase", "Åse"},
      {"soren", "Søren"},
      {"soeren", "Søren"},
      {"aeroe", "Ærø"},
      {"lukasz", "Łukasz"},
      {"djordje", "Đorđe", false},
      {"dorde", "Đorđe"},
      {"isik", "Işık"},
      {"IŞIK", "ışık"},
      {"ISTANBUL", "İstanbul"},
      {"gudrun", "Guðrún"},
      {"thor", "Þórr"},
      {"eliyev", "Əliyev"},
      {"ngoc", "Ngọc"},
      {"dang", "Đặng"},
      {"oeuvre", "Œuvre"},
      {"ozbek", "Oʻzbek"},
      {"ivan", "ＩＶＡＮ"},
      {"ёлкин", "Елкин"},
      {"サトウ", "さとう"},
      {"ｻﾄｳ", "さとう"},
      {"احمد", "أحمد"},
      {"محمد", "مُحَمَّد"},
      {"יצחק", "יִצְחָק"},
      {"αλεξ", "Ἀλέξανδρος"},
      {"कव", "कवि"},
      {"कवि", "कव", false},
      {"neill", "Anne O'Neill"},
      {"gmail", "reka.kovacs@gmail.com"},
  };
  for (const auto& each : cases)
    EXPECT_EQ(findsAtItsBeginning(each.typed, each.text), each.isFound) << each.typed << " / " << each.text;
}

// A letter counts with its marks, and a Korean syllable as a whole: half of one is another letter in some scripts.
TEST(CollationKeys, EachBeginningOfAWordIsFoundInEveryScript) {
  for (const std::string name : {"Schröder",  "Nguyễn",  "Ἀλέξανδρος", "Достоевский", "Сергей",   "Серге\u0438\u0306",
                                 "عبدالرحمن", "שלמה",    "יִצְחָק",       "เกียรติศักดิ์",    "ໄຊຍະ",     "김철수",
                                 "한글",      "각하",    "がくと",     "キャサリン",  "パーカー", "王小明",
                                 "𠮷野家",    "श्रीकृष्ण",  "क़ाज़ी",       "தமிழரசு",     "ქართველი", "Հայկ",
                                 "አበበች",      "Abcдวя王"}) {
    const std::string shown = name;
    for (std::size_t end = 1; end <= name.size(); ++end) {
      if (characterEndWithin(name, end) != end) continue;
      EXPECT_TRUE(findsAtItsBeginning(name.substr(0, end), name)) << name.substr(0, end) << " / " << shown;
    }
    EXPECT_FALSE(findsAtItsBeginning(name + "a", name)) << shown;
  }
}

TEST(CollationKeys, WordsStandInTheirOrderAndKeysHoldNoZero) {
  IcuText text([] { return std::string("tr_TR"); });
  const auto words = text.searchWords("  Jörg-Peter \u00AB(Müller)\u00BB, \u0301 ");
  ASSERT_EQ(words.size(), 3u);
  EXPECT_EQ(words, searchWords("Jörg Peter Müller"));
  EXPECT_EQ(words[1].spelledOut, "");
  EXPECT_EQ(words[2].spelledOut, searchWords("Mueller").front().key);
  for (const SearchWord& word : words) EXPECT_EQ((word.key + word.spelledOut).find('\0'), std::string::npos);
  EXPECT_THAT(searchWords(" -,.\u0301 "), testing::IsEmpty());
}

}  // namespace
}  // namespace pellor
