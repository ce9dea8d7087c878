#include "linux/IndexedAddressBook.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/linux/ContactsFixture.h"

namespace pellor {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// One program that uses the contacts folder.
class Program {
 public:
  explicit Program(ContactsFixture& fixture, IndexedAddressBookOptions options = {}) : process(fixture.log) {
    options.index = fixture.options();
    const Process::Scope scope(process);
    store = IndexedAddressBook::make(process, fixture.source(), std::move(options));
    const auto count = [this](const Notification& notification) {
      ++posts[notification.name];
      process.mainQueue().stop();
    };
    for (const char* name : {AddressBookChangedNotification, FavoritesChangedNotification})
      _observations.push_back(process.notificationCenter().addObserver(name, count));
  }
  // The store's watch ends before the process does.
  ~Program() { store.reset(); }

  template <class Work>
  void with(Work work) {
    const Process::Scope scope(process);
    store->performWithAddressBook([&](AddressBook& book) { work(book); });
  }
  std::string nameOf(const std::string& guid) {
    std::string name = "(none)";
    with([&](AddressBook& book) {
      if (const auto person = book.copyPersonMatchingGUID(guid)) name = person->compositeName().value_or("(no name)");
    });
    return name;
  }
  std::int32_t sequence() {
    std::int32_t number = 0;
    with([&](AddressBook& book) { number = book.sequenceNumber(); });
    return number;
  }

  /// Serves the main queue until that holds, looking again after each notification.
  template <class Condition>
  bool waitUntil(Condition condition) {
    const Process::Scope scope(process);
    bool isLate = false;
    const auto limit = Timer::after(process.mainQueue(), 30, [&] {
      isLate = true;
      process.mainQueue().stop();
    });
    while (!isLate && !condition()) process.mainQueue().run();
    return !isLate;
  }

  Process process;
  std::shared_ptr<IndexedAddressBook> store;
  std::map<std::string, int> posts;

