#include "pellor/list/internal/StepRecord.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "tests/list/StepWorld.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

Dictionary formNamed(const std::string& name) {
  return {{"ABRecordID", 7}, {"Monogram", ""}, {"Name", name}, {"AllValues", Array{Value(name + "@x")}}};
}

/// Adds friends of these names in the first free slots, on new pages where there are none.
StepRecord add(StepWorld& world, const std::vector<std::string>& names) {
  return world.step([&](ListDraft& draft, StepWorld::Forms& forms) {
    for (const std::string& name : names) {
      const FriendId id = world.newFriend();
      forms[id] = formNamed(name);
      if (!draft.firstFreeSlot()) draft.insertPage(draft.pageCount(), "");
      draft.put(id, *draft.firstFreeSlot());
    }
  });
}

std::vector<std::string> many(std::size_t count, const std::string& name) {
  std::vector<std::string> names;
  for (std::size_t number = 0; number < count; ++number) names.push_back(name + std::to_string(number));
  return names;
}

StepRecord withoutIds(StepRecord step) {
  for (FriendRecord& person : step.friends) person.id = {};
  for (PageRecord& page : step.pages) page.id = {};
  return step;
}

TEST(StepRecordTest, AStepTellsWhatChangedAndComesBackFromTheStoreAsItWas) {
  StepWorld world({2, 5, false});
  add(world, {"a", "b", "c", "d", "e"});
  const auto at = [&](Place place) { return world.list().friendAt(place)->id; };
  const FriendId a = at({0, 0}), b = at({0, 1}), c = at({1, 0}), e = at({2, 0});
  StepRecord step = world.step([&](ListDraft& draft, StepWorld::Forms& forms) {
    draft.lift(a);
    draft.lift(c);
    draft.put(c, {0, 0});
    forms[b].insert_or_assign("ReplyAs", "work");
    forms[c].insert_or_assign("Metadata", Dictionary{{"k", true}});
    draft.movePage(2, 0);
    draft.rename(1, "Work");
    draft.insertPage(3, "New");
  });
  const StepSummary summary = summaryOf(step);
  EXPECT_EQ(summary.removed, 1U);
  EXPECT_EQ(summary.added, 0U);
  EXPECT_EQ(summary.moved, 1U) << "e went with its page";
  EXPECT_EQ(summary.changed, 2U);
  EXPECT_EQ(summary.pages, 3U);
  EXPECT_THAT(summary.names, ElementsAre("a", "c", "b"));
  EXPECT_EQ(world.list().placeOf(e), (Place{0, 0}));

  step.id = "12.345";
  step.time = 1.7e9;
  step.program = "pellor";
  step.kind = StepKind::relinked;
  step.evidence = {{"score", 0.5}};
  EXPECT_EQ(StepWorld::asStored(step), withoutIds(step));
  for (int kind = 0; kind < static_cast<int>(StepKind::unknown); ++kind) {
    step.kind = static_cast<StepKind>(kind);
    EXPECT_EQ(StepWorld::asStored(step).kind, step.kind);
  }
}

TEST(StepRecordTest, WhatIsTooLargeKeepsItsSummaryAndCannotBeTakenBack) {
  StepWorld world({12, 1000, false});
  const std::size_t fitting = 1500, tooMany = 4000;
  EXPECT_TRUE(add(world, many(fitting, "Fits ")).isComplete);
  std::vector<std::string> names = many(tooMany, "A long enough name ");
  for (std::size_t length = 95; length < 105; ++length) names[length - 95] = std::string(length, 'x') + "\u00e4\u00e4";
  const StepRecord step = StepWorld::asStored(add(world, names));
  EXPECT_FALSE(step.isComplete);
  EXPECT_THAT(step.friends, IsEmpty());
  EXPECT_EQ(step.summary.added, tooMany);
  EXPECT_EQ(summaryOf(step), step.summary);
  ASSERT_THAT(step.summary.names, SizeIs(20));
  for (const std::string& name : step.summary.names) {
    EXPECT_LE(name.size(), 100U);
    EXPECT_NE(name.back(), '\xc3') << "half a character";
  }
  EXPECT_LT(encodeCBOR(Value(dictionaryOf(step)))->size(), 4096U);
  EXPECT_EQ(world.takeBack(step).taken.refusal->reason, RefusalReason::notUndoable);
}

// A step is stored in the list of steps, and that with the list of friends: one that cannot be written would hold both.
TEST(StepRecordTest, WhatIsNestedTooDeepToBeStoredKeepsItsSummary) {
  const auto stepWith = [](std::size_t depth) {
    Value value(1);
    while (depth-- > 0) value = Array{value};
    StepWorld world({1, 1, false});
    return world.step([&](ListDraft& draft, StepWorld::Forms& forms) {
      const FriendId id = world.newFriend();
      forms[id] = formNamed("a");
      forms[id].emplace("Metadata", Dictionary{{"k", value}});
      draft.insertPage(0, "");
      draft.put(id, {0, 0});
    });
  };
  std::size_t depth = 100;
  while (stepWith(depth).isComplete) ++depth;
  const auto canBeStored = [&](std::size_t deep) {
    return encodeCBOR(Array{Value(dictionaryOf(stepWith(deep)))}).has_value();
  };
  EXPECT_TRUE(canBeStored(depth - 1));
  EXPECT_TRUE(canBeStored(depth));
  EXPECT_EQ(summaryOf(stepWith(depth)).added, 1U);
}

