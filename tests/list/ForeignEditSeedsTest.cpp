// Programs that keep a history, and one that keeps none, do what chance makes them: each edit of the latter is a step
// of the former, and nothing else is.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tests/list/SeededWorld.h"

namespace pellor {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class SharedList : public SeededWorld {
 public:
  explicit SharedList(std::uint64_t seed) : SeededWorld(seed, {"Pa", "Pb", "Pc", "Pd", "Pe", "Pf", "Pg"}) {
    setGroups(30, _groupSize = 2 + below(2));
    setSetting(PLEmptyTrailingGroupEnabledKey, below(3) > 0);
    setSetting(PLRemoveDestinationlessFriendsEnabledKey, below(2) == 0);
    contacts(names);
    for (std::size_t count = 2 + below(2); count > 0; --count) all.push_back(open());
  }

  static std::ptrdiff_t foreignSteps(ListProcess& process) {
    return std::ranges::count(process.history(), StepKind::anotherProgram, &HistoryStep::kind);
  }

  /// Whatever a program with a history can do.
  void act() {
    ListProcess& process = someone();
    const std::vector<std::function<void()>> acts = {
        [&] { below(2) == 0 ? process.undo() : process.redo(); },
        [&] { takeBackSomething(process); },
        [&] { changeContacts(); },
        [&] { below(2) == 0 ? process.reload() : process.run([&] { static_cast<void>(process.list().refresh()); }); },
        [&] { import(process); },
        [&] { forgetSomebody(process); },
        [&] { below(8) == 0 ? process.clearHistory() : restartOne(); },
        [&] { static_cast<void>(step(process)); },
    };
    acts[std::min(below(12), acts.size() - 1)]();
  }

  std::string forgetSomebody(ListProcess& process) {
    const std::string name = some(names);
    process.forget(guidOf(name));
    return name;
  }

  /// One edit by a program that keeps no history.
  void editWithout(ManagerProcess& bare) {
    const std::uint64_t pages = bare.run([&] { return bare.manager().friendGroups().size(); });
    if (pages == 0) return;
    const std::uint64_t page = below(pages);
    const std::uint64_t slot = below(2);
    const auto person = bare.friendAt(page, slot);
    switch (below(4)) {
      case 0:
        bare.setTitle(page, "T" + std::to_string(below(3)));
        bare.run([&] { bare.manager().saveFriendGroupTitles(); });
        break;
      case 1:
        if (person) bare.run([&] { person->setPreferredReplyAs("voice " + std::to_string(below(9))); });
        break;
      case 2:
        if (person) bare.remove(page, slot);
        break;
      default:
        const std::string name = some(names);
        const auto friends = bare.run([&] { return bare.manager().friendsWithIdentifier(guidOf(name)); });
        if (friends.empty() && world.addressBook().contact(guidOf(name))) bare.add(name);
    }
    bare.run([&] { bare.manager().save(); });
  }

  /// What is stored of friends, by pages on which somebody stands; with titles all pages but untitled ones at the end.
  std::string content(bool withTitles = true) {
    const auto list = storedValue(PLFriendListKey), titles = storedValue(PLGroupTitlesKey);
    const Array slots = !list ? Array() : list->longArray() ? list->longArray()->elements() : *list->array();
    std::string text, empty;
    for (std::size_t slot = 0; slot < slots.size(); ++slot) {
      if (!withTitles && slot % _groupSize == 0) empty.clear();
      const std::size_t page = slot / _groupSize;
      const bool isTitled = withTitles && slot % _groupSize == 0 && titles && page < titles->array()->size();
      const std::string title = isTitled ? *(*titles->array())[page].string() : std::string();
      const bool isTaken = !slots[slot].dictionary()->empty();
      empty += (slot % _groupSize == 0 ? "\n" + title : "") + (isTaken ? slots[slot].description() : "-");
      if (isTaken || !title.empty()) text += std::exchange(empty, {});
    }
    return text;
  }

