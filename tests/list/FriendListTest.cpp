// The list as an app sees it.
#include "pellor/list/FriendList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/list/ListProcess.h"
#include "tests/pellor/ManagerWorld.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class FriendListTest : public ListTest {
 protected:
  FriendListTest() { setGroups(20, 2); }

  static std::string bits(std::initializer_list<FriendField> fields) {
    FriendFields all;
    for (const FriendField field : fields) all.insert(field);
    return std::to_string(all.bits);
  }
};

TEST_F(FriendListTest, AnEditIsShownAtOnceAndTellsWhatItDid) {
  store("Ann,Bob|Cy,-|-,-");
  auto a = open();
  EXPECT_THAT(a->takeHeard(), ElementsAre("loaded"));
  a->process().add("Dan");
  EXPECT_EQ(a->snapshot().friendAt({1, 1})->destination, "dan@example.org");
  rest();
  EXPECT_THAT(a->takeHeard(), ElementsAre("+dan@example.org 2:2"));
  const FriendId ann = a->idAt(0, 0), cy = a->idAt(1, 0);
  const Snapshot before = a->snapshot();
  a->process().remove(0, 1);
  a->process().setTitle(1, "Work");
  rest();
  EXPECT_THAT(a->takeHeard(), ElementsAre("-Bob 1:2 page 2 \"Work\"")) << "one batch";
  a->process().remove(0, 0);
  rest();
  EXPECT_THAT(a->takeHeard(), ElementsAre("-Ann 1:1 -page 1")) << "the others only shifted";
  EXPECT_EQ(a->snapshot().placeOf(cy), (Place{0, 0}));
  EXPECT_EQ(a->snapshot().placeOf(ann), std::nullopt);
  EXPECT_EQ(before.placeOf(cy), (Place{1, 0})) << "a version stays as it is";
  EXPECT_EQ(before.friendCount(), 4U);
  EXPECT_EQ(a->snapshot().friendCount(), 2U);
}

// Versions share what did not change, in parts of many pages.
TEST_F(FriendListTest, AListOfManyPagesIsFollowedAsAShortOne) {
  setGroups(300, 1);
  std::string text = "P1";
  for (int page = 2; page <= 200; ++page) text += "|P" + std::to_string(page);
  auto a = open(text);
  a->takeHeard();
  const std::pair<const char*, const char*> rows[] = {
      {"remove P150", "-P150 150:1 -page 150"},
      {"title 140 Work", "page 140 \"Work\""},
      {"add x@example.org 200:1", "+page 201 +x@example.org 200:1"},
      {"insert 3 New", "+page 3 page 3 \"New\""},
      {"page 190 5", ">page 190 to 5"},
      {"move P2 130:1", ">P128 130:1 to 2:1 >P2 2:1 to 130:1"},
      {"drop 70; drop 71; title 199 End", "-P68 70:1 -P69 71:1 -page 70 -page 71 page 197 \"End\""},
  };
  for (const auto& [edits, heard] : rows) {
    SCOPED_TRACE(edits);
    EXPECT_TRUE(a->apply(edits));
    a->expectLikeManager();
    rest();
    EXPECT_THAT(a->takeHeard(), ElementsAre(heard));
  }
}

TEST_F(FriendListTest, WhatAnotherProcessDoesTakesNobodyElseAlong) {
  auto a = open("Ann,Bob|Cy,-|Dan,-|-,-");
  const FriendId dan = a->idAt(2, 0);
  const PageId page = a->snapshot().page(2).id;
  a->takeHeard();
  auto b = launch();
  rest();
  b->remove(1, 0);
  rest();
  EXPECT_THAT(a->takeHeard(), ElementsAre("other: -Cy 2:1 -page 2"));
  EXPECT_EQ(a->snapshot().placeOf(dan), (Place{1, 0}));
  EXPECT_EQ(a->snapshot().page(1).id, page);
  b->set(b->friendAt(0, 1), 1, 1);
  rest();
  EXPECT_THAT(a->takeHeard(), ElementsAre(testing::HasSubstr("Bob"))) << "one person, wherever that was";
  b->run([&] { b->friendAt(0, 0)->setPreferredReplyAs("voice"); });
  rest();
  EXPECT_THAT(a->takeHeard(), ElementsAre("other: ~Ann " + bits({FriendField::replyAs})));
}

TEST_F(FriendListTest, AFriendKeepsItsIdAndColorAndTellsWhichFieldsChanged) {
  contacts({"Ann", "Bob"});
  auto a = open("Ann#,Bob#");
  const FriendId ann = a->idAt(0, 0);
  const auto color = a->snapshot().friendWith(ann)->color;
  a->takeHeard();
  world.addressBook().change(guidOf("Ann"), [](TestContact& contact) {
    contact.first = "Anna";
    contact.emails = {{"home", "anna@example.org"}};
  });
  rest();
  EXPECT_THAT(
      a->takeHeard(),
      ElementsAre("contacts: ~Anna " + bits({FriendField::name, FriendField::destination, FriendField::destinations})))
      << "the monogram is the same";
  EXPECT_EQ(a->snapshot().friendWith(ann)->color, color);
  a->run([&] {
    const auto person = a->process().friendAt(0, 0);
    person->setMetadataValueForKey(Value(1), "seen");
    person->setPreferredReplyAs("voice");
  });
  rest();
  EXPECT_EQ(a->snapshot().friendWith(ann)->replyAs, "voice");
  EXPECT_EQ(a->snapshot().friendWith(ann)->metadata, (Dictionary{{"seen", 1}}));
  EXPECT_THAT(a->takeHeard(), ElementsAre("~Anna " + bits({FriendField::replyAs, FriendField::metadata})));
  EXPECT_EQ(a->idAt(0, 0), ann);
}

