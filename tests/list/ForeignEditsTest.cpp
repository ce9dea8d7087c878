// What a program did that keeps no history: a list that follows finds it in the store, and makes a step of it.
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

class ForeignEditsTest : public ManagerTest {
 protected:
  ForeignEditsTest() {
    setGroups(4, 2);
    contacts({"Ann", "Bob", "Cy", "Dan"});
    store("Ann#,Bob#|Cy#,-|-,-");
    storeTitles({"Family", "Work"});
  }

  std::unique_ptr<ListProcess> open() {
    auto process = std::make_unique<ListProcess>(launch());
    rest();
    return process;
  }
  static std::vector<HistoryStep> history(ListProcess& process) {
    return process.process().run([&] { return process.list().history(); });
  }
  static UndoAnswer undo(ListProcess& process, const std::string& id = {}) {
    return process.process().run([&] { return process.list().undo(id); });
  }
  /// "foreign Ann: -1" for each step: who, and how many were added, removed, moved, changed, and pages.
  static std::vector<std::string> told(ListProcess& process) {
    std::vector<std::string> texts;
    for (const HistoryStep& step : history(process)) {
      std::string text = step.kind == StepKind::anotherProgram ? "foreign" : "own";
      for (const std::string& name : step.summary.names) text += " " + name;
      const auto say = [&](const char* sign, std::uint64_t count) {
        if (count > 0) text += std::string(" ") + sign + std::to_string(count);
      };
      say("+", step.summary.added);
      say("-", step.summary.removed);
      say(">", step.summary.moved);
      say("~", step.summary.changed);
      say("pages ", step.summary.pages);
      texts.push_back(text + (step.isTakenBack ? " (back)" : ""));
    }
    return texts;
  }
  static std::string shown(ListProcess& process) { return process.process().list() + " " + process.process().titles(); }
  static void rename(ListProcess& process, const std::string& title) {
    process.apply([&](const Snapshot& list) { return std::vector<Edit>{RenamePage{list.page(0).id, title}}; });
  }
  static void move(ManagerProcess& bare, Place from, Place to) {
    const auto person = bare.friendAt(from.page, from.slot);
    bare.remove(from.page, from.slot);
    bare.set(person, to.page, to.slot);
  }
  /// One save of everything that `edits` does.
  void edit(ManagerProcess& bare, const std::function<void()>& edits) {
    bare.run([&] {
      bare.manager().performStep(edits);
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
    EXPECT_EQ(shown(*a), cases[number].list);
    ASSERT_EQ(told(*a).size(), number + 1) << cases[number].step;
    EXPECT_EQ(told(*a).back(), cases[number].step);
    const HistoryStep step = history(*a).back();
    EXPECT_EQ(step.program, "");
    EXPECT_TRUE(step.isUndoable);
    const bool isNamed = number % 2 == 0;
    const UndoAnswer answer = undo(*a, isNamed ? step.id : "");
    EXPECT_TRUE(answer && answer.step && answer.kept.empty()) << cases[number].step;
    rest();
    EXPECT_EQ(shown(*a), start) << cases[number].step;
    EXPECT_EQ(bare->list() + " " + bare->titles(), start);
    EXPECT_EQ(told(*a).back(), cases[number].step + " (back)");
  }
  EXPECT_EQ(a->friendNamed("Ann")->replyAs, std::nullopt);
  auto b = open();
  EXPECT_EQ(told(*b), told(*a)) << "it went out with the step that took it back";
}

TEST_F(ForeignEditsTest, AllWhoFindItMakeOneStepWhichGoesOutWithTheNextOfThem) {
  auto a = open(), b = open();
  auto bare = launch();
  edit(*bare, [&] { bare->remove(0, 1); });
  EXPECT_THAT(told(*a), ElementsAre("foreign Bob -1"));
  EXPECT_EQ(history(*a)[0].id, history(*b)[0].id);
  auto late = open();
  EXPECT_THAT(told(*late), IsEmpty()) << "it did not know the list of before";
  rename(*b, "Club");
  rest();
  EXPECT_THAT(told(*b), ElementsAre("foreign Bob -1", "own pages 1"));
  rename(*a, "Home");
  rest();
  for (auto* process : {a.get(), b.get(), late.get()})
    EXPECT_THAT(told(*process), ElementsAre("foreign Bob -1", "own pages 1", "own pages 1"));
  EXPECT_TRUE(undo(*late, history(*late)[0].id));
  rest();
  EXPECT_EQ(shown(*a), "Ann,Bob|Cy,-|-,- Home|Work|-");
}

// A process that was away finds in one look what the other one found in two.
TEST_F(ForeignEditsTest, WhatWasFoundInTwoLooksAndInOneIsToldOfOnce) {
  for (const bool isByTwo : {true, false}) {
    store("Ann#,Bob#|Cy#,-|-,-");
    auto a = open(), b = open();
    a->process().run([&] { a->list().clearHistory(); });
    rest();
    auto bare = launch();
    rest();
    world.bus().breakConnection(b->process().process());
    edit(*bare, [&] { bare->remove(0, 1); });
    edit(*bare, [&] { bare->add("Dan"); });
    EXPECT_THAT(told(*a), ElementsAre("foreign Bob -1", "foreign Dan +1"));
    ListProcess& first = isByTwo ? *a : *b;
    if (!isByTwo) world.bus().breakConnection(a->process().process());
    world.bus().restoreConnection(b->process().process());
    b->process().run([&] { b->process().manager().reloadFriendList(); });
    EXPECT_THAT(told(*b), ElementsAre("foreign Bob Dan +1 -1"));
    rename(first, "Club");
    rest();
    world.bus().restoreConnection(a->process().process());
    a->process().run([&] { a->process().manager().reloadFriendList(); });
    rename(*a, "Home");
    rename(*b, "Folks");
    rest();
    const std::vector<std::string> twice = {"foreign Bob -1", "foreign Dan +1"}, once = {"foreign Bob Dan +1 -1"};
    const auto steps = told(*a);
    EXPECT_EQ(std::vector<std::string>(steps.begin(), steps.end() - 3), isByTwo ? twice : once);
    EXPECT_EQ(told(*b), steps);
  }
}

// A list that follows the contacts is written without a step, and a page at the end without an edit.
TEST_F(ForeignEditsTest, WhatFollowsACardAndEmptyPagesAreNoStep) {
  auto a = open(), b = open();
  world.addressBook().put({.guid = guidOf("Ann"), .first = "Anna", .emails = {{"home", mailOf("Ann")}}});
  rest();
  EXPECT_EQ(shown(*b), "Anna,Bob|Cy,-|-,- Family|Work|-");
  EXPECT_THAT(told(*a), IsEmpty());
  EXPECT_THAT(told(*b), IsEmpty());
  for (const auto& [list, step] :
       std::vector<std::pair<std::string, std::string>>{{"Ann#,Bob#|Cy#,-", ""},
                                                        {"Ann#,Bob#|Cy#,-|-,-|-,-", ""},
                                                        {"Ann#,Bob#|Dan#,Cy#|-,-", "foreign Cy Dan +1 >1"}}) {
    store(list);
    postListChanged();
    rest();
    EXPECT_EQ(told(*a), step.empty() ? std::vector<std::string>() : std::vector{step}) << list;
  }
}

// Which of the changes since were told of it cannot know.
TEST_F(ForeignEditsTest, AProgramThatWasAwayMakesNoStepOfWhatAnotherOneTells) {
  auto a = open(), b = open();
  auto bare = launch();
  rest();
  world.bus().breakConnection(b->process().process());
  edit(*bare, [&] { bare->remove(0, 1); });
  rename(*a, "Club");
  rest();
  edit(*bare, [&] { bare->add("Dan"); });
  world.bus().restoreConnection(b->process().process());
  b->process().run([&] { b->process().manager().reloadFriendList(); });
  EXPECT_THAT(told(*b), ElementsAre("foreign Bob -1", "own pages 1"));
  EXPECT_THAT(told(*a), ElementsAre("foreign Bob -1", "own pages 1", "foreign Dan +1"));
  rename(*a, "Home");
  rest();
  EXPECT_THAT(told(*b), ElementsAre("foreign Bob -1", "own pages 1", "foreign Dan +1", "own pages 1"));
}

// A manager that had its list before somebody kept a history beside it.
TEST_F(ForeignEditsTest, AHistoryThatIsReadLaterThanTheListTellsOfWhatCameBetween) {
  auto a = open();
  auto process = launch();
  rest();
  world.bus().breakConnection(process->process());
  rename(*a, "Club");
  rest();
  ListProcess late(std::move(process));
  world.bus().restoreConnection(late.process().process());
  late.process().run([&] { late.process().manager().reloadFriendList(); });
  EXPECT_THAT(told(late), ElementsAre("own pages 1"));
  auto bare = launch();
  rest();
  edit(*bare, [&] { bare->remove(0, 1); });
  EXPECT_THAT(told(late), ElementsAre("own pages 1", "foreign Bob -1"));
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
    a->apply([&](const Snapshot& list) { return std::vector<Edit>{SetReplyAs{list.friendAt({0, 1})->id, "voice"}}; });
    auto bare = launch();
    rest();
    edit(*bare, [&] {
      bare->remove(0, 1);
      if (!each.isAlone) bare->add("Dan");
    });
    if (!each.isOfFinder) other = open();
    EXPECT_TRUE(other->process().run([&] { return other->list().forget(guidOf("Bob")); })) << each.what;
    rest();
    rename(*a, "Club");
    rename(*other, "Home");
    rest();
    EXPECT_EQ(told(*a), told(*other));
    EXPECT_THAT(Value(storedValue("PLFriendListHistory")->longArray()->elements()).description(),
                Not(HasSubstr(guidOf("Bob"))))
        << each.what;
    const std::string left = each.isAlone ? "foreign" : "foreign Dan +1";
    EXPECT_EQ(std::ranges::count(told(*a), left), 1) << each.what;
    a->process().run([&] { a->list().clearHistory(); });
    rest();
  }
}

TEST_F(ForeignEditsTest, AnOwnEditThatMeetsItIsMergedAndBothAreTold) {
  auto a = open();
  auto bare = launch();
  rest();
  a->apply([](const Snapshot& list) { return std::vector<Edit>{MoveFriend{list.friendAt({0, 0})->id, {2, 0}}}; });
  bare->add("Dan");
  rest();
  EXPECT_EQ(shown(*a), "-,Bob|Cy,Dan|Ann,-|-,- Family|Work|-|-");
  const auto steps = told(*a);
  EXPECT_THAT(steps, ::testing::IsSupersetOf({"own Ann >1 pages 1", "foreign Dan +1"}));
  auto b = open();
  EXPECT_THAT(told(*b), ::testing::Contains("own Ann >1 pages 1"));
}

}  // namespace
}  // namespace pellor
