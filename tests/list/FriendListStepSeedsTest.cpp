// Steps that chance makes, through the whole library: planned, done, overtaken, taken back.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "tests/list/SeededWorld.h"

namespace pellor {
namespace {

/// All that a list shows, with what its friends carry.
std::string contentOf(const Snapshot& list) {
  std::string text;
  for (std::size_t page = 0; page < list.pageCount(); ++page) {
    text += "\"" + list.page(page).title + "\":";
    for (const auto& person : list.page(page).friends) {
      if (!person) {
        text += " -";
        continue;
      }
      text +=
          " " + person->destination + "/" + person->replyAs.value_or("") + "/" + Value(person->metadata).description();
    }
    text += "\n";
  }
  return text;
}

// Empty pages at the end are laid out by each process for itself.
std::string withoutEmptyEnd(const std::string& content) {
  const auto isEmpty = [](const std::string& page) {
    return page.find_first_not_of(" -", page.rfind(':') + 1) == std::string::npos;
  };
  std::vector<std::string> pages;
  std::istringstream lines(content);
  for (std::string page; std::getline(lines, page);) pages.push_back(page);
  while (!pages.empty() && isEmpty(pages.back())) pages.pop_back();
  std::string text;
  for (const std::string& page : pages) text += page + "\n";
  return text;
}

// Whether at most the one page follows that the list has behind its last friend.
bool isLaidOutByAll(const std::string& content) {
  const std::string end = content.substr(withoutEmptyEnd(content).size());
  return (end.empty() || end.starts_with("\"\"")) && std::ranges::count(end, '\n') <= 1;
}

class Steps : public SeededWorld {
 public:
  explicit Steps(std::uint64_t seed, std::size_t processes) : SeededWorld(seed) {
    setGroups(2 + below(5), 1 + below(3));
    setSetting(PLEmptyTrailingGroupEnabledKey, below(3) > 0);
    for (std::size_t index = 0; index < processes; ++index) all.push_back(open());
  }
};

class FriendListStepSeedsTest : public SeededTest {};

// Forth and back, several times, stored in between or not; where all processes lay out the same pages also by another
// process each time, as by commands. PELLOR_REDONE=<count>: how many worlds, of up to 60 steps each.
TEST_P(FriendListStepSeedsTest, StepsTakenBackAndDoneAgainGiveTheListOfBefore) {
  forEachSeed(countOf("PELLOR_REDONE", 200, 40), [](std::uint64_t seed) {
    Steps world(seed, 1);
    auto& a = world.all.front();
    std::vector<std::string> contents = {contentOf(a->snapshot())};
    for (std::size_t steps = 1 + world.below(60); steps > 0; --steps) {
      const StepAnswer answer = world.step(*a);
      // A step that changed nothing is none.
      if (a->history().size() == contents.size()) contents.push_back(contentOf(a->snapshot()));
      ASSERT_EQ(contentOf(a->snapshot()), contents.back()) << (answer ? "done" : "refused");
      world.expectSound();
      if (world.below(4) == 0) world.rest();
    }
    const std::size_t last = contents.size() - 1;
    const bool isAnother = std::ranges::all_of(contents, isLaidOutByAll) && world.below(2) == 0;
    const auto turn = [&](bool isBack, std::size_t expected) {
      if (isAnother) {
        world.rest();
        a = world.open();
      }
      const UndoAnswer answer = isBack ? a->undo() : a->redo();
      ASSERT_TRUE(answer && answer.step);
      if (world.below(4) == 0) world.rest();
      const std::string now = contentOf(a->snapshot());
      ASSERT_EQ(isAnother ? withoutEmptyEnd(now) : now,
                isAnother ? withoutEmptyEnd(contents[expected]) : contents[expected])
          << (isBack ? "taken back to step " : "done again to step ") << expected << " of " << last;
      ASSERT_TRUE(answer.kept.empty());
    };
    for (int times = 0; times < 3 && !HasFatalFailure(); ++times) {
      const std::size_t first = last - world.below(last + 1);
      for (std::size_t now = last; now > first && !HasFatalFailure();) turn(true, --now);
      for (std::size_t now = first; now < last && !HasFatalFailure();) turn(false, ++now);
    }
  });
}

// Each step is told of once; who was told that a step is stored finds it stored as a whole, and of one that was
// refused nothing; all processes come to one list. PELLOR_STEPS=<count>: how many worlds, of 60 steps each.
TEST_P(FriendListStepSeedsTest, EachStepIsStoredOrRefusedAndToldOfOnce) {
  forEachSeed(countOf("PELLOR_STEPS", 200, 40), [](std::uint64_t seed) {
    Steps world(seed, 2);
    std::map<std::size_t, int> told;
    std::size_t stepCount = 0;
    for (int round = 0; round < 60; ++round) {
      ListProcess& process = world.someone();
      const StoredHandler note = [&told, stepCount](const std::optional<Refusal>&) { ++told[stepCount]; };
      const auto undo = [&] {
        const UndoAnswer answer = process.undo({}, note);
        return answer && answer.step;
      };
      if (world.below(5) == 0 ? undo() : static_cast<bool>(world.step(process, note))) ++stepCount;
      if (world.below(3) == 0) world.rest();
    }
    world.rest();
    ASSERT_EQ(told.size(), stepCount);
    for (const auto& [step, times] : told) ASSERT_EQ(times, 1) << step;
    ASSERT_EQ(withoutEmptyEnd(contentOf(world.all[0]->snapshot())),
              withoutEmptyEnd(contentOf(world.all[1]->snapshot())));
    world.expectSound();
  });
}

INSTANTIATE_TEST_SUITE_P(Seeds, FriendListStepSeedsTest, ::testing::Range(std::uint64_t{0}, SeededTest::PartCount));

}  // namespace
}  // namespace pellor
