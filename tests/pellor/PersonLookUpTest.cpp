// Persons looked up, and those who have to be looked up again, without a manager.
#include "pellor/friends/internal/PLPersonLookUp.h"

#include "pellor/friends/internal/PLSlotList.h"
#include "tests/pellor/OneProcess.h"

namespace pellor {
namespace {

class PersonLookUpTest : public OneProcess {
 protected:
  PersonLookUpTest() {
    for (const std::string name : {"ann", "bob"}) {
      world.addressBook().add({.guid = name, .first = name, .emails = {{"", name + "@example.org"}}});
    }
  }

  /// Looks a person up, as who asks for one does.
  std::shared_ptr<PLPerson> lookUp(const std::string& address) {
    auto person = PLPerson::initWithDestinationsAddressBook({address}, book());
    queue.note(person, *book());
    return person;
  }
  void setReadable(bool isReadable) {
    world.addressBook().setReadable(isReadable);
    settle();
  }

  PLLookUpQueue queue;
};

TEST_F(PersonLookUpTest, WhoWasLookedUpInContactsThatCouldNotBeReadIsLookedUpOnceTheyCan) {
  const auto bob = lookUp("bob@example.org");
  setReadable(false);
  const auto ann = lookUp("ann@example.org");
  const auto stranger = lookUp("zoe@example.org");
  std::weak_ptr<PLPerson> dropped = lookUp("bob@example.org");
  EXPECT_TRUE(dropped.expired()) << "the queue holds nobody";
  queue.note(nullptr, *book());
  queue.lookUpAgain(*platform.addressBook);
  EXPECT_EQ(ann->abRecordGUID(), std::nullopt) << "still unreadable";
  setReadable(true);
  world.addressBook().change("bob", [](TestContact& contact) { contact.first = "Rob"; });
  queue.lookUpAgain(*platform.addressBook);
  EXPECT_EQ(ann->abRecordGUID(), "ann");
  EXPECT_EQ(stranger->abRecordGUID(), std::nullopt);
  EXPECT_EQ(bob->displayName(), "bob") << "was looked up already";
  world.addressBook().change("ann", [](TestContact& contact) { contact.first = "Anna"; });
  queue.lookUpAgain(*platform.addressBook);
  EXPECT_EQ(ann->displayName(), "ann") << "once";
}

TEST_F(PersonLookUpTest, WhoWasLookedUpIsTheSamePersonUntilAFriendTakesTheKey) {
  PLSlotList friends;
  PLPersonLookUp lookUp(*platform.addressBook, friends.people());
  lookUp.beginRebuild();
  lookUp._createAddressToPersonDictionary();
  const auto ann = lookUp.personWithDestinations({"ann@example.org"});
  EXPECT_EQ(ann->abRecordGUID(), "ann");
  EXPECT_EQ(lookUp.personWithDestinations({"zoe@example.org", "ann@example.org"}), ann);
  EXPECT_EQ(lookUp.personWithABRecordGUID("ann"), ann);
  EXPECT_NE(lookUp.personWithDestinations({"?"}), lookUp.personWithDestinations({"?"})) << "known by nothing";

  // She becomes a friend and leaves again.
  friends.append(ann);
  lookUp.noteFriend(ann.get());
  EXPECT_EQ(lookUp.personWithABRecordGUID("ann"), ann);
  lookUp._removePersonFromIdentifiersToPersonMap(*ann);
  friends.set(0, EmptySlot);
  EXPECT_NE(lookUp.personWithABRecordGUID("ann"), ann);

  // After a load the sourced persons win.
  const auto bob = lookUp.personWithABRecordGUID("bob");
  lookUp.beginRebuild();
  friends.set(0, PLPerson::initWithABRecordGUIDAddressBook("bob", book()));
  lookUp._createAddressToPersonDictionary();
  EXPECT_EQ(lookUp.personWithDestinations({"bob@example.org"}), bob);
  lookUp.noteFriend(bob.get());
  lookUp.beginRebuild();
  lookUp._createAddressToPersonDictionary();
  EXPECT_EQ(lookUp.personWithDestinations({"bob@example.org"}), friends.at(0));
}

}  // namespace
}  // namespace pellor
