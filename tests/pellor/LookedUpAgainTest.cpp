// Whoever was looked up while the contacts could not be read, or not to the end.
#include "pellor/friends/PLPerson.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/Process.h"
#include "pellor/testing/internal/InMemoryAddressBookStore.h"
#include "pellor/testing/internal/ProcessLink.h"
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

/// Contacts of which no look-up comes to its end while `fails`: what it gives may lack links.
class FailingContacts : public InMemoryAddressBookStore {
 public:
  FailingContacts(InMemoryAddressBook& database, Process& process, const bool& fails)
      : InMemoryAddressBookStore(database.shared_from_this(), process),
        _handle(std::make_shared<Handle>(database.shared_from_this(), ProcessLink::of(process), fails)) {}

  void performWithAddressBook(const std::function<void(AddressBook&)>& work) override {
    _handle->hasFailed = false;
    work(*_handle);
  }

 private:
  struct Handle : InMemoryAddressBookHandle {
    Handle(std::shared_ptr<InMemoryAddressBook> database, std::shared_ptr<ProcessLink> link, const bool& isFailing)
        : InMemoryAddressBookHandle(std::move(database), std::move(link)), fails(isFailing) {}

    bool isReadable() override { return !hasFailed && InMemoryAddressBookHandle::isReadable(); }
    RecordRef copyPersonMatchingGUID(std::string_view guid) override {
      hasFailed = fails;
      return InMemoryAddressBookHandle::copyPersonMatchingGUID(guid);
    }
    std::optional<std::vector<RecordRef>> orderedPeopleForDestination(std::string_view destination) override {
      hasFailed = fails;
      return InMemoryAddressBookHandle::orderedPeopleForDestination(destination);
    }

    const bool& fails;
    bool hasFailed = false;
  };

  const std::shared_ptr<Handle> _handle;
};

TEST_F(LookedUpAgainTest, ARecordWhoseLinksCannotBeReadIsNotTakenOver) {
  store("Ann#,-");
  bool fails = false;
  ManagerProcess a(world, scheduler, std::string(TapnoteDomain), [&](Platform& platform) {
    platform.addressBook = std::make_shared<FailingContacts>(world.addressBook(), Process::current(), fails);
  });
  world.addressBook().add({.guid = "work", .emails = {{"", "work@example.org"}}});
  world.addressBook().link({guidOf("Ann"), "work"});
  a.start();
  rest();
  const auto ann = a.friendAt(0, 0);
  ASSERT_EQ(ann->allValuesCount(), 3U);
  const auto before = storedValue(PLFriendListKey);
  fails = true;
  world.addressBook().unlink("work");
  rest();
  EXPECT_EQ(ann->allValuesCount(), 3U);
  EXPECT_EQ(storedValue(PLFriendListKey), before);
  EXPECT_FALSE(a.run([&] { return a.manager().refreshAgainstAddressBook(); })) << "it stays due";
  const auto found = a.run([&] { return a.manager().personWithDestinations({mailOf("Bob")}); });
  EXPECT_EQ(found->abRecordGUID(), std::nullopt);
  fails = false;
  EXPECT_TRUE(a.run([&] { return a.manager().refreshAgainstAddressBook(); }));
  EXPECT_EQ(ann->allValuesCount(), 2U) << "what was true of it could be read";
  EXPECT_EQ(a.run([&] { return a.manager().personWithDestinations({mailOf("Bob")}); }), found);
  EXPECT_EQ(found->abRecordGUID(), "guid-Bob");
}

}  // namespace
}  // namespace pellor
