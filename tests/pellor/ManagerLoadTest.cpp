// How a manager comes by its list: settings, the first run, stored lists, stores that do not answer.
#include "tests/pellor/ManagerWorld.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ManagerLoadTest : public ManagerTest {};

TEST_F(ManagerLoadTest, TheFirstRunOfTheDefaultDomainMarksTheListAndCounts) {
  auto a = launch();
  EXPECT_TRUE(a->manager().isLoaded());
  EXPECT_EQ(a->logged("friend list does not yet exist, starting with an empty list"), 1U);
  rest();
  EXPECT_EQ(a->list(), "-,-,-,-,-,-,-,-,-,-,-,-");
  EXPECT_EQ(stored(), "-,-,-,-,-,-,-,-,-,-,-,-");
  EXPECT_EQ(storedValue(PLDidNormalizeFriendListDestinationsKey), Value(true));
  EXPECT_EQ(world.counters().value("org.tapnote.tn.friendList.size"), 0);
  EXPECT_EQ(world.counters().value("org.tapnote.tn.friendGroups.count"), 0);

  setGroups(5, 2);
  launchWith("Ann,-|Bob,Cy");
  EXPECT_EQ(world.counters().value("org.tapnote.tn.friendList.size"), 3);
  EXPECT_EQ(world.counters().value("org.tapnote.tn.friendGroups.count"), 2) << "without the empty one at the end";
}

TEST_F(ManagerLoadTest, SettingsAreWrittenForManagersThatComeLater) {
  auto a = makeProcess();
  a->run([&] {
    auto now = PLFriendsManager::managerForDomain(OtherDomain);
    EXPECT_TRUE(PLFriendsManager::setMaxGroupCountDomain(3, OtherDomain));
    EXPECT_TRUE(PLFriendsManager::setGroupSizeDomain(2, OtherDomain));
    EXPECT_TRUE(PLFriendsManager::setEnableEmptyTrailingGroupDomain(false, OtherDomain));
    EXPECT_TRUE(PLFriendsManager::setRefreshAgainstContactsOnInitEnabledDomain(false, OtherDomain));
    EXPECT_TRUE(PLFriendsManager::setFriendsChangedExternallyNotificationNameDomain("list", OtherDomain));
    EXPECT_TRUE(PLFriendsManager::setFriendGroupTitleChangedExternallyNotificationNameDomain("titles", OtherDomain));
    EXPECT_EQ(now->maxGroupCount(), 20U);
    EXPECT_EQ(PLFriendsManager::managerForDomain(OtherDomain), now);
    EXPECT_NE(PLFriendsManager::managerForDomain(std::string(TapnoteDomain)), now);
    EXPECT_EQ(PLFriendsManager::initWithDomain(std::nullopt)->domain(), "org.tapnote.TN");
  });
  rest();
  auto b = launch(OtherDomain);
  EXPECT_EQ(b->manager().maxGroupCount(), 3U);
  EXPECT_FALSE(b->manager().isRefreshAgainstContactsEnabled());
  rest();
  EXPECT_TRUE(b->add("Ann") && b->add("Bob"));
  EXPECT_FALSE(b->add("Cy")) << "no group is added behind a full one";
  rest();
  EXPECT_EQ(world.bus().postCount("list"), 1U);
  storeTitles({"Family"}, OtherDomain);
  world.bus().post("titles");
  rest();
  EXPECT_EQ(b->titles(), "Family");
}

TEST_F(ManagerLoadTest, LoadsTellWhatChanged) {
  setGroups(4, 2);
  store("Ann,Bob|-,-");
  auto a = launch();
  EXPECT_TRUE(a->manager().didLastLoadHaveChanges());
  rest();
  EXPECT_THAT(a->takeNotifications(), ElementsAre("groups changed", "groups changed", "changed Ann+ Bob+"));

  a->run([&] { a->manager().reloadFriendList(); });
  rest();
  EXPECT_FALSE(a->manager().didLastLoadHaveChanges());
  EXPECT_THAT(a->takeEvents(),
              ElementsAre("a friend list reload was requested", "loaded friend list", "friend list has no changes"));

  store("Ann,Cy|-,-");
  const auto ann = a->friendAt(0, 0);
  postListChanged();
  rest();
  EXPECT_TRUE(a->manager().didLastLoadHaveChanges());
  EXPECT_EQ(a->logged("friend list has changes"), 1U);
  EXPECT_THAT(a->takeNotifications(), ElementsAre("changed Cy+ Bob-"));
  EXPECT_EQ(a->friendAt(0, 0), ann);

  store("Ann");
  postListChanged();
  rest();
  EXPECT_THAT(a->takeNotifications(), ElementsAre("groups changed", "changed Cy-")) << "half a page, of smaller ones";
  EXPECT_EQ(a->list(), "Ann,-|-,-");
}

// --- Stores that do not answer ---

TEST_F(ManagerLoadTest, AManagerWhoseStoreDoesNotAnswerStartsLater) {
  for (const bool isFirstRun : {false, true}) {
    world.favorites().setEntries({{"Ann", mailOf("Ann"), 1}});
    world.preferences().makeUnreadable();
    auto a = launch();
    EXPECT_FALSE(a->manager().isLoaded());
    EXPECT_EQ(a->list(), "");
    EXPECT_FALSE(a->add("Ann"));
    a->run([&] {
      a->manager().save();
      a->manager().saveFriendGroupTitles();
      a->manager().markFriendListAsNormalized();
      a->manager().purgeEmptyFriendGroups();
      a->manager().reloadFriendList();
      EXPECT_FALSE(a->manager().refreshAgainstAddressBook());
    });
    advance(100);
    EXPECT_EQ(world.preferences().writeCount(), 0U);

    setGroups(2, 2);
    if (!isFirstRun) store("Bob,-");
    if (!isFirstRun) storeTitles({"Family"});
    world.preferences().makeReadable();
    postListChanged();
    rest();
    EXPECT_EQ(a->list(), isFirstRun ? "Ann,-|-,-" : "Bob,-|-,-") << "laid out by the settings that can be read now";
    EXPECT_EQ(a->titles(), isFirstRun ? "Favorites|-" : "Family|-");
    EXPECT_EQ(stored(2), isFirstRun ? "Ann,-|-,-" : "Bob,-");
    a->kill();
    for (const auto key : {PLFriendListKey, PLGroupTitlesKey}) {
      world.preferences().setValue(key, std::nullopt, std::string(TapnoteDomain));
    }
    world.preferences().clearRecords();
  }
}