TEST_F(FriendListTest, TheShownNumberFollowsTheCardAlsoWhereTheFriendDoesNot) {
  world.addressBook().add(
      {.guid = "guid-Zoe", .first = "Zoe", .phones = {{"home", "+493023125001"}, {"cell", "+4915123125002"}}});
  auto a = open("-,-");
  a->run([&] { a->process().manager().addFriend(a->process().manager().personWithABRecordGUID("guid-Zoe")); });
  rest();
  const FriendId zoe = a->idAt(0, 0);
  EXPECT_EQ(a->snapshot().friendWith(zoe)->destination, "+493023125001");
  a->takeHeard();
  // The same numbers in another order are the same friend.
  world.addressBook().change("guid-Zoe", [](TestContact& contact) { std::swap(contact.phones[0], contact.phones[1]); });
  rest();
  EXPECT_EQ(a->snapshot().friendWith(zoe)->destination, "+4915123125002");
  EXPECT_THAT(a->takeHeard(), ElementsAre("~Zoe " + bits({FriendField::destination})));
  EXPECT_EQ(a->run([&] { return a->list().findContacts("ZOE", 5); }).size(), 1U);
}

TEST_F(FriendListTest, WhoObservesBeforeTheLoadHearsWhatTheContactsChangedByIt) {
  contacts({"Ann", "Bob"});
  store("Ann#,Bob#|Ann#,-");
  world.addressBook().change(guidOf("Bob"), [](TestContact& contact) { contact.first = "Bobby"; });
  const auto process = makeProcess();
  std::vector<std::string> heard;
  process->run([&] {
    std::shared_ptr<Observation> observation;
    const auto observe = [&](FriendList& list) {
      EXPECT_FALSE(list.isLoaded());
      observation =
          list.observe({[&](const Snapshot& now) { heard.push_back("loaded " + std::to_string(now.friendCount())); },
                        [&](const ListChange& change) {
                          EXPECT_EQ(change.origin, ChangeOrigin::contacts);
                          for (const auto& each : change.removed)
                            heard.push_back("-" + change.before.friendWith(each.id)->name);
                          for (const auto& each : change.changed)
                            heard.push_back("~" + change.before.friendWith(each.id)->name + " " +
                                            change.after.friendWith(each.id)->name);
                        }});
    };
    const auto list = FriendList::openDomain(std::string(TapnoteDomain), {}, observe);
    EXPECT_TRUE(list->isLoaded());
    rest();
    EXPECT_THAT(heard, ElementsAre("loaded 3", "-Ann", "~Bob Bobby"));
    const auto again = FriendList::openDomain(std::string(TapnoteDomain), {}, [](FriendList&) { FAIL(); });
    EXPECT_EQ(again->snapshot(), list->snapshot()) << "it is read already";
    observation.reset();
  });
}

TEST_F(FriendListTest, AnswersOfTheServiceTellOfThoseWhomTheyConcern) {
  auto a = open("Ann,Bob|-,-");
  EXPECT_EQ(a->snapshot().friendAt({0, 0})->reachability.status, DestinationStatus::valid) << "nobody is asked";
  a->takeHeard();
  world.identityService().setScript([](const SimulatedIdentityService::Query&) {
    return std::vector<SimulatedIdentityService::AnswerPart>{
        {1, {{"ann@example.org", DestinationStatus::valid}, {"bob@example.org", DestinationStatus::invalid}}}};
  });
  a->run([&] {
    a->process().manager().setServiceName("chat");
    a->process().manager().refreshDestinationStatuses();
  });
  scheduler->advance(2);
  EXPECT_THAT(a->takeHeard(),
              ElementsAre("~Ann " + bits({FriendField::reachability}) + " ~Bob " + bits({FriendField::reachability})))
      << "of Ann it is known now when";
  EXPECT_EQ(a->snapshot().friendAt({0, 1})->reachability.status, DestinationStatus::invalid);
}

TEST_F(FriendListTest, AnObserverMayEditAndHearsOfItInTheNextBatch) {
  auto a = open("Ann,Bob|-,-");
  bool isInside = false;
  a->onChange = [&](const ListChange& change) {
    ASSERT_FALSE(std::exchange(isInside, true)) << "never one batch inside the other";
    if (!change.added.empty()) a->process().group(0)->removeFriendAtPosition(0);
    isInside = false;
  };
  a->process().add("Cy");
  rest();
  EXPECT_THAT(a->takeHeard(), ElementsAre("+page 3 +cy@example.org 2:1", "-Ann 1:1"));
  a->stopObserving();
  a->process().add("Dan");
  rest();
  EXPECT_THAT(a->takeHeard(), IsEmpty());
}

TEST_F(FriendListTest, TheSamePersonInTwoSlotsIsTwoFriendsUntilOneIsGone) {
  auto a = open("Ann,-|Bob,-|-,-");
  const FriendId ann = a->idAt(0, 0);
  a->process().set(a->process().friendAt(0, 0), 1, 1);
  rest();
  a->takeHeard();
  EXPECT_EQ(a->snapshot().friendCount(), 3U);
  EXPECT_EQ(a->idAt(0, 0), ann);
  EXPECT_NE(a->idAt(1, 1), ann);
  a->process().remove(0, 0);
  rest();
  a->takeHeard();
  EXPECT_EQ(a->snapshot().friendCount(), 2U);
  EXPECT_EQ(a->snapshot().friendWith(ann)->name, "Ann");
}

}  // namespace
}  // namespace pellor