// Found by asking for those who share something, and by looking at all.
TEST(StepRecordTest, FriendsWhoLookLikeARemovedOneAreCounted) {
  const std::vector<std::string> names{"a", "a", "a", "b"};
  for (const bool asks : {false, true}) {
    StepWorld world({5, 1, false});
    add(world, names);
    const Snapshot before = world.list();
    world.step([&](ListDraft& draft, StepWorld::Forms&) { draft.lift(draft.at({0, 0})); });
    const ListChange change = changeBetween(before, world.list());
    const auto form = [&](FriendId) { return formNamed("a"); };
    const auto everybody = [&](const Friend&) {
      std::vector<FriendId> ids;
      for (const auto& person : world.list().page(0).friends)
        if (person) ids.push_back(person->id);
      return ids;
    };
    StepRecord step;
    describe(step, change, form, form, asks ? FriendsSharing(everybody) : FriendsSharing());
    ASSERT_THAT(step.friends, SizeIs(1));
    EXPECT_EQ(step.friends[0].lookalikes, 2U);
  }
}

Dictionary storedStep() {
  const Dictionary form = formNamed("a"), page{{"from", 0}, {"to", 0}, {"friends", Array{Value(5)}}};
  const Dictionary moved{{"from", Array{0, 0}}, {"to", Array{0, 1}}, {"form", form}};
  return {{"id", "1.2"},
          {"time", 3.0},
          {"kind", "moved"},
          {"program", "p"},
          {"friends", Array{Value(moved)}},
          {"pages", Array{Value(page)}}};
}

TEST(StepRecordTest, WhatIsNoStepIsNone) {
  const auto with = [](const char* key, const std::optional<Value>& value) {
    Dictionary step = storedStep();
    step.erase(key);
    if (value) step.emplace(key, *value);
    return Value(step);
  };
  ASSERT_TRUE(stepRecordOf(storedStep()));
  for (const Value& value :
       {Value(1), Value("step"), Value(Array{}), Value(Dictionary{}), with("id", std::nullopt), with("id", ""),
        with("id", 5), with("time", std::nullopt), with("time", 3),
        with("time", std::numeric_limits<double>::infinity()), with("time", std::numeric_limits<double>::quiet_NaN())})
    EXPECT_FALSE(stepRecordOf(value)) << value.description();
}

TEST(StepRecordTest, ALaterVersionsStepIsReadAndNotTakenBack) {
  Dictionary stored = storedStep();
  stored.insert_or_assign("kind", "sorted");
  stored.emplace("of a later version", Array{Value(1)});
  const auto step = stepRecordOf(stored);
  ASSERT_TRUE(step);
  EXPECT_EQ(step->kind, StepKind::unknown);
  EXPECT_THAT(summaryOf(*step).names, ElementsAre("a"));
  StepWorld world({2, 1, false});
  EXPECT_EQ(world.takeBack(*step).taken.refusal->reason, RefusalReason::notUndoable);
  stored.insert_or_assign("kind", "moved");
  EXPECT_TRUE(stepRecordOf(stored)->isComplete) << "an unknown key does no harm";
}

// One part of a step that fits nothing: the step can be shown, and not be taken back.
TEST(StepRecordTest, ADamagedStepCannotBeTakenBack) {
  enum Part { step, person, page };
  const struct {
    Part part;
    std::string key;             ///< empty: the part is emptied
    std::optional<Value> value;  ///< absent: it has no such key
  } damages[] = {
      {step, "friends", Value(Array{Value(1)})},
      {step, "pages", {}},
      {step, "evidence", Value(1)},
      {step, "program", Value(1)},
      {person, "", {}},
      {person, "form", {}},
      {person, "form", Value(Dictionary{})},
      {person, "to", Value(1)},
      {person, "to", Value(Array{0, -1})},
      {person, "to", Value(Array{0, 1LL << 40})},
      {person, "to", Value(Array{1, 0})},  // on no page
      {person, "to", Value(Array{Value(0.0), Value(1)})},
      {page, "", {}},
      {page, "to", Value(-1)},
      {page, "friends", Value(Array{Value(1LL << 32)})},  // no fingerprint is as large
      {page, "moved", Value(1)},
  };
  EXPECT_TRUE(stepRecordOf(storedStep())->isComplete);
  for (const auto& [part, key, value] : damages) {
    Dictionary stored = storedStep();
    const char* const list = part == person ? "friends" : "pages";
    Dictionary damaged = part == step ? stored : *stored.at(list).array()->front().dictionary();
    if (key.empty()) damaged.clear();
    damaged.erase(key);
    if (value) damaged.emplace(key, *value);
    if (part != step) stored.insert_or_assign(list, Array{Value(damaged)});
    const auto read = stepRecordOf(part == step ? damaged : stored);
    EXPECT_FALSE(read && read->isComplete) << part << " " << key << " " << value.value_or(Value("none")).description();
  }
  for (const char* key : {"friends", "pages"}) {
    Dictionary stored = storedStep();
    Array both = *stored.at(key).array();
    both.push_back(both.front());
    stored.insert_or_assign(key, both);
    EXPECT_FALSE(stepRecordOf(stored)->isComplete) << "twice in one place: " << key;
  }
}

}  // namespace
}  // namespace pellor
