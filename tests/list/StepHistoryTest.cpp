// Steps that are taken back and done again, by the program that made them and by others.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tests/list/ListProcess.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class StepHistoryTest : public ListTest {
 protected:
  StepHistoryTest() { setGroups(4, 2); }
};

TEST_F(StepHistoryTest, StepsAreTakenBackOneByOneAndDoneAgain) {
  auto a = open("Ann,Bob|Cy,-|-,-");
  a->process().setTitle(1, "Work");
  a->run([&] { a->process().friendAt(0, 1)->setMetadataValueForKey(Value(1), "seen"); });
  rest();
  const FriendId bob = a->idAt(0, 1), cy = a->idAt(1, 0);
  std::vector<std::string> lists = {a->shown()};
  for (const char* step :
       {"remove Bob; add x@example.org", "drop 2", "move Ann 2:2; title 1 Home", "reply Ann voice; page 1 2"}) {
    ASSERT_TRUE(a->apply(step));
    rest();
    lists.push_back(a->shown());
  }
  for (std::size_t left = lists.size() - 1; left > 0; --left) {
    const UndoAnswer answer = a->undo();
    ASSERT_TRUE(answer && answer.step);
    EXPECT_THAT(answer.kept, IsEmpty());
    EXPECT_EQ(a->shown(), lists[left - 1]);
    rest();
  }
  EXPECT_FALSE(a->undo().step) << "nothing is left";
  EXPECT_EQ(a->idAt(0, 1), bob) << "a friend keeps its id";
  EXPECT_EQ(a->idAt(1, 0), cy);
  EXPECT_EQ(a->snapshot().friendWith(bob)->metadata, (Dictionary{{"seen", 1}}));
  for (std::size_t done = 1; done < lists.size(); ++done) {
    ASSERT_TRUE(a->redo().step);
    EXPECT_EQ(a->shown(), lists[done]);
    rest();
  }
  EXPECT_FALSE(a->redo().step);
  ASSERT_TRUE(a->undo().step);
  ASSERT_TRUE(a->apply("title 1 New"));
  EXPECT_FALSE(a->redo().step) << "a person made another step since";
  EXPECT_THAT(a->takeHeard(), testing::Contains(testing::StartsWith("undo:")));
}

TEST_F(StepHistoryTest, AnotherProgramTakesAStepBackThatOutlivesItsOwn) {
  auto a = open("Ann,Bob|Cy,-|-,-");
  a->apply("meta Bob seen 1; reply Bob voice");
  rest();
  a->apply("remove Bob; move Cy 1:2");
  rest();
  a->kill();
  auto b = open();
  ASSERT_THAT(b->told(), ElementsAre("own Bob ~1", "own Bob Cy -1 >1"));
  const auto history = b->history();
  EXPECT_EQ(history[0].kind, StepKind::changedFriend);
  b->process().setTitle(1, "Work");
  ASSERT_TRUE(b->undo().step);
  EXPECT_EQ(b->process().list(), "Ann,Bob|Cy,-|-,-");
  EXPECT_EQ(b->snapshot().friendAt({0, 1})->metadata, (Dictionary{{"seen", "1"}})) << "he has what he had";
  rest();
  // A named one: what was done since stays.
  ASSERT_TRUE(b->undo(history[0].id).step);
  EXPECT_EQ(b->snapshot().friendAt({0, 1})->metadata, Dictionary());
  EXPECT_EQ(b->snapshot().friendAt({0, 1})->replyAs, std::nullopt);
  EXPECT_EQ(b->process().titles(), "-|Work|-");
  EXPECT_EQ(b->undo(history[0].id).refusal, (Refusal{RefusalReason::notUndoable}));
}

// An empty page took the index of the one that went.
TEST_F(StepHistoryTest, ATitleThatAnotherProgramBroughtBackStays) {
  setGroups(2, 1);
  auto a = open("Ann|Bob");
  for (const char* step : {"title 2 Work", "drop 2"}) {
    a->apply(step);
    rest();
  }
  auto b = open();
  ASSERT_TRUE(b->undo().step);
  rest();
  for (ListProcess* process : {a.get(), b.get()}) EXPECT_EQ(process->shown(), "Ann|Bob -|Work");
}

TEST_F(StepHistoryTest, AStepOfALaterVersionStaysWhenAnotherOneIsTakenBack) {
  setSetting(HistoryKey, Array{Dictionary{{"id", "later"}, {"when", "another kind of time"}}});
  auto a = open("Ann,Bob|-,-");
  a->apply("remove Bob");
  rest();
  ASSERT_TRUE(a->undo().step);
  rest();
  EXPECT_EQ(a->process().list(), "Ann,Bob|-,-");
  EXPECT_THAT(storedValue(HistoryKey)->description(), testing::HasSubstr("another kind of time"));
  EXPECT_THAT(open()->told(), ElementsAre("own Bob -1 (back)"));
}

