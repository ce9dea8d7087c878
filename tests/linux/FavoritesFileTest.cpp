#include "pellor/linux/contacts/internal/FavoritesFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/linux/ContactsFixture.h"

namespace pellor {
namespace {

using testing::ElementsAre;
using Line = FavoritesFile::Line;
using Lines = std::vector<Line>;
using Outcome = FavoritesFile::Outcome;

struct FavoritesFileTest : testing::Test, ContactsFixture {
  FavoritesFileTest() : process(log) {
    put("anna.vcf", card("anna", "Anna", "TEL:+493023125001\nEMAIL:anna@example.org\n"));
    put("boris.vcf", card("boris", "Boris", "EMAIL:boris@example.org\n"));
    store = IndexedAddressBook::make(process, source(), unwatched());
    favorites = std::make_unique<FavoritesFile>(store, contacts);
  }

  IndexedAddressBookOptions unwatched() {
    IndexedAddressBookOptions unwatched;
    unwatched.index = options();
    unwatched.noticesChanges = false;
    return unwatched;
  }
  static bool addAnna(Lines& lines) {
    lines.push_back({"anna", "", ""});
    return true;
  }
  static bool clear(Lines& lines) {
    lines.clear();
    return true;
  }

  /// "name|value|GUID of the record" of each entry.
  std::vector<std::string> entries() {
    std::vector<std::string> result;
    const auto answer = favorites->favoriteEntries();
    if (!answer.isReadable()) return {"unreadable"};
    for (const FavoriteEntry& entry : answer.value().value_or(std::vector<FavoriteEntry>())) {
      store->performWithAddressBook([&](AddressBook& book) {
        const RecordRef person = book.personForRecordID(entry.abRecordID);
        result.push_back(entry.displayName + "|" + entry.value + "|" + (person ? person->recordGUID() : "-"));
      });
    }
    return result;
  }

  Process process;
  std::shared_ptr<IndexedAddressBook> store;
  std::unique_ptr<FavoritesFile> favorites;
};

TEST_F(FavoritesFileTest, ReadsWhatPeopleWrite) {
  writeFile(contacts / "favorites",
            "# mine\n\n\xFF\nboris\nanna\t030 23125001\tMum\n\t+49 30 23125 001\r\n  \t\n"
            "\tclub@example.org\tThe "
            "club\nnobody\tgone@example.org\tGone\nnobody\tboris@example.org\tMoved\textra\n\t\tOnly a name");
  EXPECT_THAT(entries(),
              ElementsAre("Boris|boris@example.org|boris", "Mum|030 23125001|anna", "Anna|+49 30 23125 001|anna",
                          "The club|club@example.org|-", "Gone|gone@example.org|-", "Moved|boris@example.org|boris"));
  EXPECT_TRUE(log->contains("favorite Only a name is left out")) << "nobody could be reached through it";
}

TEST_F(FavoritesFileTest, WhatIsTooLongIsCutOrNoNumber) {
  const std::string digits(20'000, '1');
  const std::string name(1'000'000, 'x');
  writeFile(contacts / "favorites", "\t+493023125009\t" + name + "\n\t" + digits + "\tFar\nanna\t" + digits + "\n");
  EXPECT_THAT(entries(), ElementsAre(name.substr(0, 1000) + "|+493023125009|-", "Anna|+493023125001|anna"));
  EXPECT_TRUE(log->contains("favorite Far is left out"));
}

TEST_F(FavoritesFileTest, WithoutAFileTheMarksCount) {
  EXPECT_THAT(entries(), ElementsAre());
  put("c.vcf", card("c", "Zoe", "X-FOLKS-FAVOURITE:true\nTEL:+493023125003\n"));
  put("d.vcf", card("d", "Élan", "X-FOLKS-FAVOURITE:true\nTEL:+493023125004\n"));
  put("e.vcf", card("e", "Second", "X-QTPROJECT-FAVORITE:true;2\nTEL:+493023125005\n"));
  put("f.vcf", card("f", "First", "X-QTPROJECT-FAVORITE:true;1\nTEL:+493023125006\n"));
  put("g.vcf", card("g", "First too", "X-FOLKS-FAVOURITE:true\nX-FOLKS-CONTACTS-IDS:f\n"));
  store = IndexedAddressBook::make(process, source(), unwatched());
  favorites = std::make_unique<FavoritesFile>(store, contacts);
  EXPECT_THAT(entries(), ElementsAre("First|+493023125006|f", "Second|+493023125005|e", "Élan|+493023125004|d",
                                     "Zoe|+493023125003|c"));
  // The first edit must not lose them, even where they cannot be read.
  executeInIndex("ALTER TABLE cards RENAME TO lost");
  EXPECT_EQ(favorites->edit(addAnna), Outcome::failed);
  EXPECT_THAT(entries(), ElementsAre("unreadable"));
  executeInIndex("ALTER TABLE lost RENAME TO cards");
  EXPECT_EQ(favorites->edit(addAnna), Outcome::done);
  EXPECT_EQ(entries().size(), 5U);
  EXPECT_EQ(contentOf(contacts / "favorites").substr(0, 8), "# GUID\tn");
  EXPECT_EQ(modeOf(contacts / "favorites"), 0600U);
}

TEST_F(FavoritesFileTest, EditsKeepCommentsWithTheirLines) {
  writeFile(contacts / "favorites", "# family\nanna\t\tMum\n\n# friends\nboris\n# end\n");
  EXPECT_EQ(favorites->edit([](Lines& lines) {
    std::swap(lines[0], lines[1]);
    lines.push_back({"", "x@example.org", "A\tB\nC"});
    return true;
  }),
            Outcome::done);
  EXPECT_EQ(contentOf(contacts / "favorites"),
            "\n# friends\nboris\t\t\n# family\nanna\t\tMum\n\tx@example.org\tA B C\n# end\n");
  const std::string before = contentOf(contacts / "favorites");
  EXPECT_EQ(favorites->edit([](Lines& lines) { return !clear(lines); }), Outcome::refused);
  EXPECT_EQ(contentOf(contacts / "favorites"), before);
  // The last one removed is no reason to go back to the marks.
  put("c.vcf", card("c", "Zoe", "X-FOLKS-FAVOURITE:true\n"));
  EXPECT_EQ(favorites->edit(clear), Outcome::done);
  EXPECT_THAT(entries(), ElementsAre());
}

TEST_F(FavoritesFileTest, AFileThatCannotBeReadIsLeftAlone) {
  std::filesystem::create_directory(contacts / "favorites");
  EXPECT_THAT(entries(), ElementsAre("unreadable"));
  EXPECT_EQ(favorites->lines(), std::nullopt);
  EXPECT_EQ(favorites->edit([](Lines&) { return true; }), Outcome::failed);
  EXPECT_EQ(log->count("cannot be read"), 1U);
  std::filesystem::remove(contacts / "favorites");
  std::filesystem::remove_all(contacts);
  EXPECT_EQ(favorites->edit(addAnna), Outcome::failed);
  EXPECT_THAT(entries(), ElementsAre("unreadable")) << "the contacts are known still, the file is not";
}

}  // namespace
}  // namespace pellor
