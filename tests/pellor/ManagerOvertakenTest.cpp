// Edits of several processes at the same moment: what each sees, and what is stored.
#include <utility>

#include "pellor/platform/Platform.h"
#include "tests/pellor/ManagerWorld.h"
#include "tests/pellor/SlowStore.h"

namespace pellor {
namespace {

class ManagerOvertakenTest : public ManagerTest {
 protected:
  ManagerOvertakenTest() { setGroups(4, 3); }

  /// Two processes on that list, at rest.
  void launchBoth(const std::string& list, const std::vector<std::string>& titles = {}) {
    if (!titles.empty()) storeTitles(titles);
    a = launchWith(list);
    b = launch();
    rest();
    a->takeEvents();
    b->takeEvents();
  }
  /// Both have the list that is stored.
  std::string agreed() {
    rest();
    EXPECT_EQ(a->list(), b->list());
    EXPECT_EQ(a->manager().invariantViolation(), std::nullopt);
    const std::string list = a->list();
    a->kill();
    b->kill();
    a = launch();
    EXPECT_EQ(a->list(), list) << "after a restart";
    return list;
  }

  std::unique_ptr<ManagerProcess> a, b;
};

TEST_F(ManagerOvertakenTest, AStoredListWhoseLastPageIsShortIsMergedAsIfItWereWhole) {
  struct Case {
    const char* what;
    std::function<void(ManagerProcess&)> edit;
    const char* merged;
  };
  const Case cases[] = {
      {"an edit of another page", [](ManagerProcess& process) { process.remove(0, 1); }, "Ann,-,-|Cy,Dan,-"},
      {"into a slot that it has", [](ManagerProcess& process) { process.set(process.person("Eve"), 1, 1); },
       "Ann,Bob,-|Cy,Dan,eve@example.org"},
      {"into a slot that it lacks", [](ManagerProcess& process) { process.set(process.person("Eve"), 1, 2); },
       "Ann,Bob,-|Cy,Dan,eve@example.org"},
      {"out of that page", [](ManagerProcess& process) { process.remove(1, 0); }, "Ann,Bob,-|-,Dan,-"},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.what);
    launchBoth("Ann,Bob,-|Cy,-,-");
    store("Ann,Bob,-|Cy,Dan");
    each.edit(*a);
    EXPECT_TRUE(a->settle());
    EXPECT_EQ(agreed(), std::string(each.merged) + "|-,-,-");
  }
}

TEST_F(ManagerOvertakenTest, StoredTitlesGoToTheGroupsThatAreThere) {
  launchBoth("Ann,-,-|Bob,-,-", {"Family"});
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

// Who removes a page moves the titles behind it, also those that it has not heard of.
TEST_F(ManagerOvertakenTest, TitlesThatWereSetElsewhereMoveWithTheirPages) {
  for (const bool isHeardOf : {false, true}) {
    launchBoth("Ann,-,-|Bob,-,-|Cy,-,-");
    b->remove(0, 0);
    storeTitles({"Family", "Work", "Chess"});
    if (isHeardOf) world.bus().post(PLFriendGroupTitleChangedExternallyNotification);
    EXPECT_TRUE(b->settle());
    EXPECT_EQ(b->list(), "Bob,-,-|Cy,-,-|-,-,-");
    EXPECT_EQ(b->titles(), "Work|Chess|-") << isHeardOf;
    EXPECT_EQ(storedTitles(), "Work|Chess|-") << isHeardOf;
    storeTitles({});
  }
}

// The empty page behind the last friend, which a process keeps for itself, is not the page that it removed.
TEST_F(ManagerOvertakenTest, APageThatWasRemovedHereIsNotTheEmptyOneBehind) {
  setGroups(4, 1);
  launchBoth("Ann|Bob|Cy|Dan", {"One", "Two", "Three", "Four"});
  b->remove(3, 0);
  store("Ann|Cy|Dan");
  storeTitles({"One", "Three", "Four"});
  b->run([&] { b->manager().reloadFriendList(); });
  EXPECT_EQ(b->list(), "Ann|Cy|-");
  store("Ann|Cy|Dan|Eve");
  b->run([&] { b->manager().reloadFriendList(); });
  EXPECT_EQ(b->list(), "Ann|Cy|Eve|-");
  EXPECT_EQ(b->titles(), "One|Three|-|-");
}

// A load may come between a write and the news of it.
TEST_F(ManagerOvertakenTest, ATitleThatIsStoredGivesWayToALaterOne) {
  launchBoth("Ann,-,-", {"Family"});
  bool isOvertaken = false;
  const auto writeOnceMore = [&](std::string_view) {
    if (std::exchange(isOvertaken, true)) return;
    storeTitles({"Club"});
    world.bus().post(PLFriendGroupTitleChangedExternallyNotification);
  };
  ManagerProcess slow(world, scheduler, std::string(TapnoteDomain), [&](Platform& platform) {
    platform.preferences = std::make_shared<SlowStore>(
        platform.preferences, [](std::string_view) {}, writeOnceMore);
  });
  slow.start();
  isOvertaken = true;
  rest();
  isOvertaken = false;
  slow.setTitle(0, "Work");
  EXPECT_TRUE(slow.settle());
  rest();
  EXPECT_EQ(storedTitles(), "Club");
  EXPECT_EQ(slow.titles(), "Club|-");
}

TEST_F(ManagerOvertakenTest, AnAdditionThatFindsNoRoomLeavesAndIsToldOnce) {
  setGroups(1, 2);
  launchBoth("Ann,-");
  a->add("Bob");
  b->add("Cy");
  // The scheduler chooses who is first.
  const bool isFirst = a->settle();
  EXPECT_NE(b->settle(), isFirst);
  EXPECT_TRUE(a->settle());
  EXPECT_TRUE(b->settle());
  EXPECT_EQ((isFirst ? *b : *a).logged("was displaced and removed"), 1U);
  EXPECT_EQ(agreed(), isFirst ? "Ann,bob@example.org" : "Ann,cy@example.org");
}

// Only what the clean-up removed is left out of the merge, for the clean-up to be made anew on the result.
TEST_F(ManagerOvertakenTest, APersonsRemovalBesideOneOfTheCleanUpHolds) {
  setSetting(PLRemoveDestinationlessFriendsEnabledKey, true);
  contacts({"Ann", "Bob", "Cy"});
  launchBoth("Ann#,Bob#,Cy#|Dan,-,-");
  b->run([&] { b->manager().setRefreshAgainstContactsEnabled(false); });
  world.bus().breakConnection(a->process());
  world.preferences().failWrites();
  a->remove(0, 2);
  world.addressBook().put({.guid = guidOf("Bob"), .first = "Bob"});
  advance(1);
  EXPECT_EQ(a->list(), "Ann,-,-|Dan,-,-|-,-,-");
  world.preferences().allowWrites();
  b->add("Eve");
  EXPECT_TRUE(b->settle());
  rest();
  EXPECT_EQ(a->logged("culling friend"), 2U) << "once before the merge and once after it";
  world.bus().restoreConnection(a->process());
  EXPECT_EQ(agreed(), "Ann,-,-|Dan,eve@example.org,-|-,-,-");
}

TEST_F(ManagerOvertakenTest, AListOfAnotherStoreRemovesNobody) {
  launchBoth("Ann,Bob,-");
  world.preferences().renew(InMemoryPreferences::Renewal::empty);
  setGroups(4, 3);
  store("Cy,-,-");
  postListChanged();
  const std::string list = agreed();
  for (const char* name : {"Ann", "Bob", "Cy"}) EXPECT_NE(list.find(name), std::string::npos) << list;
}

// As where a store's file was damaged, and a process has put what it knew of it into another one.
TEST_F(ManagerOvertakenTest, EditsAreMadeOnTheVeryListThatAnotherStoreBeganWith) {
  launchBoth("Ann,Bob,Cy|Dan,-,-", {"Family", "Work"});
  b->kill();
  world.preferences().renew(InMemoryPreferences::Renewal::fromCopy);
  a->remove(0, 1);
  const auto cy = a->friendAt(0, 2);
  a->set(a->friendAt(0, 0), 0, 2);
  a->set(cy, 0, 0);
  a->setTitle(1, "Club");
  EXPECT_TRUE(a->settle());
  EXPECT_EQ(storedTitles(), "Family|Club|-");
  EXPECT_EQ(stored(3), "Cy,-,Ann|Dan,-,-|-,-,-");
  EXPECT_EQ(a->list(), stored(3));
}

TEST_F(ManagerOvertakenTest, ALookedUpPersonThatBecomesAFriendTakesWhatIsStored) {
  launchBoth("Ann,-,-");
  const auto looked = a->run([&] { return a->manager().personWithDestinations({mailOf("Bob")}); });
  a->run([&] { looked->setMetadataValueForKey(Value("mine"), "own"); });
  b->add("Bob");
  b->run([&] {
    b->friendAt(0, 1)->setPreferredReplyAs("home");
    b->friendAt(0, 1)->setPreferredDestination("+49301234567");
    b->friendAt(0, 1)->setMetadataValueForKey(Value("theirs"), "other");
  });
  EXPECT_TRUE(b->settle());
  rest();
  EXPECT_EQ(a->friendAt(0, 1), looked);
  agreed();
  EXPECT_EQ(a->friendAt(0, 1)->preferredReplyAs(), "home");
  EXPECT_EQ(a->friendAt(0, 1)->preferredDestination(), "+49301234567");
  EXPECT_EQ(a->friendAt(0, 1)->metadata(), (Dictionary{{"own", "mine"}, {"other", "theirs"}}));
}

TEST_F(ManagerOvertakenTest, WhatAnotherVersionStoresOfAFriendIsKeptWhateverIsEdited) {
  launchBoth("Ann,Bob,-");
  const auto elements = [&] { return *storedValue("FriendList")->array(); };
  const auto storeOfAnn = [&](const std::string& key, const Value& value) {
    Array list = elements();
    Dictionary ann = *list[0].dictionary();
    ann.insert_or_assign(key, value);
    list[0] = ann;
    setSetting("FriendList", list);
  };
  const auto storedOfAnn = [&](const std::string& key) {
    const Array list = elements();
    const Value* value = valueForKey(*list[0].dictionary(), key);
    return value ? *value : Value("(none)");
  };
  storeOfAnn("Seen", Array{1, "x"});
  postListChanged();
  rest();
  a->run([&] { a->friendAt(0, 0)->setPreferredReplyAs("home"); });
  rest();
  EXPECT_EQ(storedOfAnn("Seen"), (Array{1, "x"}));

  // Another version writes while edits of this one are on their way.
  a->run([&] { a->friendAt(0, 0)->setPreferredDestination("ann@example.org"); });
  storeOfAnn("Seen", 2);
  rest();
  b->run([&] { b->friendAt(0, 0)->setPreferredReplyAs("work"); });
  storeOfAnn("PreferredDestination", "theirs");
  rest();
  EXPECT_EQ(agreed(), "Ann,Bob,-|-,-,-");
  EXPECT_EQ(storedOfAnn("Seen"), 2);
  EXPECT_EQ(storedOfAnn("ReplyAs"), "work");
  EXPECT_EQ(storedOfAnn("PreferredDestination"), "theirs") << "changed by them alone";
}

// Else its write could overwrite what the other process does next.
TEST_F(ManagerOvertakenTest, WhoPutsALookedUpPersonInWritesNothing) {
  contacts({"Bob"});
  launchBoth("Ann,-,-");
  const auto bob = b->person("Bob");
  const std::uint64_t posts = world.bus().postCount(PLFriendsChangedExternallyNotification);
  a->add("Bob");
  rest();
  EXPECT_EQ(b->friendAt(0, 1), bob);
  EXPECT_EQ(world.bus().postCount(PLFriendsChangedExternallyNotification), posts + 1);
}

TEST_F(ManagerOvertakenTest, AListThatIsWrittenBackTakesTitlesAlongOnlyWhereThereAreNone) {
  for (const bool hasTitles : {false, true}) {
    launchBoth("Ann,-,-|Bob,-,-", {"Family", "Work"});
    world.preferences().setValue(PLFriendListKey, std::nullopt, a->domain());
    world.preferences().setValue(PLGroupTitlesKey, std::nullopt, a->domain());
    if (hasTitles) storeTitles({"Home"});
    postListChanged();
    rest();
    EXPECT_EQ(stored(3), "Ann,-,-|Bob,-,-|-,-,-");
    EXPECT_EQ(storedTitles(), hasTitles ? "Home" : "Family|Work|-");
    a->kill();
    b->kill();
  }
}

}  // namespace
}  // namespace pellor
