// Whom a refresh passes over.
#include "Pellor/PLReconciledFriends.h"

#include "Pellor/PLSlot.h"
#include "tests/pellor/OneProcess.h"

namespace pellor {
namespace {

using Indices = std::vector<std::uint64_t>;

class ReconciledFriendsTest : public OneProcess {
 protected:
  Slot friendNamed(const std::string& name) {
    return PLPerson::initWithABRecordGUIDAddressBook(world.addressBook().add({.guid = name, .first = name}), book());
  }
  /// The slots whose friends a refresh of these slots looks up.
  Indices lookedUp(const std::vector<Slot>& slots, bool isComplete = true) {
    Indices indices;
    reconciled.begin(*platform.addressBook, *book(), slots.size());
    for (std::uint64_t index = 0; index < slots.size(); ++index) {
      if (!slots[index] || reconciled.passOver(index, *slots[index], *book())) continue;
      indices.push_back(index);
      slots[index]->refreshWithAddressBook(book());
      reconciled.note(index, *slots[index]);
    }
    reconciled.end(isComplete);
    return indices;
  }

  PLReconciledFriends reconciled;
};

TEST_F(ReconciledFriendsTest, WhoWasLeftOutOfARefreshIsLookedUpByTheNext) {
  const Slot ann = friendNamed("Ann"), bob = friendNamed("Bob"), cy = friendNamed("Cy");
  EXPECT_EQ(lookedUp({ann, bob, cy}), (Indices{0, 1, 2}));
  EXPECT_EQ(lookedUp({ann, bob, cy}), Indices{});
  for (const auto& meanwhile : {std::vector{ann, EmptySlot, cy}, {ann}, {ann, cy, bob}}) {
    world.addressBook().change("Bob", [](TestContact& contact) { contact.first = *contact.first + "a"; });
    lookedUp(meanwhile);
    EXPECT_THAT(lookedUp({ann, bob, cy}), testing::Contains(1));
    EXPECT_EQ(bob->displayName(), world.addressBook().contact("Bob")->first);
    EXPECT_EQ(lookedUp({ann, bob, cy}), Indices{});
  }
  lookedUp({ann, bob, cy}, false);
  EXPECT_EQ(lookedUp({ann, bob, cy}), (Indices{0, 1, 2})) << "after one that did not run to its end";
}

}  // namespace
}  // namespace pellor
