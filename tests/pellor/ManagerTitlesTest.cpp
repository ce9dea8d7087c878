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

TEST_F(ManagerTitlesTest, ATitleGoesWithThePageThatAnotherProcessRemoved) {
  auto a = launchWith("Ann,-|Bob,Cy", {});
  auto b = launch();
  rest();
  a->setTitle(0, "Family");
  b->remove(0, 0);
  rest();
  EXPECT_EQ(a->list(), "Bob,Cy|-,-");
  EXPECT_EQ(a->titles(), "-|-");
  EXPECT_TRUE(a->process().settle(10));
  EXPECT_EQ(b->titles(), "-|-");
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
  EXPECT_EQ(storedTitles(), "Chess|Choir");
  EXPECT_EQ(a->titles(), "Chess|Choir");
  auto c = launch();
  EXPECT_EQ(c->list(), "Cy,-|-,-");
  EXPECT_EQ(c->titles(), "Chess|Choir");
}

TEST_F(ManagerTitlesTest, ACleanUpOfALoadTakesTitlesAlong) {
  // Ann stands in two groups: the second one goes before anybody has seen it.
  auto a = launchWith("Ann#,-|Ann#,-|Bob#,-", {"Family", "Twins", "Work"});
  EXPECT_EQ(a->list(), "Ann,-|Bob,-|-,-");
  EXPECT_EQ(a->titles(), "Family|Work|-");
  EXPECT_EQ(storedTitles(), "Family|Work|-");

  store("Ann#,-|Ann#,-|Cy#,-");
  storeTitles({"Home", "Twins", "Choir"});
  postListChanged();
  rest();
  EXPECT_EQ(a->list(), "Ann,-|Cy,-|-,-");
  EXPECT_EQ(a->titles(), "Home|Choir|-");
  EXPECT_EQ(storedTitles(), "Home|Choir|-");
}

TEST_F(ManagerTitlesTest, TitlesThatCouldNotBeWrittenFollowTheirPages) {
  auto a = launchWith("Ann,-|Bob,-|Cy,-", {"Family"});
  world.preferences().failWrites(3);
  a->setTitle(0, "Home");
  a->setTitle(2, "Work");
  a->run([&] { a->manager().saveFriendGroupTitles(); });
  world.bus().post(PLFriendGroupTitleChangedExternallyNotification);
  scheduler->runUntilQuiet();
  a->remove(1, 0);
  while (storedTitles() != "Home|Work|-") ASSERT_TRUE(scheduler->step());
  EXPECT_EQ(stored(2), "Ann,-|Cy,-|-,-");
  // What others wrote after that is what they had posted.
  storeTitles({"Friends"});
  rest();
  EXPECT_EQ(a->titles(), "Friends|Work|-");
}

// Whatever runs first on the save queue, older titles never follow newer ones, and a list never has other titles.
TEST_F(ManagerTitlesTest, OlderTitlesDoNotOverwriteNewerOnes) {
  for (std::uint64_t seed = 0; seed < 200; ++seed) {
    scheduler = std::make_shared<SimulatedScheduler>(seed);
    auto a = launchWith("Ann,-|Bob,-|Cy,-", {"Family", "Work", "Chess", ""});
    a->add("Dan");
    for (std::uint64_t steps = seed % 4; steps > 0; --steps) scheduler->step();
    a->run([&] { a->manager().saveFriendGroupTitles(); });
    a->remove(1, 0);
    a->run([&] { a->manager().saveFriendGroupTitles(); });
    for (std::size_t writes = world.preferences().writeCount(); scheduler->step();) {
      if (world.preferences().writeCount() == writes) continue;
      writes = world.preferences().writeCount();
      EXPECT_EQ(storedTitles(), stored(2).find("Bob") != std::string::npos ? "Family|Work|Chess|-" : "Family|Chess|-")
          << seed;
    }
    EXPECT_EQ(storedTitles(), "Family|Chess|-") << seed;
    a->kill();
  }
}

}  // namespace
}  // namespace pellor
