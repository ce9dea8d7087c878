// Edits as data: what a step does, when it is refused, and what becomes of it when another program was first.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "tests/list/ListProcess.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class FriendListStepTest : public ListTest {
 protected:
  FriendListStepTest() { setGroups(4, 2); }
};

std::string textOf(const StepAnswer& answer, const Snapshot& list) {
  std::string text = "refused: " + std::string(textOf(answer.refusal->reason));
  text += ", edit " + std::to_string(answer.refusal->edit);
  if (answer.refusal->inTheWay) text += ", " + list.friendWith(*answer.refusal->inTheWay)->name;
  return text;
}

TEST_F(FriendListStepTest, AStepDoesAllOfItsEditsOrNone) {
  const struct {
    std::string what;
    std::string before;
    std::string edits;
    std::string after;  ///< the list, or why not: the reason, the edit, and who is in the way
  } cases[] = {
      {"an address of nobody's takes the first free slot", "Ann,-|-,-", "add cy@x.org", "Ann,cy@x.org|-,-"},
      {"the last page got its first friend", "Ann,Bob|-,-", "add cy@x.org", "Ann,Bob|cy@x.org,-|-,-"},
      {"into a slot", "Ann,-|-,-", "add cy@x.org 2:2", "Ann,-|-,cy@x.org|-,-"},
      {"into a slot that is taken", "Ann,-|-,-", "add cy@x.org 1:1",
       "refused: there is no such place, or it is taken, edit 0, Ann"},
      {"an address that a friend has", "Ann,Bob|-,-", "add bob@example.org",
       "refused: is a friend already, edit 0, Bob"},
      {"twice in one step", "Ann,-|-,-", "add cy@x.org; add cy@x.org", "refused: is a friend already, edit 1"},
      {"neither number nor address", "Ann,-|-,-", "add Cy", "refused: there is no such number or address, edit 0"},
      {"no such contact", "Ann,-|-,-", "contact Nobody", "refused: is not there, edit 0"},
      {"none of them where the last one is refused", "Ann,Bob|-,-", "remove Ann; add cy@x.org; remove Nobody",
       "refused: is not there, edit 2"},
      {"no room", "Ann,Bob|Cy,Dan|Eve,Fay|Gus,Hal", "add ivy@x.org", "refused: there is no room, edit 0"},
      {"room that the step makes", "Ann,Bob|Cy,Dan|Eve,Fay|Gus,Hal", "remove Dan; add ivy@x.org",
       "Ann,Bob|Cy,ivy@x.org|Eve,Fay|Gus,Hal"},
      {"a page whose last friend is removed goes", "Ann,Bob|Cy,-|Dan,-|-,-", "remove Cy", "Ann,Bob|Dan,-|-,-"},
      {"but not when somebody comes onto it", "Ann,Bob|Cy,-|Dan,-|-,-", "remove Cy; move Ann 2:1",
       "-,Bob|Ann,-|Dan,-|-,-"},
      {"a page that a friend is moved from stays", "Ann,Bob|Cy,-|-,-", "move Cy 3:1", "Ann,Bob|-,-|Cy,-|-,-"},
      {"a taken slot swaps", "Ann,Bob|Cy,-|-,-", "move Ann 2:1", "Cy,Bob|Ann,-|-,-"},
      {"three in a ring", "Ann,Bob|Cy,-|-,-", "move Ann 1:2; move Ann 2:1", "Bob,Cy|Ann,-|-,-"},
      {"to a slot that there is not", "Ann,-|-,-", "move Ann 1:3",
       "refused: there is no such place, or it is taken, edit 0"},
      {"a page is filled from others", "Ann,Bob|Cy,-|-,-", "fill 2 Bob Cy", "Ann,-|Bob,Cy|-,-"},
      {"nobody leaves the list by that", "Ann,Bob|Cy,-|-,-", "fill 1 - Bob",
       "refused: there is no such place, or it is taken, edit 0, Ann"},
      {"a page comes between others", "Ann,-|Bob,-|-,-", "insert 2 New", "Ann,-|-,-|Bob,-|-,-"},
      {"somebody onto a page that the step inserts", "Ann,-|Bob,-|-,-", "insert 1; move Bob 1:2",
       "-,Bob|Ann,-|-,-|-,-"},
      {"no more pages than there may be", "Ann,-|Bob,-|Cy,-|Dan,-", "insert 1", "refused: there is no room, edit 0"},
      {"a page moves to the end", "Ann,Bob|Cy,-|Dan,-|-,-", "page 1 3", "Cy,-|Dan,-|Ann,Bob|-,-"},
      {"and to the beginning", "Ann,Bob|Cy,-|Dan,-|-,-", "page 3 1", "Dan,-|Ann,Bob|Cy,-|-,-"},
      {"behind the empty page there is another one", "Ann,-|Bob,-|-,-", "page 1 3", "Bob,-|-,-|Ann,-|-,-"},
      {"a page goes with its friends", "Ann,Bob|Cy,-|-,-", "drop 1", "Cy,-|-,-"},
      {"the empty page comes back", "Ann,-|-,-", "drop 2", "Ann,-|-,-"},
      {"a page that is gone", "Ann,-|Bob,-|-,-", "drop 1; title 1 Home", "refused: is not there, edit 1"},
      {"a number that the friend does not have", "Ann,-|-,-", "choose Ann bob@example.org",
       "refused: there is no such number or address, edit 0"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.what);
    forgetList();
    auto a = open(each.before);
    const Snapshot before = a->snapshot();
    const auto planned = a->run([&] { return a->list().plan(EditReader(before).edits(each.edits)); });
    EXPECT_EQ(a->process().list(), each.before) << "planned only";
    std::vector<std::string> told;
    const StepAnswer answer = a->apply(each.edits, noteIn(told));
    EXPECT_EQ(planned.refusal, answer.refusal);
    EXPECT_EQ(answer ? a->process().list() : textOf(answer, before), each.after);
    EXPECT_EQ(planned.after.pageCount(), answer.after.pageCount());
    EXPECT_EQ(planned.after.friendCount(), answer.after.friendCount());
    for (const EditResult& result : answer.results) EXPECT_EQ(a->snapshot().placeOf(result.id), result.place);
    EXPECT_EQ(a->process().manager().invariantViolation(), std::nullopt);
    EXPECT_THAT(told, IsEmpty()) << "never inside the call";
    rest();
    if (answer) {
      EXPECT_THAT(told, ElementsAre("stored"));
      EXPECT_EQ(a->process().list(), each.after) << "at rest";
    } else {
      EXPECT_THAT(told, IsEmpty());
      EXPECT_THAT(a->takeHeard(), IsEmpty());
    }
  }
}

