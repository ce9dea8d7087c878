// Edits as data: what a step does, when it is refused, and what becomes of it when another program was first.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "pellor/list/Edit.h"
#include "tests/list/ListProcess.h"
#include "tests/pellor/SeededTest.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using enum RefusalReason;

using Edits = std::vector<Edit>;

FriendId at(const Snapshot& list, std::uint64_t page, std::uint64_t slot) { return list.friendAt({page, slot})->id; }

class FriendListStepTest : public ManagerTest {
 protected:
  FriendListStepTest() { setGroups(4, 2); }

  std::unique_ptr<ListProcess> open(const std::string& list) {
    auto process = std::make_unique<ListProcess>(launchWith(list));
    rest();
    process->takeHeard();
    return process;
  }
  void forgetList() {
    world.preferences().setValue(PLFriendListKey, std::nullopt, TapnoteDomain);
    world.preferences().setValue(PLGroupTitlesKey, std::nullopt, TapnoteDomain);
  }
};

struct Case {
  std::string what;
  std::string before;
  std::function<Edits(const Snapshot&)> edits;
  std::string after;  ///< the list, or why not: the reason, the edit, and who is in the way
};

std::string textOf(const StepAnswer& answer, const Snapshot& list) {
  std::string text = "refused: " + std::string(textOf(answer.refusal->reason));
  text += ", edit " + std::to_string(answer.refusal->edit);
  if (answer.refusal->inTheWay) text += ", " + list.friendWith(*answer.refusal->inTheWay)->name;
  return text;
}