  std::string storedHistory() {
    const auto value = storedValue("PLFriendListHistory");
    return value && value->longArray() ? Value(value->longArray()->elements()).description() : std::string();
  }

 private:
  void import(ListProcess& process) {
    ExportedList list = someone().exported();
    if (!list.pages.empty() && below(2) == 0) list.pages[0].title = "I";
    process.import(list, below(2) == 0 ? ImportMode::add : ImportMode::replace);
  }

  void restartOne() {
    auto& process = some(all);
    if (below(2) == 0) process->kill();
    process.reset();
    process = open();
  }

  std::uint64_t _groupSize = 1;
};

class ForeignEditSeedsTest : public SeededTest {};

// PELLOR_FOREIGN=<count>: how many worlds, of 40 acts each.
TEST_P(ForeignEditSeedsTest, ProgramsThatKeepAHistoryFindNoOtherOne) {
  forEachSeed(countOf("PELLOR_FOREIGN", 200, 40), [](std::uint64_t seed) {
    SharedList world(seed);
    for (int round = 0; round < 40; ++round) {
      world.act();
      if (world.below(2) == 0) world.rest();
      for (const auto& process : world.all) ASSERT_EQ(SharedList::foreignSteps(*process), 0) << round;
    }
    world.rest();
    for (const auto& process : world.all) ASSERT_EQ(SharedList::foreignSteps(*process), 0);
  });
}

// Each edit is a step of the same id everywhere, and gives the list of before when it is taken back at once; what was
// not stored of it tells of nobody who was forgotten. PELLOR_FOREIGN=<count>: how many worlds, of 15 edits each.
TEST_P(ForeignEditSeedsTest, EachEditOfAProgramWithoutAHistoryIsAStepOfAllWhoFollow) {
  forEachSeed(countOf("PELLOR_FOREIGN", 200, 40), [](std::uint64_t seed) {
    SharedList world(seed);
    for (int step = 0; step < 8; ++step) world.step(world.someone());
    world.rest();
    auto bare = world.launch();
    world.rest();
    for (int round = 0; round < 15; ++round) {
      const std::string before = world.content(), friendsBefore = world.content(false);
      std::vector<std::size_t> counts;
      for (const auto& process : world.all) counts.push_back(process->history().size());
      world.editWithout(*bare);
      world.rest();
      const bool isEdit = world.content() != before;
      std::set<std::string> ids;
      for (std::size_t number = 0; number < world.all.size(); ++number) {
        const auto steps = world.all[number]->history();
        ASSERT_EQ(steps.size(), counts[number] + (isEdit ? 1 : 0)) << round;
        if (!isEdit) continue;
        ASSERT_EQ(steps.back().kind, StepKind::anotherProgram) << round;
        ids.insert(steps.back().id);
      }
      ASSERT_EQ(ids.size(), isEdit ? 1U : 0U);
      ListProcess& process = world.someone();
      if (isEdit && world.below(3) == 0) {
        const UndoAnswer answer = process.undo();
        ASSERT_TRUE(answer) << round;
        for (const KeptChange& kept : answer.kept) ASSERT_EQ(kept.part, KeptChange::Part::title) << round;
        world.rest();
        ASSERT_EQ(world.content(false), friendsBefore) << round;
      }
      if (world.below(3) == 0) world.step(process);
      if (world.below(6) == 0) {
        const std::string name = world.forgetSomebody(world.someone());
        world.rest();
        for (const auto& each : world.all)
          each->apply((each->snapshot().pageCount() == 0 ? "insert 1 R" : "title 1 R") + std::to_string(round));
        world.rest();
        if (world.all[0]->friendNamed(name)) continue;
        ASSERT_THAT(world.storedHistory(), Not(HasSubstr(mailOf(name)))) << round;
      }
      world.rest();
    }
  });
}

INSTANTIATE_TEST_SUITE_P(Seeds, ForeignEditSeedsTest, ::testing::Range(std::uint64_t{0}, SeededTest::PartCount));

}  // namespace
}  // namespace pellor
