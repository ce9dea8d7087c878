// What contacts are called: the names of their cards as people of many languages write them, and links between cards.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>

#include "pellor/linux/contacts/NameSearchKey.h"
#include "pellor/linux/contacts/internal/ContactLinks.h"
#include "pellor/linux/contacts/internal/ContactNames.h"
#include "pellor/linux/contacts/internal/EVCardContact.h"
#include "pellor/linux/text/IcuText.h"

namespace pellor {
namespace {

TEST(NameSearchKey, FindsANameHoweverItIsWritten) {
  const struct {
    const char* one;
    const char* other;
    bool areSame;
  } cases[] = {
      {"Müller, Jörg", "Jörg Müller", true},
      {"Anne-Marie O'Neill", "o neill marie anne", true},
      {"Straße", "STRASSE", true},
      {"Ångström", "A\u030Angstro\u0308m", true},
      {"أحمد", "احمد", true},
      {"山田 太郎", "太郎 山田", true},
      {"Anna", "Anna Novak", false},
      {"Anna Anna", "Anna", false},
      {"कवि", "कव", false},
  };
  for (const auto& each : cases)
    EXPECT_EQ(nameSearchKey(each.one) == nameSearchKey(each.other), each.areSame) << each.one << " / " << each.other;
  EXPECT_EQ(nameSearchKey(" -,. "), "");
}

TEST(ContactNames, ACardWithoutNamePartsGoesByWhatItHas) {
  ContactCard card;
  EXPECT_EQ(compositeName(card, false), std::nullopt);
  card.organization = "Club";
  EXPECT_EQ(compositeName(card, false), "Club");
  card.nickname = "Bee";
  for (const CardKind kind : {CardKind::person, CardKind::organization}) {
    card.kind = kind;
    EXPECT_EQ(compositeName(card, false), "Bee");
    EXPECT_EQ(searchableNames(card), (std::vector<std::string>{"Club", "Bee"}));
  }
  card.formattedName = "The keeper";
  EXPECT_EQ(compositeName(card, true), "The keeper");
}

using Sets = std::map<std::int32_t, std::int32_t>;

/// The rules taken literally: for each link all members of both sets are looked at.
Sets setsByTheRules(const std::vector<LinkStatement>& statements) {
  std::set<std::pair<std::int32_t, std::int32_t>> links, refused;
  for (const auto& [record, linked, antiLinked] : statements) {
    for (const std::int32_t other : linked) links.insert(std::minmax(record, other));
    for (const std::int32_t other : antiLinked) refused.insert(std::minmax(record, other));
  }
  std::map<std::int32_t, std::set<std::int32_t>> sets;
  const auto setOf = [&](std::int32_t record) { return sets.try_emplace(record, std::set{record}).first->second; };
  for (const auto& [one, other] : links) {
    std::set<std::int32_t> joined = setOf(one);
    const std::set<std::int32_t> others = setOf(other);
    if (joined == others) continue;
    const auto refuse = [&](std::int32_t left) {
      return std::ranges::any_of(others,
                                 [&](std::int32_t right) { return refused.contains(std::minmax(left, right)); });
    };
    if (std::ranges::any_of(joined, refuse)) continue;
    joined.insert(others.begin(), others.end());
    for (const std::int32_t member : joined) sets[member] = joined;
  }
  Sets lowest;
  for (const auto& [record, set] : sets) {
    if (set.size() > 1) lowest[record] = *set.begin();
  }
  return lowest;
}

TEST(ContactLinks, AnyCardsGiveTheSetsOfTheRules) {
  for (unsigned seed = 0; seed < 500; ++seed) {
    std::mt19937 random(seed);
    const auto below = [&](unsigned end) { return static_cast<std::int32_t>(random() % end); };
    std::vector<LinkStatement> statements;
    for (std::int32_t record = 1; record < 2 + below(30); ++record) {
      statements.push_back({record, {}, {}});
      for (std::int32_t left = below(4); left > 0; --left) statements.back().links.push_back(1 + below(30));
      for (std::int32_t left = below(3); left > 0; --left) statements.back().antiLinks.push_back(1 + below(30));
    }
    EXPECT_EQ(linkedSets(statements), setsByTheRules(statements)) << "seed " << seed;
  }
}

// A card that names 100,000 others, and refuses as many: one look at each refusal for each link would take days.
TEST(ContactLinks, ACardMayNameAllOthers) {
  constexpr std::int32_t many = 100'000;
  LinkStatement statement{1, {}, {}};
  for (std::int32_t number = 1; number < many; ++number) {
    statement.links.push_back(2 * number);
    statement.antiLinks.push_back(2 * number + 1);
  }
  const Sets sets = linkedSets({statement, {2, {3}, {}}});
  EXPECT_EQ(sets.size(), static_cast<std::size_t>(many));
  EXPECT_FALSE(sets.contains(3));
}

// Full name, short name and monogram, by what a card says

struct Shape {
  const char* locale;
  const char* card;  ///< its lines
  const char* full;
  const char* shortName;  ///< empty: none
  const char* monogram;   ///< empty: none
  const char* rule;       ///< where it comes from
};

constexpr Shape Shapes[] = {
    {"hu_HU", "N:Kovács;Béla", "Kovács Béla", "Béla", "KB", "Hungarian grammar: the surname first"},
    {"hu_HU", "N:Kovács;Béla;János", "Kovács Béla János", "Béla", "KB", "Hungarian: given names in their order"},
    {"hu_HU", "N:Kovács;Béla;;ifj.", "ifj. Kovács Béla", "Béla", "KB", "Hungarian spelling rules: the younger, before"},
    {"hu_HU", "N:Nagy;Anna;;Dr.;PhD", "Dr. Nagy Anna PhD", "Anna", "NA", "Hungarian: title before, degree behind"},
    {"en_GB", "N:Kovács;Béla;;ifj.", "ifj. Béla Kovács", "Béla", "BK", "locale data: the reader's order"},
    {"hu_HU", "FN:Kovács Béla", "Kovács Béla", "Béla", "KB", "Hungarian grammar: the surname first"},
    {"hu_HU", "FN:ifj. Dr. Kovács Béla János", "ifj. Dr. Kovács Béla János", "Béla János", "KB", "titles are no names"},

    {"vi_VN", "N:Nguyễn;Bình;Minh", "Nguyễn Minh Bình", "Bình", "NB", "Vietnamese: surname, middle name, given name"},
    {"vi_VN", "N:Trương;Anh;Mai", "Trương Mai Anh", "Anh", "TA", "Vietnamese alphabet: a vowel with a horn"},
    {"vi_VN", "N:Lê;Bình;Văn", "Lê Văn Bình", "Bình", "LB", "Vietnamese: the middle name of men"},
    {"vi_VN", "FN:Lê Minh Anh\nN:Lê;Anh;Minh", "Lê Minh Anh", "Anh", "LA", "vCard: the name as its owner writes it"},
    {"vi_VN", "FN:Nguyen Van Binh\nN:Nguyen;Binh;Van", "Nguyen Van Binh", "Binh", "NB", "the same without accents"},
    {"vi_VN", "FN:Trần Thị Thanh Hoa", "Trần Thị Thanh Hoa", "Hoa", "TH", "Vietnamese: the given name last"},
    {"vi_VN", "N:Kovács;Béla;János", "Kovács Béla János", "Béla", "KB", "a second given name stays behind the first"},
    {"hu_HU", "N:Kovács;Réka;Aḥsan", "Kovács Réka Aḥsan", "Réka", "KR", "a dot below a consonant is not Vietnamese"},
    {"en_US", "N:Nguyễn;Bình;Văn", "Bình Văn Nguyễn", "Bình", "BN", "locale data: the reader's order"},

    {"ja_JP", "N:山田;太郎", "山田太郎", "太郎", "", "Japanese: no blank, no initials"},
    {"ja_JP", "N:やまだ;はなこ", "やまだはなこ", "はなこ", "", "Japanese in kana: no blank either"},
    {"ja_JP", "N:Yamada;Taro", "Yamada Taro", "Taro", "YT", "Japanese public offices: surname first in Latin letters"},
    {"ja_JP", "N:山田;Taro", "山田 Taro", "Taro", "", "locale data: Latin beside Japanese has a blank"},
    {"ja_JP", "N:山田;太郎;;;様", "山田太郎様", "太郎", "", "Japanese: what honours follows without a blank"},
    {"ja_JP", "N:山田;太郎;;Dr.", "Dr. 山田太郎", "太郎", "", "locale data: Latin beside Japanese has a blank"},
    {"en_US", "N:山田;太郎;;Dr.", "Dr. 山田 太郎", "太郎", "",
     "locale data: the order of the script, for foreign readers"},

    {"de_DE", "FN:山田 太郎", "山田 太郎", "太郎", "", "locale data: the order of the script"},
    {"zh_CN", "N:王;小明", "王小明", "小明", "", "Chinese: no blank, no initials"},
    {"yue_HK", "N:Chan;Tai Man", "Chan Tai Man", "Tai Man", "CT", "Hong Kong usage: a given name of two words"},

    {"ko_KR", "N:김;민수", "김민수", "민수", "", "Hangul orthography 48: surname and given name together"},
    {"ko_KR", "N:김;민수;;;박사", "김민수 박사", "민수", "", "Hangul orthography 48: titles stand apart"},
    {"ko_KR", "N:Kim;Min-su", "Kim Min-su", "Min-su", "KM", "Korean romanisation: surname first, one given name"},

    {"is_IS", "N:Þórsson;Árni;Már", "Árni Már Þórsson", "Árni", "ÁÞ", "Icelandic alphabet: Á and Þ are letters"},

    {"es_ES", "N:García Márquez;José", "José García Márquez", "José", "JG",
     "Spanish: of two surnames the first counts"},
    {"es_MX", "N:de la Cruz;Juana Inés", "Juana Inés de la Cruz", "Juana Inés", "JC", "library rules: under Cruz"},
    {"pt_PT", "N:de Souza e Silva;Ana", "Ana de Souza e Silva", "Ana", "AS", "Portuguese: particles are no names"},
    {"fr_FR", "N:d’Arc;Jeanne", "Jeanne d’Arc", "Jeanne", "JA", "French library rules: de is left out"},
    {"it_IT", "N:De Luca;Giulia", "Giulia De Luca", "Giulia", "GD", "Italian library rules: under the prefix"},

    {"nl_NL", "N:van der Berg;Jan", "Jan van der Berg", "Jan", "JB", "Dutch: sorted and named under Berg"},
    {"nl_NL", "N:'t Hart;Maarten", "Maarten 't Hart", "Maarten", "MH", "Dutch: a shortened article is a particle"},
    {"de_DE", "FN:Dr. Karl von der Aue", "Dr. Karl von der Aue", "Karl", "KA", "German: particles are the surname's"},

    {"ar_EG", "N:السيد;أحمد", "أحمد السيد", "أحمد", "", "Arabic: letters are joined, no initials"},
    {"en_GB", "N:al-Sayed;Ahmed", "Ahmed al-Sayed", "Ahmed", "AS", "romanisation tables: the article is disregarded"},
    {"he_IL", "N:כהן;דוד", "דוד כהן", "דוד", "", "Hebrew: no capitals, no initials of two letters"},
    {"hi_IN", "N:शर्मा;राम", "राम शर्मा", "राम", "", "Hindi: syllables, no initials"},
    {"ta_IN", "N:;ரவி;;ச.", "ச. ரவி", "ரவி", "", "Tamil: the father's initial before the name"},
    {"id_ID", "N:;Sukarno", "Sukarno", "Sukarno", "S", "Indonesian: one name is a whole name"},

    {"tr_TR", "N:ışık;ilker", "ilker ışık", "ilker", "İI", "Turkish alphabet: two letters i"},
    {"en_US", "N:irmak;ilker", "ilker irmak", "ilker", "II", "the reader's alphabet makes the capital"},

    {"ru_RU", "N:Иванов;Иван;Петрович", "Иван Петрович Иванов", "Иван", "ИИ", "locale data: the patronymic between"},
    {"ru_RU", "FN:А. С. Пушкин", "А. С. Пушкин", "А. С.", "АП", "initials of any alphabet are no titles"},
    {"el_GR", "N:Ηλιάδη;Έλενα", "Έλενα Ηλιάδη", "Έλενα", "ΕΗ", "Greek spelling: capitals bear no accents"},
    {"ga_IE", "N:Ó Briain;Séamas", "Séamas Ó Briain", "Séamas", "SÓ", "Irish: Ó is part of the surname"},
    {"en_IE", "N:O'Neill;Rory", "Rory O'Neill", "Rory", "RO", "English of Ireland: O' is part of the surname"},
    {"haw_US", "N:Kahele;ʻIolani", "ʻIolani Kahele", "ʻIolani", "IK",
     "Hawaiian: the letter behind the ʻokina is capital"},

    {"en_US", "N:Lovelace;Ada\nNICKNAME:Countess", "Ada Lovelace", "Ada", "AL", "vCard: a nickname is no part of N"},
    {"en_US", "FN:Acme\nORG:Acme\nKIND:org", "Acme", "Acme", "", "vCard: an organisation is nobody with initials"},
    {"en_US", "N:;Anna\nORG:Club\nKIND:org", "Club", "Club", "", "vCard: an organisation's name is no person's"},
    {"en_US", "FN:Cher", "Cher", "Cher", "C", "one name is a whole name"},
    {"en_US", "N:King;Martin;Luther;Dr.;Jr.", "Dr. Martin Luther King Jr.", "Martin", "MK", "vCard: the parts of N"},
    {"en_US", "FN:J.R. Ward", "J.R. Ward", "J.R.", "JW", "two initials in one word are no title"},
    {"en_US", "FN:J. R. Ward Jr.", "J. R. Ward Jr.", "J. R.", "JW", "initials are names, what follows is none"},
    {"en_US", "N:Novak;;;Mrs.", "Mrs. Novak", "Mrs. Novak", "N", "a surname alone"},
    {"en_US", "N:hooks;bell", "bell hooks", "bell", "BH", "style guides: as the person writes it"},
    {"en_US", "N:Stone;\"Bob\"", "\"Bob\" Stone", "\"Bob\"", "BS", "punctuation is no letter"},
    {"en_US", "N:;🐱 Mia", "🐱 Mia", "🐱 Mia", "M", "a picture is no letter"},
    {"en_US", "N:;007", "007", "007", "", "digits are no letters"},
    {"fr_FR", "N:luc;e\u0301mile", "e\u0301mile luc", "e\u0301mile", "E\u0301L",
     "Unicode: a letter with its marks is one"},
    {"en_US", "N:Lee;𝒜nn", "𝒜nn Lee", "𝒜nn", "", "Unicode: a sign beyond 16 bits is never halved"},
    {"en_US", "N:李;Bruce", "Bruce 李", "Bruce", "", "a script without initials has none in company"},
};

std::string monogramOf(const ContactCard& card, const std::string& locale) {
  if (card.kind != CardKind::person) return {};
  IcuText text([locale] { return locale; });
  return text.uppercase(text.abbreviatedName(card.givenName, card.familyName));
}

// What is shown when short names are on: the full name where there is no other.
std::string shortNameOf(const ContactCard& card, const std::string& full) {
  return card.kind == CardKind::person ? card.givenName.value_or(full) : full;
}

TEST(NameShapes, AreWrittenByTheRulesOfTheirLanguages) {
  for (const Shape& shape : Shapes) {
    SCOPED_TRACE(std::string(shape.locale) + " " + shape.card + " (" + shape.rule + ")");
    auto reading = readContactCard(std::string("BEGIN:VCARD\nVERSION:3.0\n") + shape.card + "\nEND:VCARD\n");
    ASSERT_TRUE(reading.card) << reading.problem;
    deriveNames(*reading.card, writesSurnameFirst(shape.locale));
    const std::string full = compositeName(*reading.card, writesSurnameFirst(shape.locale)).value_or("");
    EXPECT_EQ(full, shape.full);
    EXPECT_EQ(shortNameOf(*reading.card, full), shape.shortName);
    EXPECT_EQ(monogramOf(*reading.card, shape.locale), shape.monogram);
  }
}

// A friend whose contact was made anew is found by the name that the list has of it.
TEST(NameShapes, AreFoundByTheNameThatIsShownAndWithoutTitles) {
  for (const Shape& shape : Shapes) {
    const auto reading = readContactCard(std::string("BEGIN:VCARD\nVERSION:3.0\n") + shape.card + "\nEND:VCARD\n");
    ContactCard bare = *reading.card;
    bare.namePrefix = bare.nameSuffix = std::nullopt;
    std::set<std::string> keys;
    for (const std::string& name : searchableNames(*reading.card)) keys.insert(nameSearchKey(name));
    for (const bool surnameFirst : {false, true}) {
      for (const ContactCard& card : {*reading.card, bare}) {
        const std::string name = compositeName(card, surnameFirst).value_or("");
        EXPECT_TRUE(keys.contains(nameSearchKey(name))) << name << " of " << shape.card;
      }
    }
  }
}

}  // namespace

}  // namespace pellor