TEST_F(FriendListStepTest, WhatFriendsAndPagesCarryIsSetWithTheRestAndToldAsOneBatch) {
  contacts({"Ann"});
  auto a = open("Ann#,Bob|-,-");
  ASSERT_TRUE(
      a->apply("reply Ann voice; meta Ann seen 1; meta Ann kind x; move Ann 2:1; choose Ann ann@example.org; "
               "title 2 Work; meta Ann seen"));
  const auto ann = a->snapshot().friendAt({1, 0});
  EXPECT_EQ(ann->chosenNumber, "ann@example.org");
  EXPECT_EQ(ann->replyAs, "voice");
  EXPECT_EQ(ann->metadata, (Dictionary{{"kind", "x"}}));
  EXPECT_EQ(a->process().titles(), "-|Work|-");
  EXPECT_EQ(a->snapshot().page(1).title, "Work");
  rest();
  EXPECT_EQ(a->takeHeard().size(), 1U);
  auto b = open();
  EXPECT_EQ(b->snapshot().friendAt({1, 0})->metadata, ann->metadata);
  EXPECT_EQ(b->process().titles(), "-|Work|-");
}

TEST_F(FriendListStepTest, AContactIsRefusedWhoseLinkedRecordIsAFriends) {
  world.addressBook().add({.guid = "guid-Zoe", .first = "Zoe", .emails = {{"home", "zoe@example.org"}}});
  world.addressBook().add({.guid = "guid-Zoe2", .first = "Zoe", .emails = {{"work", "zoe@work.example"}}});
  world.addressBook().link({"guid-Zoe", "guid-Zoe2"});
  auto a = open("-,-");
  EXPECT_TRUE(a->apply("contact Zoe"));
  EXPECT_EQ(a->apply("contact Zoe2").refusal, (Refusal{RefusalReason::isFriend, 0, a->idAt(0, 0)}));
}

