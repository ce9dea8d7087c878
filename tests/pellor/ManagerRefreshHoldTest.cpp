// Contacts of which most are gone take no friend along.
#include "pellor/friends/PLPerson.h"
#include "tests/pellor/ManagerWorld.h"

namespace pellor {
namespace {

constexpr std::string_view Held = "refreshing friends is held back: only ";
constexpr std::string_view Refreshing = "refreshing friends against address book";

class ManagerRefreshHoldTest : public ManagerTest {
 protected:
  /// A process that has three friends, whose contacts are gone with all others.
  ManagerRefreshHoldTest() {
    setGroups(9, 4);
    contacts(names);
    a = launchWith("Ann#,Bob#,Cy#,-");
    for (const std::string& name : names) world.addressBook().remove(guidOf(name));
    pause();
  }

  void comeBack(std::size_t first, std::size_t count) {
    contacts({names.begin() + static_cast<std::ptrdiff_t>(first),
              names.begin() + static_cast<std::ptrdiff_t>(first + count)});
  }
  /// Everything that is not on the day's timer.
  void pause() { advance(1); }

  const std::vector<std::string> names{"Ann", "Bob", "Cy", "Dan", "Eve", "Fay", "Gus", "Hal", "Ida", "Jo"};
  std::unique_ptr<ManagerProcess> a;
};

TEST_F(ManagerRefreshHoldTest, NobodyIsUnlinkedUntilHalfOfTheContactsAreBack) {
  EXPECT_EQ(a->logged("refreshing friends is held back: only 0 of 10 contacts are there"), 1U);
  comeBack(0, 2);
  world.addressBook().change(guidOf("Bob"), [](TestContact& contact) { contact.first = "Rob"; });
  pause();
  EXPECT_EQ(a->logged(Held), 1U) << "once for each fall";
  EXPECT_FALSE(a->run([&] { return a->manager().refreshAgainstAddressBook(); }));
  EXPECT_EQ(a->logged(Refreshing), 0U);
  EXPECT_EQ(a->list(), "Ann,Bob,Cy,-|-,-,-,-");
  EXPECT_EQ(a->friendAt(0, 2)->abRecordGUID(), "guid-Cy");

  // What needs no refresh goes on, in a program that starts now too, and says so there.
  EXPECT_TRUE(a->add("Zoe"));
  pause();
  auto b = launch();
  pause();
  EXPECT_EQ(b->logged(Held), 1U);
  EXPECT_EQ(b->list(), "Ann,Bob,Cy,zoe@example.org|-,-,-,-");

  comeBack(4, 3);
  pause();
  EXPECT_EQ(a->logged("refreshing friends is held back no longer"), 1U);
  EXPECT_EQ(a->logged(Refreshing), 1U);
  EXPECT_EQ(a->list(), "Ann,Rob,Cy,zoe@example.org|-,-,-,-");
  EXPECT_EQ(a->friendAt(0, 2)->abRecordGUID(), std::nullopt) << "the contact is not among those that are back";
}

TEST_F(ManagerRefreshHoldTest, ALoadCleansNothingUpMeanwhile) {
  store("Ann#,Bob#,Ann#,-");
  a->run([&] { a->manager().reloadFriendList(); });
  EXPECT_EQ(a->list(), "Ann,Bob,Ann,-|-,-,-,-");
  comeBack(0, 10);
  pause();
  EXPECT_EQ(a->list(), "Ann,Bob,-,-|-,-,-,-");
}

}  // namespace
}  // namespace pellor
