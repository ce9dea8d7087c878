// What a program did that keeps no history: a list that follows finds it in the store, and makes a step of it.
#include "pellor/friends/PLListEditor.h"
#include "pellor/list/internal/ForeignEdits.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "pellor/list/Edit.h"
#include "tests/list/ListProcess.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class ForeignEditsTest : public ListTest {
 protected:
  ForeignEditsTest() {
    setGroups(4, 2);
    contacts({"Ann", "Bob", "Cy", "Dan"});
    store("Ann#,Bob#|Cy#,-|-,-");
    storeTitles({"Family", "Work"});
  }

  static void move(ManagerProcess& bare, Place from, Place to) {
    const auto person = bare.friendAt(from.page, from.slot);
    bare.remove(from.page, from.slot);
    bare.set(person, to.page, to.slot);
  }
  /// One save of everything that `edits` does.
  void edit(ManagerProcess& bare, const std::function<void()>& edits) {
    bare.run([&] {
      bare.manager().editor().performStep(edits);
      bare.manager().saveFriendGroupTitles();
    });
    rest();
  }
};

TEST_F(ForeignEditsTest, WhatAProgramWithoutAHistoryDoesIsAStepThatCanBeTakenBack) {
  auto a = open();
  auto bare = launch();
  rest();
  struct Case {
    std::function<void()> edits;
    std::string step;
    std::string list;
  };
  const std::string start = "Ann,Bob|Cy,-|-,- Family|Work|-";
  const std::vector<Case> cases = {
      {[&] { bare->remove(0, 1); }, "foreign Bob -1", "Ann,-|Cy,-|-,- Family|Work|-"},
      {[&] {
         move(*bare, {0, 0}, {1, 1});
       },
       "foreign Ann >1", "-,Bob|Cy,Ann|-,- Family|Work|-"},
      {[&] { bare->setTitle(0, "Club"); }, "foreign pages 1", "Ann,Bob|Cy,-|-,- Club|Work|-"},
      {[&] { bare->add("Dan"); }, "foreign Dan +1", "Ann,Bob|Cy,Dan|-,- Family|Work|-"},
      {[&] { bare->friendAt(0, 0)->setPreferredReplyAs("voice"); }, "foreign Ann ~1", start},
      {[&] { bare->set(bare->person("Dan"), 2, 0); }, "foreign Dan +1 pages 1",
       "Ann,Bob|Cy,-|Dan,-|-,- Family|Work|-|-"},
      {[&] {
         bare->remove(1, 0);
         bare->setTitle(1, "");
         move(*bare, {0, 1}, {1, 1});
       },
       "foreign Cy Bob -1 >1 pages 1", "Ann,-|-,Bob|-,- Family|-|-"},
  };
  for (std::size_t number = 0; number < cases.size(); ++number) {
    edit(*bare, cases[number].edits);
    EXPECT_EQ(a->shown(), cases[number].list);
    ASSERT_EQ(a->told().size(), number + 1) << cases[number].step;
    EXPECT_EQ(a->told().back(), cases[number].step);
    const HistoryStep step = a->history().back();
    EXPECT_EQ(step.program, "");
    EXPECT_TRUE(step.isUndoable);
    const bool isNamed = number % 2 == 0;
    const UndoAnswer answer = a->undo(isNamed ? step.id : "");
    EXPECT_TRUE(answer && answer.step && answer.kept.empty()) << cases[number].step;
    rest();
    EXPECT_EQ(a->shown(), start) << cases[number].step;
    EXPECT_EQ(bare->list() + " " + bare->titles(), start);
    EXPECT_EQ(a->told().back(), cases[number].step + " (back)");
  }
  EXPECT_EQ(a->friendNamed("Ann")->replyAs, std::nullopt);
  auto b = open();
  EXPECT_EQ(b->told(), a->told()) << "it went out with the step that took it back";
}

TEST_F(ForeignEditsTest, AllWhoFindItMakeOneStepWhichGoesOutWithTheNextOfThem) {
  auto a = open(), b = open();
  auto bare = launch();
  edit(*bare, [&] { bare->remove(0, 1); });
  EXPECT_THAT(a->told(), ElementsAre("foreign Bob -1"));
  EXPECT_EQ(a->history()[0].id, b->history()[0].id);
  auto late = open();
  EXPECT_THAT(late->told(), IsEmpty()) << "it did not know the list of before";
  b->apply("title 1 Club");
  rest();
  EXPECT_THAT(b->told(), ElementsAre("foreign Bob -1", "own pages 1"));
  a->apply("title 1 Home");
  rest();
  for (auto* process : {a.get(), b.get(), late.get()})
    EXPECT_THAT(process->told(), ElementsAre("foreign Bob -1", "own pages 1", "own pages 1"));
  EXPECT_TRUE(late->undo(late->history()[0].id));
  rest();
  EXPECT_EQ(a->shown(), "Ann,Bob|Cy,-|-,- Home|Work|-");
}

// A process that was away finds in one look what the other one found in two.
TEST_F(ForeignEditsTest, WhatWasFoundInTwoLooksAndInOneIsToldOfOnce) {
  for (const bool isByTwo : {true, false}) {
    store("Ann#,Bob#|Cy#,-|-,-");
    auto a = open(), b = open();
    a->clearHistory();
    rest();
    auto bare = launch();
    rest();
    world.bus().breakConnection(b->process().process());
    edit(*bare, [&] { bare->remove(0, 1); });
    edit(*bare, [&] { bare->add("Dan"); });
    EXPECT_THAT(a->told(), ElementsAre("foreign Bob -1", "foreign Dan +1"));
    ListProcess& first = isByTwo ? *a : *b;
    if (!isByTwo) world.bus().breakConnection(a->process().process());
    world.bus().restoreConnection(b->process().process());
    b->reload();
    EXPECT_THAT(b->told(), ElementsAre("foreign Bob Dan +1 -1"));
    first.apply("title 1 Club");
    rest();
    world.bus().restoreConnection(a->process().process());
    a->reload();
    a->apply("title 1 Home");
    b->apply("title 1 Folks");
    rest();
    const std::vector<std::string> twice = {"foreign Bob -1", "foreign Dan +1"}, once = {"foreign Bob Dan +1 -1"};
    const auto steps = a->told();
    EXPECT_EQ(std::vector<std::string>(steps.begin(), steps.end() - 3), isByTwo ? twice : once);
    EXPECT_EQ(b->told(), steps);
  }
}

