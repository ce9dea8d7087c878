// Steps that chance makes, through the whole library: planned, done, overtaken, taken back.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "pellor/list/Edit.h"
#include "tests/list/ListProcess.h"
#include "tests/pellor/SeededTest.h"

namespace pellor {
namespace {

/// Makes edits, most of which can be done.
class RandomEdits {
 public:
  explicit RandomEdits(std::uint64_t seed) : _random(seed) {}

  std::size_t below(std::size_t count) { return std::uniform_int_distribution<std::size_t>(0, count - 1)(_random); }

  std::vector<Edit> step(const Snapshot& list) {
    std::vector<Edit> edits;
    for (std::size_t count = 1 + below(3); count > 0; --count) edits.push_back(edit(list));
    return edits;
  }

 private:
  FriendId somebody(const Snapshot& list) {
    std::vector<FriendId> friends;
    for (std::size_t page = 0; page < list.pageCount(); ++page)
      for (const auto& person : list.page(page).friends)
        if (person) friends.push_back(person->id);
    return friends.empty() ? FriendId{} : friends[below(friends.size())];
  }
  PageId somePage(const Snapshot& list) { return list.page(below(list.pageCount())).id; }
  Place someplace(const Snapshot& list) { return {below(list.pageCount()), below(list.page(0).friends.size())}; }

  Edit edit(const Snapshot& list) {
    const FriendId id = somebody(list);
    switch (below(14)) {
      case 0:
      case 1:
      case 2:
        return AddFriend{.destination = "p" + std::to_string(below(25)) + "@example.org"};
      case 3:
        return AddFriend{.destination = "p" + std::to_string(below(25)) + "@example.org", .to = someplace(list)};
      case 4:
        return RemoveFriend{id};
      case 5:
      case 6:
        return MoveFriend{id, someplace(list)};
      case 7:
        return SetReplyAs{id, below(2) == 0 ? std::nullopt : std::optional<std::string>("voice")};
      case 8:
        return SetMetadata{id, "k" + std::to_string(below(2)),
                           below(3) == 0 ? std::nullopt : std::optional(Value(static_cast<std::int64_t>(below(9))))};
      case 9:
        return RenamePage{somePage(list), below(3) == 0 ? "" : "T" + std::to_string(below(3))};
      case 10:
        return InsertPage{below(list.pageCount() + 1), "N" + std::to_string(below(3))};
      case 11:
        return MovePage{somePage(list), below(list.pageCount())};
      case 12:
        return fill(list);
      default:
        return RemovePage{somePage(list)};
    }
  }

  Edit fill(const Snapshot& list) {
    const Page& page = list.page(below(list.pageCount()));
    FillPage fill{page.id, {}};
    for (const auto& person : page.friends) fill.friends.push_back(person ? person->id : FriendId{});
    std::ranges::shuffle(fill.friends, _random);
    return fill;
  }

  std::mt19937_64 _random;
};

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

class Steps : public ManagerTest {
 public:
  explicit Steps(std::uint64_t seed, std::size_t processes) : random(seed) {
    scheduler = std::make_shared<SimulatedScheduler>(seed);
    setGroups(2 + random.below(5), 1 + random.below(3));
    setSetting(PLEmptyTrailingGroupEnabledKey, random.below(3) > 0);
    for (std::size_t index = 0; index < processes; ++index) all.push_back(std::make_unique<ListProcess>(launch()));
    rest();
  }
  void TestBody() override {}
  using ManagerTest::launch;
  using ManagerTest::rest;

