// Edits that are made as one step: what is stored of them, when, and what the client of the steps is told and asked.
#include <algorithm>
#include <functional>
#include <utility>

#include "pellor/friends/PLListEditor.h"
#include "pellor/friends/PLStepClient.h"
#include "pellor/platform/PreferencesSyncService.h"
#include "pellor/testing/LogCollector.h"
#include "tests/pellor/ManagerWorld.h"
#include "tests/pellor/SlowStore.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RecordingClient : public PLStepClient {
 public:
  void stepsWereStored(std::uint64_t last) override {
    EXPECT_FALSE(isInsideCall);
    EXPECT_GT(last, lastTold);
    lastTold = last;
    told.push_back("stored " + std::to_string(last));
  }
  void judgeSteps(const PLStoredPages& theirs) override {
    told.push_back("judge " + textOf(theirs));
    if (judge) judge(theirs);
  }
  void listChangedBy(PLChangeOrigin origin) override {
    static const std::vector<std::string> names = {"load", "other", "device", "contacts"};
    if (reportsChanges) told.push_back(names.at(static_cast<std::size_t>(origin)));
  }

  /// "Ann,*Bob,-": of each slot the friend as stored, marked where the manager does not know it.
  static std::string textOf(const PLStoredPages& pages) {
    std::string text;
    for (const PLStoredSlot& slot : pages.contents) {
      if (!text.empty()) text += ",";
      if (slot.stored && !slot.known) text += "*";
      text += slot.stored ? slot.stored->displayName().value_or("?") : "-";
    }
    return text;
  }

  std::vector<std::string> take() { return std::exchange(told, {}); }

  std::function<void(const PLStoredPages&)> judge;
  std::vector<std::string> told;
  std::uint64_t lastTold = 0;
  bool isInsideCall = false;
  bool reportsChanges = false;
};

class StepsTest : public ManagerTest {
 protected:
  StepsTest() { setGroups(5, 3); }

  /// A process on that list, at rest, with the client.
  void launchOn(const std::string& list, const std::vector<std::string>& titles = {}) {
    if (!titles.empty()) storeTitles(titles);
    a = launchWith(list);
    a->run([&] { a->manager().editor().setStepClient(client); });
  }
  std::uint64_t step(const std::function<void()>& edits) {
    return a->run([&] {
      client->isInsideCall = true;
      const std::uint64_t number = a->manager().editor().performStep(edits);
      client->isInsideCall = false;
      return number;
    });
  }
  std::string storedField(std::size_t slot, const std::string& key) {
    const auto list = storedValue(PLFriendListKey);
    const LongArray* array = list->longArray();
    const Value element = array ? array->at(slot) : list->array()->at(slot);
    const Value* value = valueForKey(*element.dictionary(), key);
    return value ? value->description() : "";
  }

  std::shared_ptr<RecordingClient> client = std::make_shared<RecordingClient>();
  std::unique_ptr<ManagerProcess> a;
};

TEST_F(StepsTest, AStepIsToldOnceItIsStored) {
  launchOn("Ann,-,-");
  using Untold = InMemoryPreferences::Untold;
  const auto addOne = [&](const std::string& name) { step([&] { a->add(name); }); };

  world.preferences().failWrites();
  addOne("Bob");
  addOne("Cy");
  advance(30);
  EXPECT_THAT(client->take(), IsEmpty()) << "nothing is stored";
  EXPECT_EQ(stored(3), "Ann,-,-");
  world.preferences().allowWrites();
  EXPECT_TRUE(a->settle());
  EXPECT_THAT(client->take(), ElementsAre("stored 2"));

  std::uint64_t number = 2;
  for (const Untold fate : {Untold::stored, Untold::delayed, Untold::lost}) {
    world.preferences().leaveUntold(fate, 1);
    step([&] { a->friendAt(0, 0)->setPreferredReplyAs(std::to_string(number)); });
    advance(1.15);
    world.preferences().storeDelayedWrites();
    rest();
    EXPECT_THAT(client->take(), ElementsAre("stored " + std::to_string(++number)));
  }

  step([] {});
  EXPECT_THAT(client->take(), IsEmpty());
  EXPECT_TRUE(a->settle());
  EXPECT_THAT(client->take(), ElementsAre("stored 6")) << "nothing of it was left to write";

  // Another process stores what the step would.
  step([&] { a->setTitle(0, "Club"); });
  storeTitles({"Club"});
  EXPECT_TRUE(a->settle());
  EXPECT_THAT(client->take(), ElementsAre("judge Ann,bob@example.org,cy@example.org,-,-,-", "stored 7"));
}