TEST_F(ManagerLoadTest, AReloadFromAStoreThatDoesNotAnswerKeepsTheList) {
  setGroups(3, 2);
  auto a = launchWith("Ann,-|Bob,-");
  a->setTitle(0, "Family");
  world.preferences().makeUnreadable();
  postListChanged();
  scheduler->runUntilQuiet();
  EXPECT_EQ(a->list(), "Ann,-|Bob,-|-,-");
  EXPECT_FALSE(a->run([&] { return a->manager().refreshAgainstAddressBook(); })) << "who knows what was refreshed";

  a->add("Cy");
  a->run([&] { a->friendAt(1, 0)->setMetadataValueForKey(Value("blue"), "color"); });
  EXPECT_FALSE(a->settle(200)) << "not everything is written";
  EXPECT_EQ(stored(2), "Ann,-|Bob,-");
  EXPECT_EQ(world.bus().postCount(PLFriendsChangedExternallyNotification), 1U) << "that of this test alone";

  world.preferences().makeReadable();
  EXPECT_TRUE(a->settle(200));
  EXPECT_EQ(a->list(), "Ann,cy@example.org|Bob,-|-,-");
  EXPECT_EQ(stored(2), "Ann,?|Bob,-|-,-");
  EXPECT_EQ(storedTitles(), "Family|-|-");
  EXPECT_EQ(launch()->friendAt(1, 0)->metadataValueForKey("color"), Value("blue"));
}

// --- Damaged lists ---

using Damage = std::pair<const char*, Value>;

class DamagedListTest : public ManagerTest, public ::testing::WithParamInterface<Damage> {
 protected:
  DamagedListTest() { setGroups(3, 2); }

  void damage() { world.preferences().damage(PLFriendListKey, GetParam().second, std::string(TapnoteDomain)); }
  std::size_t putAside() { return world.preferences().putAsideCopies().size(); }
};

TEST_P(DamagedListTest, WithoutAGoodCopyTheListStartsEmptyAndWhatIsAddedStays) {
  world.favorites().setEntries({{"Ann", mailOf("Ann"), 1}});
  damage();
  world.preferences().failWrites();
  auto a = launch();
  EXPECT_EQ(a->list(), "-,-");
  a->add("Ann");
  postListChanged();
  advance(1);
  EXPECT_EQ(a->list(), "ann@example.org,-|-,-");
  world.preferences().allowWrites();
  rest();
  EXPECT_EQ(a->list(), "ann@example.org,-|-,-");
  EXPECT_EQ(stored(2), "?,-|-,-");
  EXPECT_EQ(a->titles(), "-|-");
  EXPECT_EQ(a->logged("damaged"), 1U);
  ASSERT_EQ(putAside(), 1U);
  EXPECT_EQ(world.preferences().putAsideCopies()[0].value, GetParam().second);
}

TEST_P(DamagedListTest, ARunningManagerPutsItRightOnce) {
  auto a = launchWith("Ann,Bob");
  damage();
  world.preferences().failWrites();
  postListChanged();
  advance(1);
  postListChanged();
  advance(1);
  EXPECT_EQ(a->list(), "Ann,Bob|-,-");
  EXPECT_EQ(a->logged("damaged"), 1U);
  EXPECT_EQ(putAside(), 1U);
  world.preferences().allowWrites();
  rest();
  EXPECT_EQ(stored(2), "Ann,Bob|-,-");

  // The same damage once more is another one: the list has changed since.
  a->add("Cy");
  rest();
  damage();
  postListChanged();
  rest();
  EXPECT_EQ(a->list(), "Ann,Bob|cy@example.org,-|-,-");
  EXPECT_EQ(stored(2), "Ann,Bob|?,-|-,-");
  EXPECT_EQ(putAside(), 2U);
}

TEST_P(DamagedListTest, WhatCannotBeKeptIsNotWrittenOverElseTheLastGoodCopyTakesItsPlace) {
  store("Ann,Bob");
  damage();
  world.preferences().setPutAsideFails(true);
  auto a = launch();
  a->run([&] { a->manager().saveFriendGroupTitles(); });
  advance(100);
  EXPECT_FALSE(a->manager().isLoaded());
  EXPECT_THAT(a->takeNotifications(), IsEmpty());
  EXPECT_EQ(world.preferences().writeCount(), 0U);
  world.preferences().setPutAsideFails(false);
  rest();
  EXPECT_EQ(a->list(), "Ann,Bob|-,-");
  EXPECT_EQ(stored(2), "Ann,Bob|-,-");
  EXPECT_EQ(a->logged("damaged"), 1U);
  EXPECT_EQ(putAside(), 1U);
}

INSTANTIATE_TEST_SUITE_P(All, DamagedListTest,
                         ::testing::Values(Damage{"Bytes", Data{0x9f, 0x01}}, Damage{"Dictionary", Dictionary{}},
                                           Damage{"Text", "Ann"}),
                         [](const auto& damage) { return damage.param.first; });

}  // namespace
}  // namespace pellor
