// Finding contacts in their index.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "pellor/linux/contacts/internal/IndexedContactSearch.h"
#include "tests/linux/AddressBookProgram.h"
#include "tests/linux/CardContacts.h"
#include "tests/linux/ContactsFixture.h"

namespace pellor {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct ContactSearchTest : testing::Test, ContactsFixture {
  /// One program's look at the contacts as they are now.
  std::vector<FoundContact> find(std::string_view text, std::size_t limit = 20) {
    AddressBookProgram program(log, source(), options());
    const Process::Scope scope(program.process);
    return searchOf(program.store, *this).find(text, limit);
  }
  std::vector<std::string> found(std::string_view text, std::size_t limit = 20) { return guidsOf(find(text, limit)); }
  std::vector<std::string> similar(std::string_view text) {
    AddressBookProgram program(log, source(), options());
    const Process::Scope scope(program.process);
    return guidsOf(searchOf(program.store, *this).findSimilar(text, 20));
  }
  static std::vector<std::string> guidsOf(const std::vector<FoundContact>& contacts) {
    std::vector<std::string> guids;
    for (const FoundContact& contact : contacts) guids.push_back(contact.guid);
    return guids;
  }
};

TEST_F(ContactSearchTest, WordsOfNamesComeBeforeThoseOfOrganisationsAndAddresses) {
  put("a.vcf", card("address", "Bo", "EMAIL:shop@lind.example\n") + card("longer", "Lindgren") +
                   card("organisation", "Cai", "ORG:Lind & Co\n") + card("surname", "Dan Lind", "N:Lind;Dan;;;\n") +
                   card("given", "Lind Zorn", "N:Zorn;Lind;;;\n") + card("whole", "Eve Novak", "NICKNAME:LIND\n") +
                   card("two", "Fritz", "EMAIL:lind@lind.example\nORG:Lind\n"));
  EXPECT_THAT(found("lind"), ElementsAre("whole", "given", "surname", "longer", "organisation", "two", "address"));
  EXPECT_THAT(found("lind", 3), ElementsAre("whole", "given", "surname"));
  EXPECT_THAT(found("lind bo"), ElementsAre("address"));
  EXPECT_THAT(found("lind co cai"), ElementsAre("organisation"));
  EXPECT_THAT(found("lind co bo"), IsEmpty());
  for (const std::string& text : {std::string("lind novak zorn"), std::string("%"), std::string(100'000, 'x')})
    EXPECT_THAT(found(text), IsEmpty()) << text.substr(0, 20);
}

TEST_F(ContactSearchTest, ACardOfVeryManyWordsIsFoundByAnyTwo) {
  std::string words;
  for (int number = 100; number < 240; ++number) words += " w" + std::to_string(number);
  put("a.vcf", card("many", "Ada Lind", "ORG:Acme" + words + "\nEMAIL:ada@example.org\n"));
  for (const char* text : {"ada w239", "w100 w239", "lind example w2", "ada lind"})
    EXPECT_THAT(found(text), ElementsAre("many")) << text;
  EXPECT_THAT(found("ada w240"), IsEmpty());
}

TEST_F(ContactSearchTest, NamesWithoutBlanksAreFoundByEitherPart) {
  put("a.vcf", card("taro", "山田太郎", "N:山田;太郎;;;\n") + card("anna", "Anna Novak", "N:Novak;Anna;;;\n"));
  for (const char* text : {"山田", "山田太", "山田太郎", "太郎", "太郎 山田"})
    EXPECT_THAT(found(text), ElementsAre("taro")) << text;
  EXPECT_THAT(found("novakanna"), IsEmpty());
}

// Both spellings are looked for, and whole names count in both.
TEST_F(ContactSearchTest, AWholeNameIsOneInEitherSpelling) {
  put("a.vcf", card("plain", "Jorg Muller") + card("spelled", "Joerg Mueller") + card("umlauts", "Jörg Müller") +
                   card("more", "Jörg Müller-Lind"));
  for (const auto& [text, guids] : std::initializer_list<std::pair<const char*, std::vector<std::string>>>{
           {"muller jorg", {"plain", "umlauts", "more"}},
           {"Mueller, Joerg", {"spelled", "umlauts", "more"}},
           {"jörg müller", {"plain", "spelled", "umlauts", "more"}}}) {
    const auto people = find(text);
    EXPECT_THAT(guidsOf(people), testing::UnorderedElementsAreArray(guids)) << text;
    for (const FoundContact& contact : people)
      EXPECT_EQ(contact.fit, contact.guid == "more" ? ContactFit::nameWords : ContactFit::name) << text;
  }
}

TEST_F(ContactSearchTest, NumbersAreFoundInAnySpellingByTheirBeginningAndEnding) {
  put("a.vcf", card("mobile", "A", "TEL:0151 2345679\n") + card("berlin", "B", "TEL:+49 (30) 2312-5001\n") +
                   card("rome", "C", "TEL:+39 06 1234 5678\n") + card("short", "D", "TEL:116-117\n") +
                   card("arabic", "E", "TEL:٠٣٠ ٧٧٧٧٧٧٧\n"));
  using Fit = ContactFit;
  const struct {
    const char* text;
    Fit fit;
    std::vector<std::string> guids;
  } cases[] = {
      {"٠١٥١ ٢٣٤٥٦٧٩", Fit::destination, {"mobile"}}, {"116117", Fit::destination, {"short"}},
      {"11 6", Fit::numberBeginning, {"short"}},      {"0049 1512", Fit::numberBeginning, {"mobile"}},
      {"٠١٥١٢", Fit::numberBeginning, {"mobile"}},    {"（＋49）151 23", Fit::numberBeginning, {"mobile"}},
      {"49+151", Fit::numberBeginning, {}},           {"030 77", Fit::numberBeginning, {"arabic"}},
      {"390612", Fit::numberBeginning, {"rome"}},     {"03", Fit::numberBeginning, {"berlin", "arabic"}},
      {"5678", Fit::numberEnding, {"rome"}},          {"٥٠٠١", Fit::numberEnding, {"berlin"}},
  };
  for (const auto& test : cases) {
    const auto people = find(test.text);
    EXPECT_EQ(guidsOf(people), test.guids) << test.text;
    for (const FoundContact& contact : people) EXPECT_EQ(contact.fit, test.fit) << test.text;
  }
}

TEST_F(ContactSearchTest, LinkedRecordsAreOnePersonHoweverManyThereAre) {
  std::string cards;
  for (int number = 0; number < 30; ++number)
    cards += card("one" + std::to_string(number), "Ada Lind",
                  number > 0 ? "X-FOLKS-CONTACTS-IDS:one" + std::to_string(number - 1) + "\n" : "");
  put("a.vcf", cards + card("other", "Ada Novak"));
  EXPECT_THAT(found("ada"), ElementsAre("one0", "other"));
  EXPECT_THAT(found("ada", 1), ElementsAre("one0"));
}

TEST_F(ContactSearchTest, ARenamedContactIsFoundByItsNewNameAlone) {
  put("a.vcf", card("ada", "Ada Lind", "TEL:0151 2345679\nORG:Acme\nEMAIL:ada@example.org\n"));
  EXPECT_THAT(found("lind"), ElementsAre("ada"));
  EXPECT_THAT(find("lind").front().destinations, ElementsAre("0151 2345679", "ada@example.org"));
  put("a.vcf", card("ada", "Ada Zorn", "TEL:0151 2345670\n"));
  for (const char* text : {"lind", "acme", "example", "5679"}) EXPECT_THAT(found(text), IsEmpty()) << text;
  EXPECT_THAT(found("zor"), ElementsAre("ada"));
}

TEST_F(ContactSearchTest, ContactsOfAnotherSourceAreNotFound) {
  put("a.vcf", card("ada", "Ada Lind", "TEL:0151 2345679\nORG:Acme\n"));
  EXPECT_THAT(found("ada lind"), ElementsAre("ada"));
  contacts = folder / "others";
  std::filesystem::create_directory(contacts);
  put("b.vcf", card("bo", "Bo"));
  for (const char* text : {"lind", "ada lind", "acme", "0151 2345679", "0151", "5679"})
    EXPECT_THAT(found(text), IsEmpty()) << text;
  EXPECT_THAT(similar("linde"), IsEmpty());
  EXPECT_THAT(found("bo"), ElementsAre("bo"));
}

// While the contacts are away they can be looked up as they were.
TEST_F(ContactSearchTest, AnIndexWithoutWordsIsReadableAndGetsThemAndKeepsWhatProgramsRemember) {
  put("a.vcf", card("ada", "Ada Lind"));
  const auto before = [&] {
    const auto index = openIndex();
    return std::tuple(identitiesIn(*index), index->sequenceNumber(), index->databaseUID());
  };
  const auto known = before();
  for (const char* statement : {"DROP TABLE words", "PRAGMA user_version=4"}) executeInIndex(statement);
  std::filesystem::rename(contacts, folder / "away");
  EXPECT_TRUE(openIndex()->contactWithGUID("ada").has_value());
  std::filesystem::rename(folder / "away", contacts);
  log->clear();
  EXPECT_THAT(found("lin"), ElementsAre("ada"));
  EXPECT_EQ(before(), known);
  EXPECT_THAT(log->takeMessages(), IsEmpty());
}

TEST_F(ContactSearchTest, MistypedWordsOfOtherAlphabetsFindTheNearestNames) {
  put("a.vcf", card("reka", "Kovács Réka") + card("olga", "Ольга Достоевская") + card("acme", "Bo", "ORG:Kovax\n") +
                   card("giorgos", "Γιώργος") + card("sato", "さとう たろう"));
  const std::pair<const char*, const char*> cases[] = {
      {"достоевксая", "olga"}, {"Ольга Дастоевская", "olga"}, {"γιορργος", "giorgos"}, {"さとお", "sato"},
      {"kovax", "reka"},
  };
  for (const auto& [text, guid] : cases) EXPECT_THAT(similar(text), ElementsAre(guid)) << text;
}

}  // namespace
}  // namespace pellor