// Loads that were due already when the write was accepted run before anybody is told of it.
TEST_F(StepsTest, AStepThatIsStoredIsNotJudgedByLoadsBeforeItIsTold) {
  launchOn("Ann,-,-");
  step([&] { a->add("Bob"); });
  ASSERT_TRUE(scheduler->runUntil([&] { return !world.preferences().writes().empty(); }, 10));
  for (const char* theirs : {"Ann,bob@example.org,Cy", "Ann,bob@example.org,Cy|Dan,-,-"}) {
    store(theirs);
    a->run([&] { a->manager().reloadFriendList(); });
  }
  EXPECT_THAT(client->take(), IsEmpty());
  EXPECT_TRUE(a->settle());
  EXPECT_THAT(client->take(), ElementsAre("stored 1"));
}

TEST_F(StepsTest, GroupsArePutInAndTakenOutWhileAnotherProcessEditsThePages) {
  launchOn("Ann,-,-|Bob,-,-|Cy,-,-", {"One", "Two", "Three"});
  EXPECT_EQ(a->run([&] { return a->manager().editor().insertEmptyGroupAtIndex(5); }), nullptr) << "beyond the end";
  a->takeEvents();
  step([&] {
    const auto group = a->manager().editor().insertEmptyGroupAtIndex(1);
    ASSERT_TRUE(group);
    group->setTitle("New");
    std::uint32_t error = 0;
    group->setFriendAtPosition(a->person("Dan"), 1, error);
    EXPECT_EQ(a->manager().editor().insertEmptyGroupAtIndex(0), nullptr) << "there may be no more";
  });
  EXPECT_EQ(a->list(), "Ann,-,-|-,dan@example.org,-|Bob,-,-|Cy,-,-|-,-,-");
  EXPECT_EQ(a->titles(), "One|New|Two|Three|-");
  store("Ann,-,-|Bob,Eve,-|Cy,-,Fay");
  EXPECT_TRUE(a->settle());
  EXPECT_EQ(a->list(), "Ann,-,-|-,dan@example.org,-|Bob,Eve,-|Cy,-,Fay|-,-,-");
  EXPECT_EQ(stored(3), "Ann,-,-|-,?,-|Bob,Eve,-|Cy,-,Fay|-,-,-");
  EXPECT_EQ(storedTitles(), "One|New|Two|Three|-");

  step([&] { EXPECT_TRUE(a->manager().editor().removeFriendGroupAtIndex(2)); });
  EXPECT_EQ(a->list(), "Ann,-,-|-,dan@example.org,-|Cy,-,Fay|-,-,-");
  EXPECT_FALSE(a->run([&] { return a->manager().editor().removeFriendGroupAtIndex(4); }));
  EXPECT_TRUE(a->settle());
  EXPECT_EQ(storedTitles(), "One|New|Three|-");
  EXPECT_FALSE(a->manager().isPersonFriend(a->person("Eve")));
}

TEST_F(StepsTest, TheOnlyGroupStaysEmptyAndATrailingOneComesBack) {
  setSetting(PLEmptyTrailingGroupEnabledKey, false);
  launchOn("Ann,Bob,-");
  for (const bool isInStep : {false, true}) {
    const auto remove = [&] { EXPECT_TRUE(a->manager().editor().removeFriendGroupAtIndex(0)); };
    isInStep ? static_cast<void>(step(remove)) : a->run(remove);
    EXPECT_EQ(a->list(), "-,-,-");
    a->add("Cy");
  }
  EXPECT_TRUE(a->settle());
  EXPECT_EQ(stored(3), "?,-,-");

  setSetting(PLEmptyTrailingGroupEnabledKey, true);
  launchOn("Ann,-,-|-,-,-");
  EXPECT_TRUE(a->run([&] { return a->manager().editor().removeFriendGroupAtIndex(1); }));
  EXPECT_EQ(a->list(), "Ann,-,-|-,-,-");
}