 private:
  std::vector<std::shared_ptr<Observation>> _observations;
};

struct IndexedAddressBookTest : testing::Test, ContactsFixture {};

TEST_F(IndexedAddressBookTest, TellsOfEachChangeOfTheFolder) {
  put("a.vcf", card("anna", "Anna"));
  Program program(*this);
  EXPECT_EQ(program.nameOf("anna"), "Anna");
  const std::int32_t before = program.sequence();

  put("a.vcf", card("anna", "Anne"));
  EXPECT_TRUE(program.waitUntil([&] { return program.nameOf("anna") == "Anne"; }));
  EXPECT_NE(program.sequence(), before);
  EXPECT_EQ(program.posts[AddressBookChangedNotification], 1);

  put("b.vcf", card("boris", "Boris"));
  EXPECT_TRUE(program.waitUntil([&] { return program.nameOf("boris") == "Boris"; }));
  std::filesystem::rename(contacts / "b.vcf", contacts / "c.vcf");
  remove("a.vcf");
  EXPECT_TRUE(program.waitUntil([&] { return program.nameOf("anna") == "(none)"; }));
  EXPECT_EQ(program.nameOf("boris"), "Boris");
}

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

TEST_F(IndexedAddressBookTest, WhatIsSetOnARecordStaysInTheHandle) {
  put("a.vcf", card("anna", "Anna Novak", "TEL;TYPE=cell:+493023125001\n"));
  Program program(*this);
  const auto book = program.store->openPrivateAddressBook();
  const RecordRef anna = book->copyPersonMatchingGUID("anna");
  MultiValue phones = anna->copyMultiValue(RecordProperty::phone).value();
  const std::int32_t added = program.store->addMultiValueEntry(phones, "+493023125002", "work");
  phones.entries.pop_back();
  EXPECT_GT(program.store->addMultiValueEntry(phones, "+493023125003", "home"), added);
  anna->setRecordValue(RecordProperty::phone, phones);
  anna->setRecordValue(RecordProperty::nickname, std::string("Ann"));
  // The record is asked for again, and its file has changed meanwhile.
  put("a.vcf", card("anna", "Anne Novak"));
  EXPECT_TRUE(program.waitUntil([&] { return program.nameOf("anna") == "Anne Novak"; }));
  EXPECT_EQ(book->copyPersonMatchingGUID("anna"), anna);
  EXPECT_EQ(anna->nickname(), "Ann");
  EXPECT_EQ(book->guidsOfPeopleChangedSince(program.sequence(), 9), std::nullopt)
      << "its values are not the database's";
  EXPECT_THAT(anna->phoneValues().value(), ElementsAre("+493023125001", "+493023125003"));
  program.with(
      [](AddressBook& shared) { EXPECT_EQ(shared.copyPersonMatchingGUID("anna")->phoneValues(), std::nullopt); });
}

TEST_F(IndexedAddressBookTest, WhatIsReadInBulkIsNotLookedUpAgain) {
  put("a.vcf", card("a", "", "X-FOLKS-CONTACTS-IDS:c\n"));
  put("c.vcf", card("c", "Clara"));
  put("q\"\\.vcf", card("", "Quentin"));
  Program program(*this);
  program.sequence();
  const auto book = program.store->openPrivateAddressBook();
  const auto execute = [this](const char* statement) {
    SQLiteDatabase(data / "contacts-index.sqlite", SQLiteDatabase::Access::readWrite, 10).execute(statement);
  };
  const std::vector<std::string_view> guids{"a", "q\"\\.vcf", "nobody", "no\nname"};
  book->withPeopleMatchingGUIDs(guids, [&] {
    execute("ALTER TABLE cards RENAME TO lost");
    const RecordRef a = book->copyPersonMatchingGUID("a");
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a->allLinkedPeople().size(), 2U);
    EXPECT_EQ(a->preferredLinkedPersonForName()->compositeName(), "Clara");
    EXPECT_EQ(book->copyPersonMatchingGUID("q\"\\.vcf")->compositeName(), "Quentin");
    execute("ALTER TABLE lost RENAME TO cards");
    EXPECT_EQ(book->copyPersonMatchingGUID("c")->compositeName(), "Clara") << "the others are found as ever";
  });
  execute("ALTER TABLE cards RENAME TO lost");
  EXPECT_EQ(book->copyPersonMatchingGUID("a"), nullptr);
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

TEST_F(IndexedAddressBookTest, WhatCannotBeReadIsNotEmptyAndIsToldOfWhenItCan) {
  put("a.vcf", card("anna", "Anna"));
  openIndex();
  const auto execute = [this](const char* statement) {
    SQLiteDatabase(data / "contacts-index.sqlite", SQLiteDatabase::Access::readWrite, 10).execute(statement);
  };
  const auto isReadable = [](Program& program) {
    bool answer = false;
    program.with([&](AddressBook& book) { answer = book.isReadable(); });
    return answer;
  };
  execute("DELETE FROM folders");
  execute("CREATE TRIGGER full BEFORE INSERT ON folders BEGIN SELECT RAISE(ABORT, 'full'); END");
  Program program(*this);
  EXPECT_FALSE(isReadable(program));
  EXPECT_EQ(program.nameOf("anna"), "(none)");
  execute("DROP TRIGGER full");
  EXPECT_TRUE(program.waitUntil([&] { return program.posts[AddressBookChangedNotification] == 1; }));
  EXPECT_EQ(program.nameOf("anna"), "Anna");

  execute("ALTER TABLE cards RENAME TO lost");
  program.with([&](AddressBook& book) {
    EXPECT_EQ(book.copyPersonMatchingGUID("anna"), nullptr);
    execute("ALTER TABLE lost RENAME TO cards");
    EXPECT_EQ(book.copyPersonMatchingGUID("anna"), nullptr) << "what is read is of one piece";
    EXPECT_FALSE(book.isReadable());
  });
  EXPECT_TRUE(isReadable(program));
  EXPECT_TRUE(program.waitUntil([&] { return program.posts[AddressBookChangedNotification] == 2; }));
  EXPECT_EQ(log->count("the contact index cannot be used"), 2U);
  EXPECT_EQ(log->count("the contact index can be used again"), 2U);
}

TEST_F(IndexedAddressBookTest, ALinkedSetHasOneThatStandsForItAndOneThatNamesIt) {
  put("a.vcf", card("a", "", "TEL:+493023125001\nX-FOLKS-CONTACTS-IDS:c\n"));
  put("b.vcf", card("b", "Boris", "TEL:+493023125001\n"));
  put("c.vcf", card("c", "Clara", "TEL:+493023125001\n"));
  Program program(*this);
  program.with([](AddressBook& book) {
    const RecordRef a = book.copyPersonMatchingGUID("a");
    const RecordRef b = book.copyPersonMatchingGUID("b");
    const RecordRef c = book.copyPersonMatchingGUID("c");
    EXPECT_EQ(c->linkID(), a->recordID());
    EXPECT_EQ(b->linkID(), InvalidRecordID);
    EXPECT_EQ(c->allLinkedPeople(), (std::vector<RecordRef>{a, c}));
    EXPECT_EQ(a->preferredLinkedPersonForName(), c);
    EXPECT_EQ(book.orderedPeopleForDestination("03023125001"), (std::vector<RecordRef>{a, b, c}));
  });
  put("a.vcf", card("a", "", "TEL:+493023125001\n"));
  program.waitUntil([&] { return program.posts[AddressBookChangedNotification] > 0; });
  program.with(
      [](AddressBook& book) { EXPECT_EQ(book.copyPersonMatchingGUID("a")->preferredLinkedPersonForName(), nullptr); });
}

}  // namespace
}  // namespace pellor
