// Programs that keep a history, and one that keeps none, do what chance makes them: each edit of the latter is a step
// of the former, and nothing else is.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "pellor/list/Edit.h"
#include "pellor/list/internal/FriendIdentity.h"
#include "tests/list/ListProcess.h"
#include "tests/pellor/SeededTest.h"

namespace pellor {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class SharedList : public ManagerTest {
 public:
  explicit SharedList(std::uint64_t seed) : _random(seed) {
    scheduler = std::make_shared<SimulatedScheduler>(seed);
    setGroups(30, _groupSize = 2 + below(2));
    setSetting(PLEmptyTrailingGroupEnabledKey, below(3) > 0);
    setSetting(PLRemoveDestinationlessFriendsEnabledKey, below(2) == 0);
    for (int number = 0; number < 7; ++number) _names.push_back("P" + std::string(1, static_cast<char>('a' + number)));
    contacts(_names);
    for (int count = 0; count < 2 + static_cast<int>(below(2)); ++count) all.push_back(open());
  }
  void TestBody() override {}
  using ManagerTest::rest;

  std::size_t below(std::size_t count) { return std::uniform_int_distribution<std::size_t>(0, count - 1)(_random); }
  ListProcess& someone() { return *all[below(all.size())]; }
  static std::vector<HistoryStep> history(ListProcess& process) {
    return process.process().run([&] { return process.list().history(); });
  }
  static std::size_t foreignSteps(ListProcess& process) {
    const auto steps = history(process);
    return static_cast<std::size_t>(std::ranges::count(steps, StepKind::anotherProgram, &HistoryStep::kind));
  }

  /// Whatever a program with a history can do.
  void act() {
    ListProcess& process = someone();
    switch (below(16)) {
      case 0:
      case 1:
        process.process().run([&] { below(2) == 0 ? process.list().undo() : process.list().redo(); });
        break;
      case 2:
        takeBackSomething(process);
        break;
      case 3:
      case 4:
        changeContacts();
        break;
      case 5:
        process.process().run([&] { process.list().refresh(); });
        break;
      case 6:
        import(process);
        break;
      case 7:
        forgetSomebody(process);
        break;
      case 8:
        if (below(4) == 0) process.process().run([&] { process.list().clearHistory(); });
        break;
      case 9:
        if (below(2) == 0) restartOne();
        break;
      case 10:
        process.process().run([&] { process.process().manager().reloadFriendList(); });
        break;
      default:
        step(process);
    }
  }

  void step(ListProcess& process) {
    process.apply([&](const Snapshot& list) {
      std::vector<Edit> edits;
      for (std::size_t count = 1 + below(3); count > 0; --count) edits.push_back(edit(list));
      return edits;
    });
  }

  static void rename(ListProcess& process, const std::string& title) {
    process.apply([&](const Snapshot& list) {
      return list.pageCount() == 0 ? std::vector<Edit>{InsertPage{0, title}}
                                   : std::vector<Edit>{RenamePage{list.page(0).id, title}};
    });
  }

