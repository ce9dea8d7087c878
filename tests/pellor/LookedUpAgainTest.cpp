// Whoever was looked up while the contacts could not be read, or not to the end.
#include "testing/InMemoryAddressBookStore.h"
#include "testing/ProcessLink.h"
#include "tests/pellor/ManagerWorld.h"

namespace pellor {
namespace {

class LookedUpAgainTest : public ManagerTest {
 protected:
  LookedUpAgainTest() {
    setGroups(4, 2);
    contacts({"Ann", "Bob"});
    world.addressBook().change(guidOf("Ann"), [](TestContact& contact) {
      contact.phones.push_back({"", "01511000001"});
    });
  }
};

TEST_F(LookedUpAgainTest, APersonIsFoundOnceTheContactsCanBeRead) {
  for (const bool isServed : {true, false}) {
    auto a = launchWith("Bob#,-");
    world.addressBook().setReadable(false);
    const auto byAddress = a->run([&] { return a->manager().personWithDestinations({mailOf("Ann")}); });
    const auto byGUID = a->run([&] { return a->manager().personWithABRecordGUID(guidOf("Bob") + "-2"); });
    EXPECT_EQ(byAddress->abRecordGUID(), std::nullopt);
    world.addressBook().add({.guid = guidOf("Bob") + "-2", .first = "Robert"});
    world.addressBook().setReadable(true);
    // Where nothing is served the next look-up comes first.
    if (isServed) advance(1);
    if (!isServed) {
      EXPECT_EQ(a->run([&] { return a->manager().personWithDestinations({mailOf("Ann")}); }), byAddress);
    }
    EXPECT_EQ(byAddress->abRecordGUID(), "guid-Ann");
    EXPECT_EQ(byAddress->displayName(), "Ann");
    EXPECT_EQ(byAddress->allValuesCount(), 2U);
    EXPECT_EQ(byGUID->displayName(), "Robert");
    world.addressBook().remove(guidOf("Bob") + "-2");
    a->kill();
  }
}

/// Contacts whose links cannot be read while `fails`.
class FailingLinks : public InMemoryAddressBookStore {
 public:
  FailingLinks(InMemoryAddressBook& database, Process& process, const bool& fails)
      : InMemoryAddressBookStore(database.shared_from_this(), process), _fails(fails) {}

  void performWithAddressBook(const std::function<void(AddressBook&)>& work) override {
    InMemoryAddressBookStore::performWithAddressBook([&](AddressBook& book) {
      Handle handle(book, _fails);
      work(handle);
    });
  }

 private:
  // A record without its links, from a handle that tells so only afterwards.
  class Record : public ContactRecord, public std::enable_shared_from_this<Record> {
   public:
    explicit Record(RecordRef record) : _record(std::move(record)) {}
    std::int32_t recordID() const override { return _record->recordID(); }
    std::string recordGUID() const override { return _record->recordGUID(); }
    std::int32_t linkID() const override { return _record->linkID(); }
    std::vector<RecordRef> allLinkedPeople() override { return {shared_from_this()}; }
    RecordRef preferredLinkedPersonForName() override { return nullptr; }
    std::optional<std::string> recordValue(RecordProperty property) const override {
      return _record->recordValue(property);
    }
    bool isPersonKind() const override { return _record->isPersonKind(); }
    std::optional<std::string> compositeName() const override { return _record->compositeName(); }
    std::optional<std::string> shortName() const override { return _record->shortName(); }
    std::optional<std::string> nickname() const override { return _record->nickname(); }
    std::optional<std::vector<std::string>> phoneValues() const override { return _record->phoneValues(); }
    std::optional<std::vector<std::string>> emailValues() const override { return _record->emailValues(); }
    std::optional<MultiValue> copyMultiValue(RecordProperty property) const override {
      return _record->copyMultiValue(property);
    }
    void setRecordValue(RecordProperty property, RecordValue value) override {
      _record->setRecordValue(property, std::move(value));
    }

   private:
    const RecordRef _record;
  };

  class Handle : public AddressBook {
   public:
    Handle(AddressBook& book, const bool& fails) : _book(book), _fails(fails) {}
    bool isReadable() override { return !_hasFailed && _book.isReadable(); }
    std::optional<std::string> databaseUID() override { return _book.databaseUID(); }
    std::int32_t sequenceNumber() override { return _book.sequenceNumber(); }
    RecordRef copyPersonMatchingGUID(std::string_view guid) override {
      return without(_book.copyPersonMatchingGUID(guid));
    }
    RecordRef personForRecordID(std::int32_t recordID) override { return without(_book.personForRecordID(recordID)); }
    std::optional<std::vector<RecordRef>> copyPeopleMatchingName(std::string_view name) override {
      return without(_book.copyPeopleMatchingName(name));
    }
    std::optional<std::vector<RecordRef>> orderedPeopleForDestination(std::string_view destination) override {
      return without(_book.orderedPeopleForDestination(destination));
    }
    std::vector<RecordRef> allPeople() override { return _book.allPeople(); }
    void withPeopleMatchingGUIDs(std::span<const std::string_view> guids, const std::function<void()>& work) override {
      _book.withPeopleMatchingGUIDs(guids, work);
    }
    std::optional<std::vector<std::string>> guidsOfPeopleChangedSince(std::int32_t number, std::size_t limit) override {
      return _book.guidsOfPeopleChangedSince(number, limit);
    }

   private:
    RecordRef without(RecordRef record) {
      if (!record || !_fails) return record;
      _hasFailed = true;
      return std::make_shared<Record>(std::move(record));
    }
    std::optional<std::vector<RecordRef>> without(std::optional<std::vector<RecordRef>> records) {
      if (records) {
        for (RecordRef& record : *records) record = without(std::move(record));
      }
      return records;
    }

    AddressBook& _book;
    const bool& _fails;
    bool _hasFailed = false;
  };

  const bool& _fails;
};

TEST_F(LookedUpAgainTest, ARecordWhoseLinksCannotBeReadIsNotTakenOver) {
  world.addressBook().add({.guid = "work", .emails = {{"", "work@example.org"}}});
  world.addressBook().link({guidOf("Ann"), "work"});
  for (const char* list : {"Ann#,Bob#", "Ann,Bob"}) {
    store(list);
    bool fails = false;
    ManagerProcess a(world, scheduler, std::string(TapnoteDomain), [&](Platform& platform) {
      platform.addressBook = std::make_shared<FailingLinks>(world.addressBook(), Process::current(), fails);
    });
    a.start();
    rest();
    const auto ann = a.friendAt(0, 0);
    const DestinationSet all{"01511000001", "ann@example.org", "work@example.org"};
    ASSERT_EQ(ann->allValuesCount(), 3U);
    const auto before = storedValue(PLFriendListKey);
    fails = true;
    world.addressBook().change("work", [](TestContact& contact) { contact.note = "another number"; });
    rest();
    EXPECT_EQ(ann->allValuesCount(), 3U);
    EXPECT_EQ(ann->abRecordGUID(), "guid-Ann");
    EXPECT_EQ(storedValue(PLFriendListKey), before);
    EXPECT_FALSE(a.run([&] { return a.manager().refreshAgainstAddressBook(); })) << "it stays due";
    a.kill();
  }
}

}  // namespace
}  // namespace pellor
