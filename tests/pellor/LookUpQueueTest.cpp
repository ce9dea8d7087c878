// The persons who have to be looked up again, without a manager.
#include "pellor/friends/internal/PLLookUpQueue.h"

#include "tests/pellor/OneProcess.h"

namespace pellor {
namespace {

class LookUpQueueTest : public OneProcess {
 protected:
  LookUpQueueTest() {
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

TEST_F(LookUpQueueTest, WhoWasLookedUpInContactsThatCouldNotBeReadIsLookedUpOnceTheyCan) {
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

}  // namespace
}  // namespace pellor
