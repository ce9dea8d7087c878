// Whom a refresh passes over.
#include "Pellor/PLReconciledFriends.h"

#include "Pellor/PLSlot.h"
#include "tests/pellor/ChangingContacts.h"
#include "tests/pellor/OneProcess.h"

namespace pellor {
namespace {

class ReconciledFriendsTest : public OneProcess {
 protected:
  ReconciledFriendsTest() {
    for (const char* name : {"Ann", "Bob", "Cy"}) {
      const std::string guid = world.addressBook().add({.guid = name, .first = name});
      friends.push_back(PLPerson::initWithABRecordGUIDAddressBook(guid, book()));
    }
  }

  void rename(const std::string& guid) {
    world.addressBook().change(guid, [](TestContact& contact) { contact.first = *contact.first + "a"; });
  }
  /// The slots whose friends a refresh of these slots looks up.
  std::vector<std::uint64_t> lookedUp(const std::vector<Slot>& slots, bool isComplete = true) {
    std::vector<std::uint64_t> indices;
    contacts.performWithAddressBook([&](AddressBook& addressBook) {
      reconciled.begin(contacts, addressBook, slots.size());
      for (std::uint64_t index = 0; index < slots.size(); ++index) {
        if (!slots[index] || reconciled.passOver(index, *slots[index], addressBook)) continue;
        indices.push_back(index);
        slots[index]->refreshWithAddressBook(&addressBook);
        reconciled.note(index, *slots[index]);
      }
      reconciled.end(isComplete);
    });
    return indices;
  }

  std::function<void()> beforeQuestion = [] {};
  ChangingContacts contacts{world.addressBook(), process, [this] { beforeQuestion(); }};
  PLReconciledFriends reconciled;
  std::vector<Slot> friends;
};

using Indices = std::vector<std::uint64_t>;

TEST_F(ReconciledFriendsTest, WhoWasLeftOutOfARefreshIsLookedUpByTheNext) {
  const Slot ann = friends[0], bob = friends[1], cy = friends[2];
  EXPECT_EQ(lookedUp({ann, bob, cy}), (Indices{0, 1, 2}));
  EXPECT_EQ(lookedUp({ann, bob, cy}), Indices{});
  const struct {
    const char* what;
    std::vector<Slot> meanwhile;
  } rows[] = {{"an empty slot", {ann, EmptySlot, cy}}, {"a shorter list", {ann}}, {"another slot", {ann, cy, bob}}};
  for (const auto& [what, meanwhile] : rows) {
    rename("Bob");
    lookedUp(meanwhile);
    EXPECT_THAT(lookedUp({ann, bob, cy}), testing::Contains(1)) << what;
    EXPECT_EQ(bob->displayName(), world.addressBook().contact("Bob")->first) << what;
    EXPECT_EQ(lookedUp({ann, bob, cy}), Indices{}) << what;
  }
  lookedUp({ann, bob, cy}, false);
  EXPECT_EQ(lookedUp({ann, bob, cy}), (Indices{0, 1, 2})) << "after one that did not run to its end";
}

TEST_F(ReconciledFriendsTest, WhatChangesBetweenTwoQuestionsIsLookedUpThenOrTheNextTime) {
  lookedUp(friends);
  unsigned question = 0, count = 0;
  do {
    rename("Cy");
    count = 0;
    beforeQuestion = [&] {
      if (count++ == question) rename("Ann");
    };
    lookedUp(friends);
    beforeQuestion = [] {};
    lookedUp(friends);
    EXPECT_EQ(friends[0]->displayName(), world.addressBook().contact("Ann")->first) << "before question " << question;
  } while (++question < count);
  EXPECT_GE(count, 4U);
}

}  // namespace
}  // namespace pellor