// Each step renames the page. A full history is not written anew with each step, and stays in the order of the steps.
TEST_F(StepHistoryTest, TheNewestHundredStepsOfAllProgramsStay) {
  auto a = open("Ann,-|-,-"), b = open();
  std::vector<Value> titles;
  for (std::size_t number = 1; number <= 130; ++number) {
    (number % 3 == 0 ? *b : *a).apply("title 1 " + std::to_string(number));
    rest();
    if (number > 30) titles.emplace_back(std::to_string(number));
  }
  const LongArray before = *storedValue(HistoryKey)->longArray();
  std::map<std::int64_t, Value> byMoment;
  for (const Value& step : before.elements()) {
    const Value& page = step.dictionary()->at("pages").array()->front();
    byMoment.emplace(*step.dictionary()->at("moment").integer(), page.dictionary()->at("titleAfter"));
  }
  EXPECT_TRUE(std::ranges::equal(byMoment, titles, {}, [](const auto& each) { return each.second; }));
  a->apply("title 1 131");
  rest();
  const LongArray after = *storedValue(HistoryKey)->longArray();
  std::size_t kept = 0;
  for (std::size_t chunk = 0; chunk < before.chunks().size(); ++chunk)
    if (before.chunks()[chunk] == after.chunks()[chunk]) ++kept;
  EXPECT_EQ(kept, before.chunks().size() - 1);

  for (std::size_t undone = 0; undone < 20; ++undone) {
    ASSERT_TRUE((undone % 2 == 0 ? *b : *a).undo().step);
    rest();
  }
  EXPECT_EQ(a->process().titles(), "111|-");
  EXPECT_EQ(b->process().titles(), "111|-");
}

TEST_F(StepHistoryTest, AListThatLostItsOnlyPageByACleanUpGetsOneByAStep) {
  setSetting(PLEmptyTrailingGroupEnabledKey, false);
  setSetting(PLRemoveDestinationlessFriendsEnabledKey, true);
  contacts({"Ann"});
  auto a = open("Ann#,-");
  a->apply("title 1 Club");
  world.addressBook().put({.guid = guidOf("Ann"), .first = "Ann"});
  rest();
  ASSERT_EQ(a->snapshot().pageCount(), 0U);
  EXPECT_TRUE(a->undo(a->history()[0].id)) << "there is no such page";
  EXPECT_TRUE(a->apply("insert 1 New"));
  rest();
  EXPECT_EQ(a->snapshot().page(0).title, "New");
}

TEST_F(StepHistoryTest, AStepThatChangesNothingIsStoredAtOnceAndInNoHistory) {
  auto a = open("Ann,-|-,-");
  a->apply("reply Ann voice");
  rest();
  std::vector<std::string> told;
  for (const char* edits : {"", "move Ann 1:1; reply Ann voice"}) EXPECT_TRUE(a->apply(edits, noteIn(told)));
  rest();
  EXPECT_THAT(told, ElementsAre("stored", "stored"));
  EXPECT_EQ(a->history().size(), 1U);
}

// A person whom the app holds is not written to by a look at what would be.
TEST_F(StepHistoryTest, APlanOfAnUndoLeavesTheRemovedFriendAsHeIs) {
  auto a = open("Ann,Bob|-,-");
  const auto bob = a->process().friendAt(0, 1);
  a->apply("remove Bob");
  rest();
  a->run([&] { bob->setPreferredReplyAs("mine"); });
  EXPECT_TRUE(a->run([&] { return a->list().planUndo(); }).step);
  EXPECT_EQ(bob->preferredReplyAs(), "mine");
}

TEST_F(StepHistoryTest, APageThatWasEmptyBeforeTheStepStaysWhenItIsTakenBack) {
  auto a = open("Ann,-|-,-|Bob,-|-,-");
  a->apply("add cy@example.org 2:1");
  rest();
  ASSERT_TRUE(a->undo().step);
  rest();
  EXPECT_EQ(a->process().list(), "Ann,-|-,-|Bob,-|-,-");
}

// Each time by another process, which does not lay out the empty page behind.
TEST_F(StepHistoryTest, TheOnlyPageGoesWithItsTitleWhereAnotherOneComes) {
  setSetting(PLEmptyTrailingGroupEnabledKey, false);
  auto a = open("Ann,-");
  a->apply("insert 1 Club; move Ann 1:2");
  rest();
  const auto turn = [&](bool isBack) {
    a = open();
    const auto answer = isBack ? a->undo() : a->redo();
    EXPECT_TRUE(answer.step);
    EXPECT_THAT(answer.kept, IsEmpty());
    rest();
    return a->process().list() + " " + a->snapshot().page(0).title;
  };
  for (int times = 0; times < 2; ++times) {
    EXPECT_EQ(turn(true), "Ann,- ");
    EXPECT_EQ(turn(false), "-,Ann Club") << "an empty page at the end is no part of it";
  }
}

}  // namespace
}  // namespace pellor