// A list that follows the contacts is written without a step, and a page at the end without an edit.
TEST_F(ForeignEditsTest, WhatFollowsACardAndEmptyPagesAreNoStep) {
  auto a = open(), b = open();
  world.addressBook().put({.guid = guidOf("Ann"), .first = "Anna", .emails = {{"home", mailOf("Ann")}}});
  rest();
  EXPECT_EQ(b->shown(), "Anna,Bob|Cy,-|-,- Family|Work|-");
  EXPECT_THAT(a->told(), IsEmpty());
  EXPECT_THAT(b->told(), IsEmpty());
  for (const auto& [list, step] :
       std::vector<std::pair<std::string, std::string>>{{"Ann#,Bob#|Cy#,-", ""},
                                                        {"Ann#,Bob#|Cy#,-|-,-|-,-", ""},
                                                        {"Ann#,Bob#|Dan#,Cy#|-,-", "foreign Cy Dan +1 >1"}}) {
    store(list);
    postListChanged();
    rest();
    EXPECT_EQ(a->told(), step.empty() ? std::vector<std::string>() : std::vector{step}) << list;
  }
}

// Which of the changes since were told of it cannot know.
TEST_F(ForeignEditsTest, AProgramThatWasAwayMakesNoStepOfWhatAnotherOneTells) {
  auto a = open(), b = open();
  auto bare = launch();
  rest();
  world.bus().breakConnection(b->process().process());
  edit(*bare, [&] { bare->remove(0, 1); });
  a->apply("title 1 Club");
  rest();
  edit(*bare, [&] { bare->add("Dan"); });
  world.bus().restoreConnection(b->process().process());
  b->reload();
  EXPECT_THAT(b->told(), ElementsAre("foreign Bob -1", "own pages 1"));
  EXPECT_THAT(a->told(), ElementsAre("foreign Bob -1", "own pages 1", "foreign Dan +1"));
  a->apply("title 1 Home");
  rest();
  EXPECT_THAT(b->told(), ElementsAre("foreign Bob -1", "own pages 1", "foreign Dan +1", "own pages 1"));
}

// A manager that had its list before somebody kept a history beside it.
TEST_F(ForeignEditsTest, AHistoryThatIsReadLaterThanTheListTellsOfWhatCameBetween) {
  auto a = open();
  auto process = launch();
  rest();
  world.bus().breakConnection(process->process());
  a->apply("title 1 Club");
  rest();
  ListProcess late(std::move(process));
  world.bus().restoreConnection(late.process().process());
  late.reload();
  EXPECT_THAT(late.told(), ElementsAre("own pages 1"));
  auto bare = launch();
  rest();
  edit(*bare, [&] { bare->remove(0, 1); });
  EXPECT_THAT(late.told(), ElementsAre("own pages 1", "foreign Bob -1"));
}

TEST_F(ForeignEditsTest, AStepOfItThatWasNotStoredDoesNotBringBackWhoWasForgotten) {
  struct Case {
    const char* what;
    bool isOfFinder;  // who forgets has found the edit too
    bool isAlone;     // the edit is about nobody else
  };
  for (const Case& each : {Case{"by a finder", true, false}, Case{"by a finder, alone", true, true},
                           Case{"by another", false, false}, Case{"by another, alone", false, true}}) {
    store("Ann#,Bob#|Cy#,-|-,-");
    auto a = open(), other = open();
    a->apply("reply Bob voice");
    auto bare = launch();
    rest();
    edit(*bare, [&] {
      bare->remove(0, 1);
      if (!each.isAlone) bare->add("Dan");
    });
    if (!each.isOfFinder) other = open();
    EXPECT_TRUE(other->forget(guidOf("Bob"))) << each.what;
    rest();
    a->apply("title 1 Club");
    other->apply("title 1 Home");
    rest();
    EXPECT_EQ(a->told(), other->told());
    EXPECT_THAT(Value(storedValue(HistoryKey)->longArray()->elements()).description(), Not(HasSubstr(guidOf("Bob"))))
        << each.what;
    const std::string left = each.isAlone ? "foreign" : "foreign Dan +1";
    EXPECT_EQ(std::ranges::count(a->told(), left), 1) << each.what;
    a->clearHistory();
    rest();
  }
}

TEST_F(ForeignEditsTest, AnOwnEditThatMeetsItIsMergedAndBothAreTold) {
  auto a = open();
  auto bare = launch();
  rest();
  a->apply("move Ann 3:1");
  bare->add("Dan");
  rest();
  EXPECT_EQ(a->shown(), "-,Bob|Cy,Dan|Ann,-|-,- Family|Work|-|-");
  const auto steps = a->told();
  EXPECT_THAT(steps, ::testing::IsSupersetOf({"own Ann >1 pages 1", "foreign Dan +1"}));
  auto b = open();
  EXPECT_THAT(b->told(), ::testing::Contains("own Ann >1 pages 1"));
}

}  // namespace
}  // namespace pellor
