#include "pellor/linux/contacts/internal/IndexedAddressBook.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "pellor/testing/contract/AddressBookStoreContract.h"
#include "pellor/testing/contract/ContactSearchContract.h"
#include "pellor/testing/contract/ContactStoreContract.h"
#include "pellor/testing/contract/FavoritesSourceContract.h"
#include "tests/linux/AddressBookProgram.h"
#include "tests/linux/CardContacts.h"
#include "tests/linux/ContactsFixture.h"

namespace pellor {
namespace {

using testing::HasSubstr;

/// One program that uses the contacts folder.
struct Program : AddressBookProgram {
  explicit Program(ContactsFixture& fixture) : AddressBookProgram(fixture.log, fixture.source(), fixture.options()) {}
};

struct IndexedAddressBookTest : testing::Test, ContactsFixture {};

TEST_F(IndexedAddressBookTest, EveryProgramHearsOfAChangeOnceWhicheverIndexedIt) {
  put("a.vcf", card("anna", "Anna"));
  Program one(*this);
  Program other(*this);
  const std::int32_t before = one.sequence();
  EXPECT_EQ(other.sequence(), before);
  put("a.vcf", card("anna", "Anne"));
  // The second finds the work done.
  EXPECT_TRUE(one.waitUntil([&] { return one.posts[AddressBookChangedNotification] > 0; }));
  EXPECT_TRUE(other.waitUntil([&] { return other.posts[AddressBookChangedNotification] > 0; }));
  EXPECT_EQ(one.sequence(), before + 1);
  EXPECT_EQ(other.sequence(), before + 1);
  EXPECT_EQ(other.nameOf("anna"), "Anne");
}

// The rest of a piece of work must not see half of a change, even if it serves the main queue.
TEST_F(IndexedAddressBookTest, AChangeWaitsForTheEndOfTheWorkInProgress) {
  put("a.vcf", card("anna", "Anna"));
  Program program(*this);
  program.with([&](AddressBook&) {
    put("a.vcf", card("anna", "Anne"));
    // Another contact, noticed after it: by then the first event is in the queue.
    put("favorites", "anna\n");
    while (program.process.mainQueue().drain()) {
    }
    program.with([&](AddressBook& again) { EXPECT_EQ(again.copyPersonMatchingGUID("anna")->compositeName(), "Anna"); });
  });
  EXPECT_TRUE(program.waitUntil([&] { return program.nameOf("anna") == "Anne"; }));
}

TEST_F(IndexedAddressBookTest, AFolderMayComeLaterAndGo) {
  std::filesystem::remove(contacts);
  Program program(*this);
  EXPECT_EQ(program.nameOf("anna"), "(none)");
  EXPECT_THAT(program.store->sourceError().value_or(""), HasSubstr("does not exist"));
  program.with([](AddressBook& book) { EXPECT_FALSE(book.isReadable()) << "nothing was ever known of the folder"; });

  std::filesystem::create_directory(folder / "new");
  writeFile(folder / "new" / "a.vcf", card("anna", "Anna"));
  std::filesystem::rename(folder / "new", contacts);
  EXPECT_TRUE(program.waitUntil([&] { return program.nameOf("anna") == "Anna"; }));
  EXPECT_EQ(program.store->sourceError(), std::nullopt);

  // A folder that is taken away as a whole takes no contact along; the one that takes its place decides.
  std::filesystem::rename(contacts, folder / "away");
  {
    Program later(*this);
    later.with([](AddressBook& book) { EXPECT_TRUE(book.isReadable()); });
    EXPECT_EQ(later.nameOf("anna"), "Anna");
    EXPECT_THAT(later.store->sourceError().value_or(""), HasSubstr("does not exist"));
  }
  std::filesystem::create_directory(folder / "new");
  writeFile(folder / "new" / "b.vcf", card("bob", "Bob"));
  std::filesystem::rename(folder / "new", contacts);
  EXPECT_TRUE(program.waitUntil([&] { return program.nameOf("bob") == "Bob"; }));
  EXPECT_EQ(program.nameOf("anna"), "(none)");
}

TEST_F(IndexedAddressBookTest, FavoritesThatAreMarkedAreToldOfOnlyWhenTheyAreOtherOnes) {
  Program program(*this);
  const auto favorites = MarkedFavorites::make(program.process, program.store);
  program.sequence();
  const auto change = [&](const std::string& marks) {
    const int before = program.posts[AddressBookChangedNotification];
    put("a.vcf", card("anna", "Anna", marks));
    EXPECT_TRUE(program.waitUntil([&] { return program.posts[AddressBookChangedNotification] > before; }));
    return program.posts[FavoritesChangedNotification];
  };
  EXPECT_EQ(change("X-FOLKS-FAVOURITE:true\n"), 0) << "nobody has asked for them";
  EXPECT_EQ(favorites->favoriteEntries().value().value().size(), 1U);
  EXPECT_EQ(change("X-FOLKS-FAVOURITE:true\nNOTE:no matter\n"), 0);
  EXPECT_EQ(change(""), 1);
  EXPECT_TRUE(favorites->favoriteEntries().isReadable());
  executeInIndex("ALTER TABLE cards RENAME TO lost");
  EXPECT_FALSE(favorites->favoriteEntries().isReadable());
}

class ContactsInAFolder final : public CardContacts {
 public:
  ~ContactsInAFolder() override { end(); }

 private:
  std::shared_ptr<CardSource> makeSource() override { return _fixture.source(); }
  std::string put(const std::string& guid, const TestContact& contact, const CardMarks& marks) override {
    const std::string name = guid.empty() ? "contact" + std::to_string(++_last) : guid;
    _fixture.put(name + ".vcf", cardOf(name, contact, marks));
    return name;
  }
  void drop(const std::string& guid) override { _fixture.remove(guid + ".vcf"); }

  int _last = 0;
};

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Folder, AddressBookStoreContract, ContactsInAFolder);
INSTANTIATE_TYPED_TEST_SUITE_P(Folder, ContactSearchContract, ContactsInAFolder);
INSTANTIATE_TYPED_TEST_SUITE_P(Folder, ContactStoreContract, ContactsInAFolder);
INSTANTIATE_TYPED_TEST_SUITE_P(MarksInAFolder, FavoritesSourceContract, ContactsInAFolder);

}  // namespace pellor