TEST_F(StepsTest, AGroupIsMovedWithItsFriendsAndItsTitle) {
  struct Case {
    std::uint64_t from, to;
    const char* list;
    const char* titles;
    const char* events;
  };
  const Case cases[] = {
      {0, 2, "Bob,Bea,-|Cy,-,-|Ann,-,-|-,-,-", "Two|-|One|-", "groups changed changed Ann>"},
      {2, 0, "Ann,-,-|Bob,Bea,-|Cy,-,-|-,-,-", "One|Two|-|-", "groups changed changed Ann>"},
      {1, 0, "Bob,Bea,-|Ann,-,-|Cy,-,-|-,-,-", "Two|One|-|-", "groups changed changed Bob> Bea>"},
      {3, 1, "Bob,Bea,-|-,-,-|Ann,-,-|Cy,-,-|-,-,-", "Two|-|One|-|-", "groups changed groups changed"},
      {1, 1, "Bob,Bea,-|-,-,-|Ann,-,-|Cy,-,-|-,-,-", "Two|-|One|-|-", ""},
  };
  launchOn("Ann,-,-|Bob,Bea,-|Cy,-,-|-,-,-", {"One", "Two"});
  const auto b = launch();
  for (const Case& each : cases) {
    SCOPED_TRACE(each.list);
    rest();
    a->takeEvents();
    EXPECT_TRUE(a->run([&] { return a->manager().editor().moveFriendGroupToIndex(each.from, each.to); }));
    EXPECT_EQ(a->list(), each.list);
    EXPECT_EQ(a->titles(), each.titles);
    rest();
    std::string events;
    for (const std::string& event : a->takeNotifications()) events += (events.empty() ? "" : " ") + event;
    EXPECT_EQ(events, each.events);
    EXPECT_EQ(b->list(), each.list);
    EXPECT_EQ(b->titles(), each.titles);
  }
  EXPECT_FALSE(a->run([&] { return a->manager().editor().moveFriendGroupToIndex(5, 0); }));
  EXPECT_FALSE(a->run([&] { return a->manager().editor().moveFriendGroupToIndex(0, 5); }));
}

// Of a step that another one depends on nothing is written once the client has taken it back, and the other is.
TEST_F(StepsTest, WhatTheClientTakesBackOfOvertakenStepsIsNotWritten) {
  contacts({"Dan"});
  launchOn("Ann,-,-|Bob,-,-|Cy,-,-", {"One", "Two", "Three"});
  const auto ann = a->friendAt(0, 0), bob = a->friendAt(1, 0), cy = a->friendAt(2, 0), dan = a->person("Dan");
  step([&] {
    a->manager().editor().removeFriendGroupAtIndex(1);
    a->set(bob, 0, 1);
    bob->setMetadataValueForKey("mine", "k");
  });
  step([&] { ann->setPreferredReplyAs("home"); });
  step([&] { a->add(dan); });
  EXPECT_EQ(a->list(), "Ann,Bob,Dan|Cy,-,-|-,-,-");
  store("Ann,Eve,-|Bob,-,Fay|Cy,Dan#,-");
  client->judge = [&](const PLStoredPages& theirs) {
    EXPECT_EQ(theirs.groupSize, 3U);
    EXPECT_THAT(theirs.titles, ElementsAre("One", "Two", "Three"));
    EXPECT_EQ(theirs.storedStep, 0U);
    EXPECT_EQ(theirs.contents[0].known, ann);
    EXPECT_EQ(theirs.contents[3].known, bob);
    EXPECT_EQ(theirs.contents[6].known, cy);
    EXPECT_EQ(theirs.contents[7].known, dan);
    a->run([&] { a->manager().editor().insertEmptyGroupAtIndex(1)->setTitle("Two"); });
    a->remove(0, 1);
    a->set(bob, 1, 0);
    bob->removeAllMetadataValues();
    EXPECT_EQ(a->manager().personWithDestinations({mailOf("Ann")}), ann) << "friends are found";
  };
  EXPECT_TRUE(a->settle());
  EXPECT_THAT(client->take(), ElementsAre("judge Ann,*Eve,-,Bob,-,*Fay,Cy,Dan,-", "stored 3"));
  EXPECT_EQ(stored(3), "Ann,Eve,-|Bob,-,Fay|Cy,Dan,-|-,-,-");
  EXPECT_EQ(storedTitles(), "One|Two|Three") << "it is the page that it was";
  EXPECT_EQ(a->titles(), "One|Two|Three|-");
  EXPECT_EQ(storedField(3, "Metadata"), "");
  EXPECT_EQ(storedField(0, "ReplyAs"), Value("home").description());
  EXPECT_EQ(a->friendAt(1, 0), bob);
  EXPECT_EQ(a->friendAt(2, 1), dan);
}