TEST_F(FriendListStepTest, AProgramThatEndsFirstAbandonsTheStep) {
  auto a = open("Ann,-|-,-");
  std::vector<std::string> told;
  world.preferences().failWrites();
  a->apply("move Ann 1:2", noteIn(told));
  a->kill();
  EXPECT_THAT(told, ElementsAre(textOf(RefusalReason::abandoned)));
}

// The other program was first with what the step needs.
TEST_F(FriendListStepTest, AStepOfWhichOneEditNoLongerHoldsIsTakenBackAsAWhole) {
  const struct {
    std::string what;
    std::string before;
    std::string theirs;  ///< what the other program stores, unheard
    std::string edits;
    std::string told;
    std::string after;
  } cases[] = {
      {"the friend was removed", "Ann,Bob|Cy,-|-,-", "Ann,Bob|-,-", "add ivy@example.org; move Cy 1:1",
       "another program changed it first", "Ann,Bob|-,-"},
      {"the same one was added", "Ann,Bob|Cy,-|-,-", "Ann,Bob|Cy,Ivy|-,-", "remove Ann; add ivy@example.org",
       "is a friend already", "Ann,Bob|Cy,Ivy|-,-"},
      {"the last room was taken", "Ann,Bob|Cy,Dan|Eve,Fay|Gus,-", "Ann,Bob|Cy,Dan|Eve,Fay|Gus,Joe",
       "move Ann 1:2; add ivy@example.org", "there is no room", "Ann,Bob|Cy,Dan|Eve,Fay|Gus,Joe"},
      {"somebody came onto the page", "Ann,Bob|Cy,-|-,-", "Ann,-|Cy,Bob|-,-", "drop 2; remove Ann",
       "another program changed it first", "Ann,-|Cy,Bob|-,-"},
      {"all of it holds", "Ann,Bob|Cy,-|-,-", "Ann,Bob|Cy,Joe|-,-", "remove Ann; add ivy@example.org", "stored",
       "ivy@example.org,Bob|Cy,Joe|-,-"},
      {"what was to go is gone", "Ann,Bob|Cy,-|-,-", "-,Bob|Cy,-|-,-", "add ivy@example.org; remove Ann", "stored",
       "-,Bob|Cy,ivy@example.org|-,-"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.what);
    forgetList();
    auto a = open(each.before);
    store(each.theirs);
    std::vector<std::string> told;
    EXPECT_TRUE(a->apply(each.edits, noteIn(told)));
    rest();
    EXPECT_THAT(told, ElementsAre(each.told));
    EXPECT_EQ(a->process().list(), each.after);
    auto b = open();
    EXPECT_EQ(b->process().list(), each.after);
    EXPECT_EQ(b->told(), a->told());
    const auto isOwn = [](const std::string& step) { return step.starts_with("own"); };
    EXPECT_EQ(std::ranges::count_if(a->told(), isOwn), each.told == "stored" ? 1 : 0) << "refused: in no history";
  }
}

// The first of two steps falls, the second does not.
TEST_F(FriendListStepTest, OnlyTheStepThatNoLongerHoldsIsTakenBack) {
  auto a = open("Ann,Bob|Cy,-|-,-");
  store("Ann,Bob|-,-");
  std::vector<std::string> first, second;
  a->apply("move Cy 1:1; reply Bob x", noteIn(first));
  a->apply("meta Bob seen 1", noteIn(second));
  rest();
  EXPECT_THAT(first, ElementsAre(textOf(RefusalReason::overtaken)));
  EXPECT_THAT(second, ElementsAre("stored"));
  EXPECT_EQ(stored(2), "Ann,Bob|-,-");
  const auto bob = a->snapshot().friendAt({0, 1});
  EXPECT_EQ(bob->metadata, (Dictionary{{"seen", "1"}}));
  EXPECT_EQ(bob->replyAs, std::nullopt) << "a half of the first step";
}

}  // namespace
}  // namespace pellor
