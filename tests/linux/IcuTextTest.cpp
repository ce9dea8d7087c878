// What ICU knows of texts: letters, words that are looked for, and the order of names.
#include "pellor/linux/text/IcuText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/linux/contacts/AlphabeticalOrder.h"
#include "pellor/linux/text/CollationKeys.h"
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

// Words that are looked for

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
      {"muller", "Müller"},
      {"mueller", "Müller"},
      {"mue", "MU\u0308LLER"},
      {"mü", "Mueller"},
      {"muel", "Muller", false},
      {"aase", "Åse"},
      {"soeren", "Søren"},
      {"aeroe", "Ærø"},
      {"lukasz", "Łukasz"},
      {"djordje", "Đorđe", false},
      {"dorde", "Đorđe"},
      {"isik", "Işık"},
      {"IŞIK", "ışık"},
      {"thor", "Þórr"},
      {"eliyev", "Əliyev"},
      {"ngoc", "Ngọc"},
      {"oeuvre", "Œuvre"},
      {"ozbek", "Oʻzbek"},
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

// Names in their order

std::vector<std::string> sorted(std::vector<std::string> names, const std::string& locale) {
  const AlphabeticalOrder order(locale);
  std::ranges::sort(names, {}, [&](const std::string& name) { return order.key(name); });
  return names;
}

TEST(AlphabeticalOrder, EachLanguageHasItsOwn) {
  const struct {
    const char* locale;
    std::vector<std::string> names;
  } cases[] = {
      // Svenska Akademiens ordlista: å, ä and ö are letters behind z; since 2006 w is one behind v.
      {"sv_SE", {"Andersson", "Vulf", "Wahl", "Zorn", "Åberg", "Äng", "Öberg"}},
      // DIN 5007, variant 1, of dictionaries: umlauts as their plain letters, ß as ss.
      {"de_DE", {"Ärger", "Arndt", "Assmann", "Mugler", "Müller", "Munz", "Straße", "Strauß"}},
      // A magyar helyesírás szabályai, 12th edition, 14-15: cs, gy, ny, sz and zs are letters behind c, g, n, s and z;
      // ö and ü follow o and u; long vowels count as short ones.
      {"hu_HU",
       {"Cukor", "Czifra", "Csaba", "Guba", "Gyenes", "Ódor", "Orosz", "Ötvös", "Sütő", "Szabó", "Zúgó", "Zsolt"}},
      // Türk Dil Kurumu, Yazım Kılavuzu: ç, ğ, ı, ö, ş, ü behind c, g, h, o, s, u; ı before i.
      {"tr_TR", {"Cuma", "Çağlar", "Hür", "Ilgın", "Işık", "İnan", "Jale", "Oya", "Öz", "Su", "Şen", "Tan"}},
      // The Vietnamese alphabet of 29 letters: ă and â behind a, đ behind d, ê behind e, ô and ơ behind o, ư behind u;
      // tones matter only where the letters are the same.
      {"vi_VN", {"An", "Ánh", "Ăng", "Ân", "Duy", "Đào", "Em", "Ên", "Hoa", "Hòa", "Oanh", "Ông", "Ơn", "Uyên", "Ưng"}},
      // The order of the syllables (gojūon, JIS X 4061): in whichever kana, voiced ones beside their plain ones.
      {"ja_JP", {"あべ", "イトウ", "うえだ", "かとう", "ガモウ", "きた", "サトウ", "たなか", "わだ"}},
      // Russian dictionaries sort ё as е, after it where all else is the same; names in Cyrillic before Latin ones.
      {"ru_RU", {"Ежов", "Ёлкин", "Ерёмин", "Жук", "Adams"}},
      // The hija'i order; the carriers of a hamza count as the plain letter.
      {"ar_EG", {"إبراهيم", "أحمد", "بدر", "تامر", "Adams"}},
      // What has no rules of its own: accents count where the letters are the same, and case behind them.
      {"en_US", {"Åberg", "Adams", "anna", "Anna", "Ánna", "Zorn"}},
      {"", {"Åberg", "Adams", "Zorn"}},
  };
  for (const auto& [locale, names] : cases) {
    std::vector<std::string> mixed(names.rbegin(), names.rend());
    EXPECT_EQ(sorted(mixed, locale), names) << locale;
  }
}

// What hardly ends is no name.
TEST(AlphabeticalOrder, ALongTextCountsAsFarAsANameGoes) {
  const AlphabeticalOrder order("de_DE");
  const std::string name(1000, 'n');
  EXPECT_EQ(order.key(name + "a"), order.key(name + "b"));
  EXPECT_LT(order.key(std::string(999, 'n') + "a"), order.key(name));
}

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Icu, PersonNameFormatterContract, TextByIcu);
INSTANTIATE_TYPED_TEST_SUITE_P(Icu, TextServiceContract, TextByIcu);

}  // namespace pellor