  std::string forgetSomebody(ListProcess& process) {
    const std::string name = some(_names);
    process.process().run([&] { process.list().forget(guidOf(name)); });
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
        const std::string name = some(_names);
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

  std::unique_ptr<ListProcess> open() {
    auto process = std::make_unique<ListProcess>(launch());
    rest();
    return process;
  }
  using ManagerTest::launch;

  std::vector<std::unique_ptr<ListProcess>> all;

 private:
  template <class Type>
  const Type& some(const std::vector<Type>& from) {
    return from[below(from.size())];
  }

  Edit edit(const Snapshot& list) {
    if (list.pageCount() == 0) return InsertPage{0, "N"};
    const auto friends = list.friends();
    const FriendId id = friends.empty() ? FriendId{} : some(friends)->id;
    const PageId page = list.page(below(list.pageCount())).id;
    const Place place{below(list.pageCount()), below(2)};
    switch (below(9)) {
      case 0:
      case 1:
        return AddFriend{.contactGUID = guidOf(some(_names))};
      case 2:
        return AddFriend{.destination = "n" + std::to_string(below(5)) + "@example.org", .to = place};
      case 3:
        return RemoveFriend{id};
      case 4:
        return MoveFriend{id, place};
      case 5:
        return SetReplyAs{id, below(2) == 0 ? std::nullopt : std::optional<std::string>("text")};
      case 6:
        return RenamePage{page, below(3) == 0 ? "" : "T" + std::to_string(below(3))};
      case 7:
        return below(2) == 0 ? Edit(MovePage{page, below(list.pageCount())}) : Edit(RemovePage{page});
      default:
        return InsertPage{below(list.pageCount() + 1), below(2) == 0 ? "" : "N"};
    }
  }

  void takeBackSomething(ListProcess& process) {
    const auto steps = history(process);
    if (steps.empty()) return;
    const HistoryStep step = some(steps);
    if (!step.isTakenBack) process.process().run([&] { process.list().undo(step.id); });
  }

  // GUIDs and addresses are few, so that cards meet.
  void changeContacts() {
    const std::string name = some(_names);
    InMemoryAddressBook& book = world.addressBook();
    if (below(4) == 0) {
      if (book.contact(guidOf(name))) book.remove(guidOf(name));
      return;
    }
    TestContact card{.guid = guidOf(name), .first = below(2) == 0 ? name : name + "x"};
    if (below(5) > 0) card.emails.push_back({"home", mailOf(below(4) == 0 ? some(_names) : name)});
    book.put(card);
  }

  void import(ListProcess& process) {
    ListProcess& other = someone();
    ExportedList list = other.process().run([&] { return other.list().exported(); });
    if (!list.pages.empty() && below(2) == 0) list.pages[0].title = "I";
    const ImportMode mode = below(2) == 0 ? ImportMode::add : ImportMode::replace;
    process.process().run([&] { process.list().import(list, mode); });
  }

  void restartOne() {
    auto& process = all[below(all.size())];
    if (below(2) == 0) process->kill();
    process.reset();
    process = open();
  }

  std::mt19937_64 _random;
  std::uint64_t _groupSize = 1;
  std::vector<std::string> _names;
};

class ForeignEditSeedsTest : public SeededTest {};

// PELLOR_FOREIGN=<count>: how many worlds, of 40 acts each.
TEST_P(ForeignEditSeedsTest, ProgramsThatKeepAHistoryFindNoOtherOne) {
  forEachSeed(countOf("PELLOR_FOREIGN", 200, 40), [](std::uint64_t seed) {
    SharedList world(seed);
    for (int round = 0; round < 40; ++round) {
      world.act();
      if (world.below(2) == 0) world.rest();
      for (const auto& process : world.all) ASSERT_EQ(SharedList::foreignSteps(*process), 0U) << round;
    }
    world.rest();
    for (const auto& process : world.all) ASSERT_EQ(SharedList::foreignSteps(*process), 0U);
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
      for (const auto& process : world.all) counts.push_back(SharedList::history(*process).size());
      world.editWithout(*bare);
      world.rest();
      const bool isEdit = world.content() != before;
      std::set<std::string> ids;
      for (std::size_t number = 0; number < world.all.size(); ++number) {
        const auto steps = SharedList::history(*world.all[number]);
        ASSERT_EQ(steps.size(), counts[number] + (isEdit ? 1 : 0)) << round;
        if (!isEdit) continue;
        ASSERT_EQ(steps.back().kind, StepKind::anotherProgram) << round;
        ids.insert(steps.back().id);
      }
      ASSERT_EQ(ids.size(), isEdit ? 1U : 0U);
      ListProcess& process = world.someone();
      if (isEdit && world.below(3) == 0) {
        const UndoAnswer answer = process.process().run([&] { return process.list().undo(); });
        ASSERT_TRUE(answer) << round;
        for (const KeptChange& kept : answer.kept) ASSERT_EQ(kept.part, KeptChange::Part::title) << round;
        world.rest();
        ASSERT_EQ(world.content(false), friendsBefore) << round;
      }
      if (world.below(3) == 0) world.step(process);
      if (world.below(6) == 0) {
        const std::string name = world.forgetSomebody(world.someone());
        world.rest();
        for (const auto& each : world.all) SharedList::rename(*each, "R" + std::to_string(round));
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