  RandomEdits random;
  std::vector<std::unique_ptr<ListProcess>> all;
};

class FriendListStepSeedsTest : public SeededTest {};

// PELLOR_STEPS=<count>: how many worlds, of 100 steps each.
TEST_P(FriendListStepSeedsTest, StepsTakenBackInReverseOrderGiveTheListOfTheStart) {
  forEachSeed(countOf("PELLOR_STEPS", 200, 40), [](std::uint64_t seed) {
    Steps world(seed, 1);
    ListProcess& a = *world.all.front();
    std::vector<std::string> contents = {contentOf(a.snapshot())};
    for (int step = 0; step < 100; ++step) {
      std::vector<Edit> edits;
      const StepAnswer answer = a.apply([&](const Snapshot& list) { return edits = world.random.step(list); });
      const auto history = a.process().run([&] { return a.list().history(); });
      // A step that changed nothing is none.
      if (history.size() == contents.size()) contents.push_back(contentOf(a.snapshot()));
      ASSERT_EQ(contentOf(a.snapshot()), contents.back()) << (answer ? "done" : "refused");
      ASSERT_EQ(a.process().manager().invariantViolation(), std::nullopt);
      if (world.random.below(4) == 0) world.rest();
    }
    world.rest();
    ASSERT_EQ(contentOf(a.snapshot()), contents.back()) << "at rest";
    // A page that another process does not lay out tells it of nothing.
    const bool areAlike = std::ranges::all_of(contents, isLaidOutByAll);
    const bool isOther = areAlike && world.random.below(4) > 0;
    auto b = std::make_unique<ListProcess>(world.launch());
    world.rest();
    ListProcess& undoing = isOther ? *b : a;
    for (std::size_t left = contents.size() - 1; left > 0; --left) {
      const UndoAnswer undone = undoing.process().run([&] { return undoing.list().undo(); });
      ASSERT_TRUE(undone && undone.step) << left;
      const std::string now = contentOf(undoing.snapshot());
      ASSERT_EQ(withoutEmptyEnd(now), withoutEmptyEnd(contents[left - 1])) << left;
      ASSERT_EQ(now, isOther ? now : contents[left - 1]) << left;
      ASSERT_TRUE(isOther || undone.kept.empty()) << left;
      if (world.random.below(4) == 0) world.rest();
    }
    world.rest();
    ASSERT_EQ(withoutEmptyEnd(contentOf(a.snapshot())), withoutEmptyEnd(contents.front()));
    ASSERT_EQ(withoutEmptyEnd(contentOf(b->snapshot())), withoutEmptyEnd(contents.front()));
  });
}

// Forth and back, several times, stored in between or not; where all processes lay out the same pages also by another
// process each time, as by commands. PELLOR_REDONE=<count>: how many worlds, of up to 60 steps each.
TEST_P(FriendListStepSeedsTest, StepsTakenBackAndDoneAgainGiveTheListOfBefore) {
  forEachSeed(countOf("PELLOR_REDONE", 200, 40), [](std::uint64_t seed) {
    Steps world(seed, 1);
    auto& a = world.all.front();
    std::vector<std::string> contents = {contentOf(a->snapshot())};
    for (std::size_t steps = 1 + world.random.below(60); steps > 0; --steps) {
      a->apply([&](const Snapshot& list) { return world.random.step(list); });
      const std::size_t made = a->process().run([&] { return a->list().history().size(); });
      if (made == contents.size()) contents.push_back(contentOf(a->snapshot()));
      if (world.random.below(4) == 0) world.rest();
    }
    const std::size_t last = contents.size() - 1;
    const bool isAnother = std::ranges::all_of(contents, isLaidOutByAll) && world.random.below(2) == 0;
    const auto turn = [&](bool isBack, std::size_t expected) {
      if (isAnother) {
        world.rest();
        a = std::make_unique<ListProcess>(world.launch());
        world.rest();
      }
      const UndoAnswer answer = a->process().run([&] { return isBack ? a->list().undo() : a->list().redo(); });
      ASSERT_TRUE(answer && answer.step);
      if (world.random.below(4) == 0) world.rest();
      const std::string now = contentOf(a->snapshot());
      ASSERT_EQ(isAnother ? withoutEmptyEnd(now) : now,
                isAnother ? withoutEmptyEnd(contents[expected]) : contents[expected])
          << (isBack ? "taken back to step " : "done again to step ") << expected << " of " << last;
      ASSERT_TRUE(answer.kept.empty());
    };
    for (int times = 0; times < 3 && !HasFatalFailure(); ++times) {
      const std::size_t first = last - world.random.below(last + 1);
      for (std::size_t now = last; now > first && !HasFatalFailure();) turn(true, --now);
      for (std::size_t now = first; now < last && !HasFatalFailure();) turn(false, ++now);
    }
  });
}

// Each step is told of once; who was told that a step is stored finds it stored as a whole, and of one that was
// refused nothing; all processes come to one list.
TEST_P(FriendListStepSeedsTest, EachStepIsStoredOrRefusedAndToldOfOnce) {
  forEachSeed(countOf("PELLOR_STEPS", 200, 40), [](std::uint64_t seed) {
    Steps world(seed, 2);
    std::map<std::string, int> told;
    int stepCount = 0;
    for (int round = 0; round < 60; ++round) {
      ListProcess& process = *world.all[world.random.below(2)];
      const std::string name = "step " + std::to_string(stepCount);
      const StoredHandler note = [&told, name](const std::optional<Refusal>&) { ++told[name]; };
      const bool isDone =
          world.random.below(5) == 0
              ? process.process().run([&] {
                  const UndoAnswer answer = process.list().undo({}, note);
                  return answer && answer.step;
                })
              : static_cast<bool>(process.apply([&](const Snapshot& list) { return world.random.step(list); }, note));
      if (isDone) ++stepCount;
      if (world.random.below(3) == 0) world.rest();
    }
    world.rest();
    ASSERT_EQ(told.size(), static_cast<std::size_t>(stepCount));
    for (const auto& [name, times] : told) ASSERT_EQ(times, 1) << name;
    ASSERT_EQ(withoutEmptyEnd(contentOf(world.all[0]->snapshot())),
              withoutEmptyEnd(contentOf(world.all[1]->snapshot())));
    for (const auto& process : world.all) ASSERT_EQ(process->process().manager().invariantViolation(), std::nullopt);
  });
}

INSTANTIATE_TEST_SUITE_P(Seeds, FriendListStepSeedsTest, ::testing::Range(std::uint64_t{0}, SeededTest::PartCount));

}  // namespace
}  // namespace pellor