TEST_F(StepsTest, NothingIsWrittenWhenTheClientTakesAllBack) {
  launchOn("Ann,-,-|Bob,-,-", {"One", "Two"});
  const auto bob = a->friendAt(1, 0);
  step([&] { a->run([&] { a->manager().editor().removeFriendGroupAtIndex(1); }); });
  step([&] { a->setTitle(0, "First"); });
  client->judge = [&](const PLStoredPages& theirs) {
    EXPECT_EQ(theirs.contents.at(3).known, bob) << "a friend that a step removed";
    a->setTitle(0, "One");
    a->run([&] { a->manager().editor().insertEmptyGroupAtIndex(1)->setTitle("Two"); });
    a->set(bob, 1, 0);
  };
  for (const bool isTitleAlone : {true, false}) {
    if (isTitleAlone) {
      storeTitles({"One", "Zwei"});
    } else {
      step([&] { a->setTitle(0, "First"); });
      client->judge = [&](const PLStoredPages&) { a->setTitle(0, "One"); };
      store("Ann,Eve,-|Bob,-,-");
    }
    world.preferences().clearRecords();
    EXPECT_TRUE(a->settle());
    EXPECT_THAT(takeWrites(), IsEmpty());
    EXPECT_EQ(a->list(), isTitleAlone ? "Ann,-,-|Bob,-,-|-,-,-" : "Ann,Eve,-|Bob,-,-|-,-,-");
    EXPECT_EQ(a->titles(), "One|Zwei|-");
    EXPECT_EQ(client->lastTold, isTitleAlone ? 2U : 3U);
  }
  // Steps that are stored are not judged, also while the news of it is under way.
  client->take();
  store("Ann,-,-|Bob,-,-");
  a->run([&] { a->manager().reloadFriendList(); });
  EXPECT_THAT(client->take(), IsEmpty());
}

TEST_F(StepsTest, TheClientHearsByWhomTheListBecameAnotherOne) {
  contacts({"Ann", "Bob"});
  launchOn("Ann#,-,-|Bob#,-,-");
  client->reportsChanges = true;
  a->run([&] { a->manager().reloadFriendList(); });
  EXPECT_THAT(client->take(), IsEmpty()) << "it is the list that was known";
  struct Case {
    const char* what;
    std::function<void()> change;
    std::vector<std::string> told;
  };
  const auto write = [&](std::uint64_t writer) {
    Process other(scheduler, std::make_shared<LogCollector>());
    const auto preferences = world.makePlatform(other).preferences;
    const PreferenceChange change{PreferenceChange::Kind::set, storedValue(PLFriendListKey), std::nullopt};
    EXPECT_EQ(preferences->write({{std::string(PLFriendListKey), change}}, {writer, 1}, a->domain()).outcome,
              PreferenceWriteOutcome::written);
    postListChanged();
  };
  const std::vector<Case> cases = {
      {"a process", [&] { write(2); }, {"other"}},
      {"the device", [&] { write(PairedDeviceWriterByte << 56U | 5U); }, {"device"}},
      {"titles",
       [&] {
         storeTitles({"Club"});
         a->run([&] { world.bus().post(PLFriendGroupTitleChangedExternallyNotification); });
       },
       {"other"}},
      {"a double",
       [&] {
         store("Bob#,Bob#,-");
         postListChanged();
       },
       {"other", "contacts", "stored 1"}},
      {"a contact of a friend",
       [&] { world.addressBook().change(guidOf("Bob"), [](TestContact& contact) { contact.first = "Robert"; }); },
       {"contacts"}},
      {"another contact", [&] { contacts({"Cy"}); }, {}},
      {"itself", [&] { a->add("Cy"); }, {}},
  };
  for (const Case& each : cases) {
    each.change();
    rest();
    EXPECT_EQ(client->take(), each.told) << each.what;
  }
}

}  // namespace
}  // namespace pellor
