// What an edit changes, tells and asks for, and in which order.
#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/PLPerson.h"
#include "tests/pellor/ManagerWorld.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ManagerEditTest : public ManagerTest {
 protected:
  ManagerEditTest() {
    setGroups(3, 2);
    contacts({"Ann", "Bob", "Cy", "Dan", "Eve", "Fay"});
  }

  /// What the process did, in order. The save runs beside the rest; `hasSaved` tells that it ran, once.
  std::vector<std::string> eventsOf(ManagerProcess& process, bool hasSaved = true) {
    rest();
    auto events = process.takeEvents();
    EXPECT_EQ(std::erase(events, "friend list saved"), hasSaved ? 1U : 0U);
    EXPECT_EQ(world.preferences().writeCount(), hasSaved ? 1U : 0U);
    world.preferences().clearRecords();
    return events;
  }

  static const std::string posting(int count) {
    return "posting PLFriendsManagerChangedNotification with " + std::to_string(count) + " changelog " +
           (count == 1 ? "entry" : "entries");
  }
};

TEST_F(ManagerEditTest, AddingFillsTheFirstGroupWithRoomAndKeepsAnEmptyOneBehind) {
  auto a = launchWith("-,-");
  EXPECT_TRUE(a->add("Ann"));
  EXPECT_EQ(a->list(), "Ann,-|-,-");
  EXPECT_THAT(eventsOf(*a),
              ElementsAre("setting [Ann] in friend list at position 0", "groups changed", posting(1), "changed Ann+"));
  EXPECT_EQ(stored(2), "Ann,-|-,-");

  a->set(a->person("Bob"), 1, 1);
  a->add("Cy");
  EXPECT_EQ(a->list(), "Ann,Cy|-,Bob|-,-");
  EXPECT_THAT(eventsOf(*a),
              ElementsAre("setting [Bob] in friend list at position 1", "setting [Cy] in friend list at position 1",
                          "groups changed", posting(2), "changed Bob+ Cy+"));
  for (const char* name : {"Dan", "Eve", "Fay"}) EXPECT_TRUE(a->add(name));
  EXPECT_EQ(a->list(), "Ann,Cy|Dan,Bob|Eve,Fay") << "no group behind the last one that may be";
  EXPECT_FALSE(a->run([&] { return a->manager().canAddFriend(); }));
  eventsOf(*a);
  EXPECT_FALSE(a->add("Ann"));
  EXPECT_FALSE(a->run([&] { return a->manager().addFriend(nullptr); }));
  EXPECT_THAT(eventsOf(*a, false), IsEmpty());
  EXPECT_EQ(world.counters().value("org.tapnote.tn.friendList.size"), 6);
  EXPECT_EQ(world.counters().value("org.tapnote.tn.friendGroups.count"), 2);
}

TEST_F(ManagerEditTest, RemovingTellsOfTheFriendAndOfTheGroupThatEmptied) {
  auto a = launchWith("Ann,Bob|Cy,-|Dan,-");
  a->remove(0, 1);
  EXPECT_THAT(eventsOf(*a),
              ElementsAre("Removing friend [Bob] from position 1 in friend group", posting(1), "changed Bob-"));
  a->remove(1, 0);
  EXPECT_EQ(a->list(), "Ann,-|Dan,-");
  EXPECT_THAT(eventsOf(*a), ElementsAre("Removing friend [Cy] from position 0 in friend group", "groups changed",
                                        posting(1), "changed Cy-"));
  EXPECT_EQ(stored(2), "Ann,-|Dan,-");
  a->remove(1, 1);
  EXPECT_THAT(eventsOf(*a, false), ElementsAre("Position 1 is already empty"));
  EXPECT_EQ(world.counters().value("org.tapnote.tn.friendList.size"), 2);
  EXPECT_EQ(world.counters().value("org.tapnote.tn.friendGroups.count"), 1);
}

TEST_F(ManagerEditTest, AGroupThatTheManagerNoLongerHoldsReportsToNobody) {
  auto a = launchWith("Ann,-|Bob,-");
  const auto gone = a->group(0);
  const auto ann = a->friendAt(0, 0);
  a->remove(0, 0);
  eventsOf(*a);
  a->run([&] {
    std::uint32_t error = PLFriendGroupErrorNone;
    gone->setFriendAtPosition(ann, 1, error);
    a->manager().syncFriendGroup(gone);
  });
  EXPECT_EQ(a->list(), "Bob,-|-,-");
  eventsOf(*a, false);
}

TEST_F(ManagerEditTest, ObserversMayEdit) {
  auto a = launchWith("Ann,-|Bob,-");
  std::shared_ptr<Observation> observation;
  a->run([&] {
    observation = a->process().notificationCenter().addObserver(
        std::string(PLFriendsManagerChangedNotification), [&](const Notification& notification) {
          EXPECT_EQ(notification.objectAs<PLFriendsManager>(), a->sharedManager());
          if (a->manager().friendGroups().size() > 2) a->group(0)->removeFriendAtPosition(0);
        });
  });
  a->add("Cy");
  rest();
  EXPECT_EQ(a->list(), "-,Cy|Bob,-|-,-");
  EXPECT_EQ(stored(2), "-,Cy|Bob,-|-,-");
  EXPECT_THAT(a->takeNotifications(), ElementsAre("changed Cy+", "changed Ann-"));
}

}  // namespace
}  // namespace pellor