TEST_F(FriendListStepTest, AStepDoesAllOfItsEditsOrNone) {
  const std::vector<Case> cases = {
      {"an address of nobody's takes the first free slot", "Ann,-|-,-",
       [](const Snapshot&) { return Edits{AddFriend{.destination = "cy@example.org"}}; }, "Ann,cy@example.org|-,-"},
      {"the last page got its first friend", "Ann,Bob|-,-",
       [](const Snapshot&) { return Edits{AddFriend{.destination = "cy@example.org"}}; },
       "Ann,Bob|cy@example.org,-|-,-"},
      {"into a slot", "Ann,-|-,-",
       [](const Snapshot&) {
         return Edits{AddFriend{.destination = "cy@example.org", .to = Place{1, 1}}};
       },
       "Ann,-|-,cy@example.org|-,-"},
      {"into a slot that is taken", "Ann,-|-,-",
       [](const Snapshot&) {
         return Edits{AddFriend{.destination = "cy@example.org", .to = Place{0, 0}}};
       },
       "refused: there is no such place, or it is taken, edit 0, Ann"},
      {"an address that a friend has", "Ann,Bob|-,-",
       [](const Snapshot&) { return Edits{AddFriend{.destination = "bob@example.org"}}; },
       "refused: is a friend already, edit 0, Bob"},
      {"twice in one step", "Ann,-|-,-",
       [](const Snapshot&) {
         return Edits{AddFriend{.destination = "cy@example.org"}, AddFriend{.destination = "cy@example.org"}};
       },
       "refused: is a friend already, edit 1"},
      {"neither number nor address", "Ann,-|-,-", [](const Snapshot&) { return Edits{AddFriend{.destination = "Cy"}}; },
       "refused: there is no such number or address, edit 0"},
      {"no such contact", "Ann,-|-,-", [](const Snapshot&) { return Edits{AddFriend{.contactGUID = "guid-Nobody"}}; },
       "refused: is not there, edit 0"},
      {"none of them where the last one is refused", "Ann,Bob|-,-",
       [](const Snapshot& list) {
         return Edits{RemoveFriend{at(list, 0, 0)}, AddFriend{.destination = "cy@example.org"}, RemoveFriend{{999}}};
       },
       "refused: is not there, edit 2"},
      {"no room", "Ann,Bob|Cy,Dan|Eve,Fay|Gus,Hal",
       [](const Snapshot&) { return Edits{AddFriend{.destination = "ivy@example.org"}}; },
       "refused: there is no room, edit 0"},
      {"room that the step makes", "Ann,Bob|Cy,Dan|Eve,Fay|Gus,Hal",
       [](const Snapshot& list) {
         return Edits{RemoveFriend{at(list, 1, 1)}, AddFriend{.destination = "ivy@example.org"}};
       },
       "Ann,Bob|Cy,ivy@example.org|Eve,Fay|Gus,Hal"},
      {"a page whose last friend is removed goes", "Ann,Bob|Cy,-|Dan,-|-,-",
       [](const Snapshot& list) { return Edits{RemoveFriend{at(list, 1, 0)}}; }, "Ann,Bob|Dan,-|-,-"},
      {"but not when somebody comes onto it", "Ann,Bob|Cy,-|Dan,-|-,-",
       [](const Snapshot& list) {
         return Edits{RemoveFriend{at(list, 1, 0)}, MoveFriend{at(list, 0, 0), {1, 0}}};
       },
       "-,Bob|Ann,-|Dan,-|-,-"},
      {"a page that a friend is moved from stays", "Ann,Bob|Cy,-|-,-",
       [](const Snapshot& list) {
         return Edits{MoveFriend{at(list, 1, 0), {2, 0}}};
       },
       "Ann,Bob|-,-|Cy,-|-,-"},
      {"a taken slot swaps", "Ann,Bob|Cy,-|-,-",
       [](const Snapshot& list) {
         return Edits{MoveFriend{at(list, 0, 0), {1, 0}}};
       },
       "Cy,Bob|Ann,-|-,-"},
      {"three in a ring", "Ann,Bob|Cy,-|-,-",
       [](const Snapshot& list) {
         return Edits{MoveFriend{at(list, 0, 0), {0, 1}}, MoveFriend{at(list, 0, 0), {1, 0}}};
       },
       "Bob,Cy|Ann,-|-,-"},
      {"to a slot that there is not", "Ann,-|-,-",
       [](const Snapshot& list) {
         return Edits{MoveFriend{at(list, 0, 0), {0, 2}}};
       },
       "refused: there is no such place, or it is taken, edit 0"},
      {"a page is filled from others", "Ann,Bob|Cy,-|-,-",
       [](const Snapshot& list) {
         return Edits{FillPage{list.page(1).id, {at(list, 0, 1), at(list, 1, 0)}}};
       },
       "Ann,-|Bob,Cy|-,-"},
      {"nobody leaves the list by that", "Ann,Bob|Cy,-|-,-",
       [](const Snapshot& list) {
         return Edits{FillPage{list.page(0).id, {{}, at(list, 0, 1)}}};
       },
       "refused: there is no such place, or it is taken, edit 0, Ann"},
      {"a page comes between others", "Ann,-|Bob,-|-,-",
       [](const Snapshot&) {
         return Edits{InsertPage{1, "New"}};
       },
       "Ann,-|-,-|Bob,-|-,-"},
      {"somebody onto a page that the step inserts", "Ann,-|Bob,-|-,-",
       [](const Snapshot& list) {
         return Edits{InsertPage{0}, MoveFriend{at(list, 1, 0), {0, 1}}};
       },
       "-,Bob|Ann,-|-,-|-,-"},
      {"no more pages than there may be", "Ann,-|Bob,-|Cy,-|Dan,-",
       [](const Snapshot&) { return Edits{InsertPage{0}}; }, "refused: there is no room, edit 0"},
      {"a page moves to the end", "Ann,Bob|Cy,-|Dan,-|-,-",
       [](const Snapshot& list) {
         return Edits{MovePage{list.page(0).id, 2}};
       },
       "Cy,-|Dan,-|Ann,Bob|-,-"},
      {"and to the beginning", "Ann,Bob|Cy,-|Dan,-|-,-",
       [](const Snapshot& list) {
         return Edits{MovePage{list.page(2).id, 0}};
       },
       "Dan,-|Ann,Bob|Cy,-|-,-"},
      {"behind the empty page there is another one", "Ann,-|Bob,-|-,-",
       [](const Snapshot& list) {
         return Edits{MovePage{list.page(0).id, 2}};
       },
       "Bob,-|-,-|Ann,-|-,-"},
      {"a page goes with its friends", "Ann,Bob|Cy,-|-,-",
       [](const Snapshot& list) { return Edits{RemovePage{list.page(0).id}}; }, "Cy,-|-,-"},
      {"the empty page comes back", "Ann,-|-,-",
       [](const Snapshot& list) { return Edits{RemovePage{list.page(1).id}}; }, "Ann,-|-,-"},
      {"a page that is gone", "Ann,-|Bob,-|-,-",
       [](const Snapshot& list) {
         return Edits{RemovePage{list.page(0).id}, RenamePage{list.page(0).id, "Home"}};
       },
       "refused: is not there, edit 1"},
      {"a number that the friend does not have", "Ann,-|-,-",
       [](const Snapshot& list) {
         return Edits{ChooseNumber{at(list, 0, 0), "bob@example.org"}};
       },
       "refused: there is no such number or address, edit 0"},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.what);
    forgetList();
    auto a = open(each.before);
    const Snapshot before = a->snapshot();
    const auto planned = a->process().run([&] { return a->list().plan(each.edits(before)); });
    EXPECT_EQ(a->process().list(), each.before) << "planned only";
    std::vector<std::optional<Refusal>> told;
    const StepAnswer answer = a->apply(each.edits, [&](const auto& refusal) { told.push_back(refusal); });
    EXPECT_EQ(planned.refusal, answer.refusal);
    EXPECT_EQ(answer ? a->process().list() : textOf(answer, before), each.after);
    for (const EditResult& result : answer.results) EXPECT_EQ(a->snapshot().placeOf(result.id), result.place);
    EXPECT_EQ(a->process().manager().invariantViolation(), std::nullopt);
    EXPECT_THAT(told, IsEmpty()) << "never inside the call";
    rest();
    if (answer) {
      EXPECT_THAT(told, ElementsAre(std::nullopt));
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
  const auto answer = a->apply([](const Snapshot& list) {
    const FriendId ann = at(list, 0, 0);
    return Edits{SetReplyAs{ann, "voice"},    SetMetadata{ann, "seen", 1},          SetMetadata{ann, "kind", "x"},
                 MoveFriend{ann, {1, 0}},     ChooseNumber{ann, "ann@example.org"}, RenamePage{list.page(1).id, "Work"},
                 SetMetadata{ann, "seen", {}}};
  });
  ASSERT_TRUE(answer);
  const auto ann = a->snapshot().friendAt({1, 0});
  EXPECT_EQ(ann->chosenNumber, "ann@example.org");
  EXPECT_EQ(ann->replyAs, "voice");
  EXPECT_EQ(ann->metadata, (Dictionary{{"kind", "x"}}));
  EXPECT_EQ(a->process().titles(), "-|Work|-");
  EXPECT_EQ(a->snapshot().page(1).title, "Work");
  rest();
  EXPECT_EQ(a->takeHeard().size(), 1U);
  auto b = std::make_unique<ListProcess>(launch());
  rest();
  EXPECT_EQ(b->snapshot().friendAt({1, 0})->metadata, ann->metadata);
  EXPECT_EQ(b->process().titles(), "-|Work|-");
}

TEST_F(FriendListStepTest, AContactIsRefusedWhoseLinkedRecordIsAFriends) {
  world.addressBook().add({.guid = "guid-Zoe", .first = "Zoe", .emails = {{"home", "zoe@example.org"}}});
  world.addressBook().add({.guid = "guid-Zoe2", .first = "Zoe", .emails = {{"work", "zoe@work.example"}}});
  world.addressBook().link({"guid-Zoe", "guid-Zoe2"});
  auto a = open("-,-");
  EXPECT_TRUE(a->apply([](const Snapshot&) { return Edits{AddFriend{.contactGUID = "guid-Zoe"}}; }));
  const auto answer = a->apply([](const Snapshot&) { return Edits{AddFriend{.contactGUID = "guid-Zoe2"}}; });
  ASSERT_TRUE(answer.refusal);
  EXPECT_EQ(*answer.refusal, (Refusal{isFriend, 0, a->idAt(0, 0)}));
}

TEST_F(FriendListStepTest, StepsAreTakenBackOneByOneAndDoneAgain) {
  auto a = open("Ann,Bob|Cy,-|-,-");
  a->process().setTitle(1, "Work");
  a->process().run([&] { a->process().friendAt(0, 1)->setMetadataValueForKey(Value(1), "seen"); });
  rest();
  const FriendId bob = a->idAt(0, 1), cy = a->idAt(1, 0);
  std::vector<std::string> lists = {a->process().list() + " " + a->process().titles()};
  const std::vector<std::function<Edits(const Snapshot&)>> steps = {
      [](const Snapshot& list) {
        return Edits{RemoveFriend{at(list, 0, 1)}, AddFriend{.destination = "x@example.org"}};
      },
      [](const Snapshot& list) { return Edits{RemovePage{list.page(1).id}}; },
      [](const Snapshot& list) {
        return Edits{MoveFriend{at(list, 0, 0), {1, 1}}, RenamePage{list.page(0).id, "Home"}};
      },
      [](const Snapshot& list) {
        return Edits{SetReplyAs{at(list, 1, 1), "voice"}, MovePage{list.page(0).id, 1}};
      },
  };
  for (const auto& step : steps) {
    ASSERT_TRUE(a->apply(step));
    rest();
    lists.push_back(a->process().list() + " " + a->process().titles());
  }
  const auto undo = [&] { return a->process().run([&] { return a->list().undo(); }); };
  const auto redo = [&] { return a->process().run([&] { return a->list().redo(); }); };
  for (std::size_t left = steps.size(); left > 0; --left) {
    const UndoAnswer answer = undo();
    ASSERT_TRUE(answer && answer.step);
    EXPECT_THAT(answer.kept, IsEmpty());
    EXPECT_EQ(a->process().list() + " " + a->process().titles(), lists[left - 1]);
    rest();
  }
  EXPECT_FALSE(undo().step) << "nothing is left";
  EXPECT_EQ(a->idAt(0, 1), bob) << "a friend keeps its id";
  EXPECT_EQ(a->idAt(1, 0), cy);
  EXPECT_EQ(a->snapshot().friendWith(bob)->metadata, (Dictionary{{"seen", 1}}));
  for (std::size_t done = 1; done < lists.size(); ++done) {
    ASSERT_TRUE(redo().step);
    EXPECT_EQ(a->process().list() + " " + a->process().titles(), lists[done]);
    rest();
  }
  EXPECT_FALSE(redo().step);
  ASSERT_TRUE(undo().step);
  ASSERT_TRUE(a->apply([](const Snapshot& list) { return Edits{RenamePage{list.page(0).id, "New"}}; }));
  EXPECT_FALSE(redo().step) << "a person made another step since";
  EXPECT_THAT(a->takeHeard(), testing::Contains(testing::StartsWith("undo:")));
}

TEST_F(FriendListStepTest, AnotherProgramTakesAStepBackThatOutlivesItsOwn) {
  auto a = open("Ann,Bob|Cy,-|-,-");
  a->apply([](const Snapshot& list) {
    return Edits{SetMetadata{at(list, 0, 1), "seen", 1}, SetReplyAs{at(list, 0, 1), "voice"}};
  });
  rest();
  a->apply([](const Snapshot& list) {
    return Edits{RemoveFriend{at(list, 0, 1)}, MoveFriend{at(list, 1, 0), {0, 1}}};
  });
  rest();
  a->kill();
  auto b = std::make_unique<ListProcess>(launch());
  rest();
  const auto history = b->process().run([&] { return b->list().history(); });
  ASSERT_EQ(history.size(), 2U);
  EXPECT_EQ(history[0].kind, StepKind::changedFriend);
  EXPECT_EQ(history[1].summary.removed, 1U);
  EXPECT_EQ(history[1].summary.moved, 1U);
  b->process().setTitle(1, "Work");
  ASSERT_TRUE(b->process().run([&] { return b->list().undo(); }).step);
  EXPECT_EQ(b->process().list(), "Ann,Bob|Cy,-|-,-");
  EXPECT_EQ(b->snapshot().friendAt({0, 1})->metadata, (Dictionary{{"seen", 1}})) << "he has what he had";
  rest();
  // A named one: what was done since stays.
  const UndoAnswer answer = b->process().run([&] { return b->list().undo(history[0].id); });
  ASSERT_TRUE(answer.step);
  EXPECT_EQ(b->snapshot().friendAt({0, 1})->metadata, Dictionary());
  EXPECT_EQ(b->snapshot().friendAt({0, 1})->replyAs, std::nullopt);
  EXPECT_EQ(b->process().titles(), "-|Work|-");
  const UndoAnswer again = b->process().run([&] { return b->list().undo(history[0].id); });
  EXPECT_EQ(again.refusal, (Refusal{notUndoable}));
}

// An empty page took the index of the one that went.
TEST_F(FriendListStepTest, ATitleThatAnotherProgramBroughtBackStays) {
  setGroups(2, 1);
  auto a = open("Ann|Bob");
  a->apply([](const Snapshot& list) { return Edits{RenamePage{list.page(1).id, "Work"}}; });
  rest();
  a->apply([](const Snapshot& list) { return Edits{RemovePage{list.page(1).id}}; });
  rest();
  auto b = std::make_unique<ListProcess>(launch());
  rest();
  ASSERT_TRUE(b->process().run([&] { return b->list().undo(); }).step);
  rest();
  for (ListProcess* process : {a.get(), b.get()})
    EXPECT_EQ(process->process().list() + " " + process->process().titles(), "Ann|Bob -|Work");
}

TEST_F(FriendListStepTest, AStepOfALaterVersionStaysWhenAnotherOneIsTakenBack) {
  setSetting("PLFriendListHistory", Array{Dictionary{{"id", "later"}, {"when", "another kind of time"}}});
  auto a = open("Ann,Bob|-,-");
  a->apply([](const Snapshot& list) { return Edits{RemoveFriend{at(list, 0, 1)}}; });
  rest();
  ASSERT_TRUE(a->process().run([&] { return a->list().undo(); }).step);
  rest();
  EXPECT_EQ(a->process().list(), "Ann,Bob|-,-");
  EXPECT_THAT(storedValue("PLFriendListHistory")->description(), testing::HasSubstr("another kind of time"));
  auto b = std::make_unique<ListProcess>(launch());
  rest();
  const auto history = b->process().run([&] { return b->list().history(); });
  ASSERT_EQ(history.size(), 1U);
  EXPECT_TRUE(history[0].isTakenBack);
}

// Each step renames the page. A full history is not written anew with each step, and stays in the order of the steps.
TEST_F(FriendListStepTest, TheNewestHundredStepsOfAllProgramsStay) {
  auto a = open("Ann,-|-,-"), b = std::make_unique<ListProcess>(launch());
  rest();
  const auto rename = [](ListProcess& process, std::size_t number) {
    process.apply([number](const Snapshot& list) {
      return Edits{RenamePage{list.page(0).id, std::to_string(number)}};
    });
  };
  std::vector<Value> titles;
  for (std::size_t number = 1; number <= 130; ++number) {
    rename(number % 3 == 0 ? *b : *a, number);
    rest();
    if (number > 30) titles.emplace_back(std::to_string(number));
  }
  const auto renamings = [this] {
    std::map<std::int64_t, Value> byMoment;
    for (const Value& step : storedValue("PLFriendListHistory")->longArray()->elements()) {
      const Value& page = step.dictionary()->at("pages").array()->front();
      byMoment.emplace(*step.dictionary()->at("moment").integer(), page.dictionary()->at("titleAfter"));
    }
    return byMoment;
  };
  EXPECT_TRUE(std::ranges::equal(renamings(), titles, {}, [](const auto& each) { return each.second; }));
  const LongArray before = *storedValue("PLFriendListHistory")->longArray();
  rename(*a, 131);
  rest();
  const LongArray after = *storedValue("PLFriendListHistory")->longArray();
  std::size_t kept = 0;
  for (std::size_t chunk = 0; chunk < before.chunks().size(); ++chunk)
    if (before.chunks()[chunk] == after.chunks()[chunk]) ++kept;
  EXPECT_EQ(kept, before.chunks().size() - 1);

  for (std::size_t undone = 0; undone < 20; ++undone) {
    ListProcess& process = undone % 2 == 0 ? *b : *a;
    ASSERT_TRUE(process.process().run([&] { return process.list().undo(); }).step);
    rest();
  }
  EXPECT_EQ(a->process().titles(), "111|-");
  EXPECT_EQ(b->process().titles(), "111|-");
}

TEST_F(FriendListStepTest, AListThatLostItsOnlyPageByACleanUpGetsOneByAStep) {
  setSetting(PLEmptyTrailingGroupEnabledKey, false);
  setSetting(PLRemoveDestinationlessFriendsEnabledKey, true);
  contacts({"Ann"});
  auto a = open("Ann#,-");
  a->apply([](const Snapshot& list) { return Edits{RenamePage{list.page(0).id, "Club"}}; });
  world.addressBook().put({.guid = guidOf("Ann"), .first = "Ann"});
  rest();
  ASSERT_EQ(a->snapshot().pageCount(), 0U);
  const auto steps = a->process().run([&] { return a->list().history(); });
  EXPECT_TRUE(a->process().run([&] { return a->list().undo(steps[0].id); })) << "there is no such page";
  EXPECT_TRUE(a->apply([](const Snapshot&) { return Edits{InsertPage{0, "New"}}; }));
  rest();
  EXPECT_EQ(a->snapshot().page(0).title, "New");
}

TEST_F(FriendListStepTest, AStepThatIsRefusedAfterAMergeIsInNoHistory) {
  auto a = open("Ann,Bob|Cy,-|-,-");
  store("Ann,Bob|-,-");
  a->apply([](const Snapshot& list) { return Edits{MoveFriend{at(list, 1, 0), {1, 1}}}; });
  rest();
  const auto kinds = [](ListProcess& process) {
    std::vector<StepKind> all;
    for (const HistoryStep& step : process.process().run([&] { return process.list().history(); }))
      all.push_back(step.kind);
    return all;
  };
  EXPECT_EQ(kinds(*a), std::vector{StepKind::anotherProgram});
  auto b = std::make_unique<ListProcess>(launch());
  rest();
  EXPECT_EQ(kinds(*b), kinds(*a));
}

TEST_F(FriendListStepTest, AStepThatChangesNothingIsStoredAtOnceAndInNoHistory) {
  auto a = open("Ann,-|-,-");
  a->apply([](const Snapshot& list) { return Edits{SetReplyAs{at(list, 0, 0), "voice"}}; });
  rest();
  std::vector<std::optional<Refusal>> told;
  for (const Edits& edits : {Edits{}, Edits{MoveFriend{a->idAt(0, 0), {0, 0}}, SetReplyAs{a->idAt(0, 0), "voice"}}})
    EXPECT_TRUE(
        a->apply([&](const Snapshot&) { return edits; }, [&](const auto& refusal) { told.push_back(refusal); }));
  rest();
  EXPECT_THAT(told, ElementsAre(std::nullopt, std::nullopt));
  EXPECT_EQ(a->process().run([&] { return a->list().history(); }).size(), 1U);
}

// A person whom the app holds is not written to by a look at what would be.
TEST_F(FriendListStepTest, APlanOfAnUndoLeavesTheRemovedFriendAsHeIs) {
  auto a = open("Ann,Bob|-,-");
  const auto bob = a->process().friendAt(0, 1);
  a->apply([](const Snapshot& list) { return Edits{RemoveFriend{at(list, 0, 1)}}; });
  rest();
  a->process().run([&] { bob->setPreferredReplyAs("mine"); });
  EXPECT_TRUE(a->process().run([&] { return a->list().planUndo(); }).step);
  EXPECT_EQ(bob->preferredReplyAs(), "mine");
}

TEST_F(FriendListStepTest, APageThatWasEmptyBeforeTheStepStaysWhenItIsTakenBack) {
  auto a = open("Ann,-|-,-|Bob,-|-,-");
  a->apply([](const Snapshot&) { return Edits{AddFriend{.destination = "cy@example.org", .to = Place{1, 0}}}; });
  rest();
  ASSERT_TRUE(a->process().run([&] { return a->list().undo(); }).step);
  rest();
  EXPECT_EQ(a->process().list(), "Ann,-|-,-|Bob,-|-,-");
}

// Each time by another process, which does not lay out the empty page behind.
TEST_F(FriendListStepTest, TheOnlyPageGoesWithItsTitleWhereAnotherOneComes) {
  setSetting(PLEmptyTrailingGroupEnabledKey, false);
  auto a = open("Ann,-");
  a->apply([](const Snapshot& list) { return Edits{InsertPage{0, "Club"}, MoveFriend{at(list, 0, 0), {0, 1}}}; });
  rest();
  const auto turn = [&](bool isBack) {
    a = std::make_unique<ListProcess>(launch());
    rest();
    const auto answer = a->process().run([&] { return isBack ? a->list().undo() : a->list().redo(); });
    EXPECT_TRUE(answer.step);
    EXPECT_THAT(answer.kept, IsEmpty());
    rest();
    const Snapshot list = a->snapshot();
    return a->process().list() + " " + list.page(0).title;
  };
  for (int times = 0; times < 2; ++times) {
    EXPECT_EQ(turn(true), "Ann,- ");
    EXPECT_EQ(turn(false), "-,Ann Club") << "an empty page at the end is no part of it";
  }
}

/// Moves the first friend to the second slot; what becomes of the step goes to `told`.
void moveFirst(ListProcess& process, std::vector<std::optional<Refusal>>& told) {
  const auto edits = [](const Snapshot& list) { return Edits{MoveFriend{list.friendAt({0, 0})->id, {0, 1}}}; };
  process.apply(edits, [&told](const auto& refusal) { told.push_back(refusal); });
}

TEST_F(FriendListStepTest, AFailingStoreCompletesNothingUntilItWorksAgain) {
  auto a = open("Ann,-|-,-");
  std::vector<std::optional<Refusal>> told;
  world.preferences().failWrites();
  moveFirst(*a, told);
  scheduler->advance(100);
  EXPECT_THAT(told, IsEmpty());
  EXPECT_EQ(a->process().list(), "-,Ann|-,-");
  world.preferences().failWrites(0);
  rest();
  EXPECT_THAT(told, ElementsAre(std::nullopt));
}

TEST_F(FriendListStepTest, AProgramThatEndsFirstAbandonsTheStep) {
  auto a = open("Ann,-|-,-");
  std::vector<std::optional<Refusal>> told;
  world.preferences().failWrites();
  moveFirst(*a, told);
  a->kill();
  EXPECT_THAT(told, ElementsAre(Refusal{abandoned}));
}

// The other program was first with what the step needs.
TEST_F(FriendListStepTest, AStepOfWhichOneEditNoLongerHoldsIsTakenBackAsAWhole) {
  struct Overtaking {
    std::string what;
    std::string before;
    std::string theirs;  ///< what the other program stores, unheard
    std::function<Edits(const Snapshot&)> edits;
    std::string told;
    std::string after;
  };
  const AddFriend addIvy{.destination = "ivy@example.org"};
  const std::vector<Overtaking> cases = {
      {"the friend was removed", "Ann,Bob|Cy,-|-,-", "Ann,Bob|-,-",
       [&](const Snapshot& list) {
         return Edits{addIvy, MoveFriend{at(list, 1, 0), {0, 0}}};
       },
       "another program changed it first", "Ann,Bob|-,-"},
      {"the same one was added", "Ann,Bob|Cy,-|-,-", "Ann,Bob|Cy,Ivy|-,-",
       [&](const Snapshot& list) {
         return Edits{RemoveFriend{at(list, 0, 0)}, addIvy};
       },
       "is a friend already", "Ann,Bob|Cy,Ivy|-,-"},
      {"the last room was taken", "Ann,Bob|Cy,Dan|Eve,Fay|Gus,-", "Ann,Bob|Cy,Dan|Eve,Fay|Gus,Joe",
       [&](const Snapshot& list) {
         return Edits{MoveFriend{at(list, 0, 0), {0, 1}}, addIvy};
       },
       "there is no room", "Ann,Bob|Cy,Dan|Eve,Fay|Gus,Joe"},
      {"somebody came onto the page", "Ann,Bob|Cy,-|-,-", "Ann,-|Cy,Bob|-,-",
       [](const Snapshot& list) {
         return Edits{RemovePage{list.page(1).id}, RemoveFriend{at(list, 0, 0)}};
       },
       "another program changed it first", "Ann,-|Cy,Bob|-,-"},
      {"all of it holds", "Ann,Bob|Cy,-|-,-", "Ann,Bob|Cy,Joe|-,-",
       [&](const Snapshot& list) {
         return Edits{RemoveFriend{at(list, 0, 0)}, addIvy};
       },
       "stored", "ivy@example.org,Bob|Cy,Joe|-,-"},
      {"what was to go is gone", "Ann,Bob|Cy,-|-,-", "-,Bob|Cy,-|-,-",
       [&](const Snapshot& list) {
         return Edits{addIvy, RemoveFriend{at(list, 0, 0)}};
       },
       "stored", "-,Bob|Cy,ivy@example.org|-,-"},
  };
  for (const Overtaking& each : cases) {
    SCOPED_TRACE(each.what);
    forgetList();
    auto a = open(each.before);
    store(each.theirs);
    std::vector<std::string> told;
    EXPECT_TRUE(a->apply(each.edits, [&](const auto& refusal) {
      told.push_back(refusal ? std::string(textOf(refusal->reason)) : "stored");
    }));
    rest();
    EXPECT_THAT(told, ElementsAre(each.told));
    EXPECT_EQ(a->process().list(), each.after);
    auto b = std::make_unique<ListProcess>(launch());
    rest();
    EXPECT_EQ(b->process().list(), each.after);
  }
}

// The first of two steps falls, the second does not.
TEST_F(FriendListStepTest, OnlyTheStepThatNoLongerHoldsIsTakenBack) {
  auto a = open("Ann,Bob|Cy,-|-,-");
  store("Ann,Bob|-,-");
  std::vector<std::string> told;
  const auto note = [&](const std::string& step) {
    return [&told, step](const auto& refusal) { told.push_back(step + (refusal ? " refused" : " stored")); };
  };
  a->apply(
      [](const Snapshot& list) {
        return Edits{MoveFriend{at(list, 1, 0), {0, 0}}, SetReplyAs{at(list, 0, 1), "x"}};
      },
      note("first"));
  a->apply([](const Snapshot& list) { return Edits{SetMetadata{at(list, 0, 1), "seen", 1}}; }, note("second"));
  rest();
  EXPECT_THAT(told, testing::UnorderedElementsAre("first refused", "second stored"));
  EXPECT_EQ(stored(2), "Ann,Bob|-,-");
  const auto bob = a->snapshot().friendAt({0, 1});
  EXPECT_EQ(bob->metadata, (Dictionary{{"seen", 1}}));
  EXPECT_EQ(bob->replyAs, std::nullopt) << "a half of the first step";
}

}  // namespace
}  // namespace pellor
