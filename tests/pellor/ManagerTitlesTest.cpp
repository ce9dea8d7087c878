// Titles stay with their pages.
#include "tests/pellor/ManagerWorld.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;

class ManagerTitlesTest : public ManagerTest {
 protected:
  ManagerTitlesTest() { setGroups(4, 2); }

  std::unique_ptr<ManagerProcess> launchWith(const std::string& list, const std::vector<std::string>& titles) {
    storeTitles(titles);
    return ManagerTest::launchWith(list);
  }
};

TEST_F(ManagerTitlesTest, StoredTitlesGoToTheGroupsThatAreThere) {
  auto a = launchWith("Ann,-|Bob,-", {"Family"});
  EXPECT_EQ(a->titles(), "Family|-|-");
  const auto titlesAfter = [&](const Value& titles) {
    world.preferences().setValue(PLGroupTitlesKey, titles, a->domain());
    world.bus().post(PLFriendGroupTitleChangedExternallyNotification);
    rest();
    return a->titles();
  };
  EXPECT_EQ(titlesAfter(Array{"Friends", "Work", "Chess", "Choir", "Club"}), "Friends|Work|Chess");
  EXPECT_EQ(a->logged("Handling external group-title-changed event."), 1U);
  EXPECT_EQ(titlesAfter(Array{"Home"}), "Home|Work|Chess");
  EXPECT_EQ(titlesAfter(Array{7, "Office"}), "Home|Office|Chess");
  EXPECT_EQ(titlesAfter("no titles"), "Home|Office|Chess");
}

TEST_F(ManagerTitlesTest, SavingTakesTheTitlesAsTheyAreAtTheCall) {
  auto a = launchWith("Ann,-|Bob,-", {});
  a->setTitle(1, "Work");
  a->run([&] { a->manager().saveFriendGroupTitles(); });
  a->setTitle(0, "Later");
  rest();
  EXPECT_EQ(storedTitles(), "-|Work|-");
  ASSERT_EQ(world.preferences().writeCount(), 1U);
  EXPECT_THAT(world.preferences().writes()[0].keys, ElementsAre("TNFriendGroupTitles"));
}

TEST_F(ManagerTitlesTest, ARemovedPageTakesItsTitleAlongInEveryProcess) {
  world.pairedDevice().setCompletedInitialSync(true);
  auto a = launchWith("Ann,-|Bob,-|Cy,-", {"Family", "Work", "Chess", "Choir"});
  auto b = launch();
  rest();
  world.preferences().clearRecords();
  world.pairedDevice().clearPushes();
  a->remove(0, 0);
  EXPECT_EQ(a->titles(), "Work|Chess|Choir");
  rest();
  EXPECT_EQ(stored(2), "Bob,-|Cy,-|-,-");
  EXPECT_EQ(storedTitles(), "Work|Chess|Choir");
  ASSERT_EQ(world.preferences().writeCount(), 1U);
  EXPECT_THAT(world.preferences().writes()[0].keys, ElementsAre("FriendList", "TNFriendGroupTitles"));
  ASSERT_EQ(world.pairedDevice().pushes().size(), 1U);
  EXPECT_EQ(world.pairedDevice().pushes()[0].keys, (std::set<std::string>{"FriendList", "TNFriendGroupTitles"}));
  EXPECT_EQ(b->titles(), "Work|Chess|Choir");

  // A process that only hears of it passes the titles on rightly when it removes the next page.
  b->remove(0, 0);
  rest();
  EXPECT_EQ(a->titles(), "Chess|Choir");
  EXPECT_EQ(launch()->titles(), "Chess|Choir");
}

}  // namespace
}  // namespace pellor
