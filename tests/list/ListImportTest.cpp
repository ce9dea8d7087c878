// Exported lists that are taken in: as one step, overtaken, taken back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <optional>
#include <ostream>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tests/list/ListProcess.h"
#include "tests/pellor/SeededTest.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;
using ::testing::SizeIs;
using enum RefusalReason;

ExportedFriend somebody(const std::string& name) {
  std::string address = name + "@example.org";
  std::ranges::transform(address, address.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return {.name = name, .destinations = {address}};
}

/// "Ann,-|Bob": by pages and slots.
ExportedList listOf(const std::string& text, std::uint64_t pageSize = 2) {
  ExportedList list{pageSize, {{}}};
  std::string name;
  for (const char c : text + "|") {
    if (c != ',' && c != '|') {
      name += c;
      continue;
    }
    list.pages.back().friends.push_back(name == "-" ? std::nullopt : std::optional(somebody(name)));
    name.clear();
    if (c == '|') list.pages.emplace_back();
  }
  list.pages.pop_back();
  return list;
}

// For failures.
void PrintTo(const ExportedFriend& person, std::ostream* out) {
  *out << person.name.value_or("?") << "/" << person.monogram.value_or("") << "/" << person.contactGUID.value_or("")
       << "/" << person.chosenNumber.value_or("") << "/" << person.replyAs.value_or("") << "/"
       << Value(person.metadata).description() << Value(person.otherEntries).description();
  for (const std::string& destination : person.destinations) *out << " " << destination;
}

}  // namespace

void PrintTo(const ExportedList& list, std::ostream* out) {
  for (const ExportedPage& page : list.pages) {
    *out << "\n\"" << page.title << "\"";
    for (const auto& person : page.friends) {
      *out << "\n  ";
      person ? PrintTo(*person, out) : void(*out << "-");
    }
  }
}

namespace {

class ListImportTest : public ManagerTest {
 protected:
  ListImportTest() { setGroups(3, 2); }

  std::unique_ptr<ListProcess> open(const std::string& list) {
    auto process = std::make_unique<ListProcess>(launchWith(list));
    rest();
    return process;
  }
  static ImportAnswer import(ListProcess& process, const ExportedList& list, ImportMode mode,
                             StoredHandler stored = {}) {
    return process.process().run([&] { return process.list().import(list, mode, std::move(stored)); });
  }
  static ExportedList exported(ListProcess& process) {
    return process.process().run([&] { return process.list().exported(); });
  }
  static UndoAnswer undo(ListProcess& process) {
    return process.process().run([&] { return process.list().undo(); });
  }
  static std::vector<HistoryStep> history(ListProcess& process) {
    return process.process().run([&] { return process.list().history(); });
  }
};

TEST_F(ListImportTest, WhatIsExportedGivesTheSameOntoAnEmptyListAsOneStep) {
  ExportedList list = listOf("-,Ann|Bob,-");
  list.pages[0].title = "Family";
  list.pages[0].friends[1] = ExportedFriend{.name = "Ann",
                                            .monogram = "A",
                                            .destinations = {"ann@example.org"},
                                            .chosenNumber = "ann@example.org",
                                            .replyAs = "me@example.org",
                                            .contactGUID = "elsewhere",
                                            .metadata = {{"birthday", "05-17"}},
                                            .otherEntries = {{"of a later version", 7}}};
  auto a = open("-,-");
  std::optional<Refusal> told = Refusal{};
  const ImportAnswer plan = a->process().run([&] { return a->list().planImport(list, ImportMode::add); });
  EXPECT_THAT(plan.added, SizeIs(2));
  EXPECT_THAT(a->snapshot().friends(), SizeIs(0)) << "only planned";
  ASSERT_TRUE(import(*a, list, ImportMode::add, [&](const auto& refusal) { told = refusal; }));
  const ExportedList known = exported(*a);
  list.pages[1].friends.pop_back();
  list.pages[1].friends[0]->monogram = known.pages[1].friends[0]->monogram;
  EXPECT_EQ(known, list);
  rest();
  EXPECT_EQ(told, std::nullopt);
  ASSERT_THAT(history(*a), SizeIs(1));
  EXPECT_EQ(history(*a)[0].kind, StepKind::imported);
  EXPECT_EQ(history(*a)[0].summary.added, 2U);
  EXPECT_EQ(stored(2), "-,Ann|Bob,-|-,-");
  EXPECT_TRUE(import(*a, known, ImportMode::replace).changesNothing());
  auto b = std::make_unique<ListProcess>(launch());
  rest();
  ASSERT_TRUE(undo(*b).step) << "another process takes it back";
  rest();
  EXPECT_EQ(exported(*a).pages, std::vector<ExportedPage>());
}

// What friends carry that no snapshot shows comes back as well.
TEST_F(ListImportTest, AReplacementThatIsTakenBackGivesWhatFriendsCarried) {
  auto a = open("Ann,Bob|Cy,-|-,-");
  ExportedList list = exported(*a);
  list.pages[0].friends[0]->otherEntries = {{"of a later version", 1}};
  ASSERT_TRUE(import(*a, list, ImportMode::replace));
  const ExportedList first = exported(*a);
  ASSERT_EQ(first, list);
  list.pages[0].friends[0]->otherEntries = {{"of a later version", 2}, {"and more", 1}};
  std::swap(list.pages[0].friends[1], list.pages[1].friends[0]);
  list.pages[1].title = "Work";
  const ImportAnswer answer = import(*a, list, ImportMode::replace);
  EXPECT_THAT(answer.updated, SizeIs(1));
  EXPECT_THAT(answer.moved, SizeIs(2));
  EXPECT_EQ(exported(*a), list);
  ASSERT_TRUE(undo(*a));
  EXPECT_EQ(exported(*a), first);
  ASSERT_TRUE(a->process().run([&] { return a->list().redo(); }));
  EXPECT_EQ(exported(*a), list);
}

TEST_F(ListImportTest, ARefusedImportSaysWhyAndWhere) {
  auto a = open("Ann,Bob|-,-");
  const std::string before = a->process().list();
  struct Row {
    ExportedList list;
    ImportMode mode;
    RefusalReason reason;
    std::optional<Place> cause;
    std::optional<Place> twin;
  };
  const std::vector<Row> rows = {
      {listOf("Cy,-|Dee,Cy"), ImportMode::add, isTwice, Place{1, 1}, Place{0, 0}},
      {listOf("Cy,-|Dee,Cy"), ImportMode::replace, isTwice, Place{1, 1}, Place{0, 0}},
      {listOf("A,B|C,D|E,F"), ImportMode::add, noRoom, {}, {}},
      {listOf("-,-,A", 3), ImportMode::replace, pageTooSmall, Place{0, 2}, {}},
      {listOf("A|B|C|D"), ImportMode::replace, tooManyPages, {}, {}},
  };
  for (const Row& row : rows) {
    const ImportAnswer answer = import(*a, row.list, row.mode);
    SCOPED_TRACE(textOf(row.reason));
    EXPECT_EQ(answer.refusal, Refusal{row.reason});
    EXPECT_EQ(answer.cause ? std::optional(answer.cause->place) : std::nullopt, row.cause);
    EXPECT_EQ(answer.twin, row.twin);
    EXPECT_EQ(a->process().list(), before);
  }
  setSetting(PLEmptyTrailingGroupEnabledKey, false);
  auto b = open("Ann,Bob");
  EXPECT_EQ(import(*b, listOf("A|B"), ImportMode::replace).refusal, Refusal{addsNoPages});
}

// The other program stored something unheard; what comes of both.
TEST_F(ListImportTest, AnImportThatWasOvertakenHoldsWhereItCan) {
  const struct {
    std::string what;
    std::string before;
    std::string list;
    ImportMode mode;
    std::string theirs;
    std::string after;
    std::string refusal;
  } rows[] = {
      {"added by both: one friend, where they have him", "Ann,-|-,-", "Ann,Bob", ImportMode::add, "Ann,-|-,Bob",
       "Ann,-|-,Bob|-,-", ""},
      {"his slot is taken", "Ann,-|-,-", "-,Bob", ImportMode::add, "Ann,Cy|-,-", "Ann,Cy|Bob,-|-,-", ""},
      {"there is no room any more", "Ann,-|-,-", "A,B|C,D", ImportMode::add, "Ann,X|Y,Z|-,-", "Ann,X|Y,Z|-,-",
       "there is no room"},
      {"who was a friend already left there", "Ann,-|-,-", "Ann,Bob", ImportMode::add, "-,-|-,-", "-,Bob|-,-", ""},
      {"a replacement keeps what they added", "Ann,Bob|-,-", "Bob,-", ImportMode::replace, "Ann,Bob|Cy,-",
       "Bob,-|Cy,-|-,-", ""},
      {"a friend whom it moves is gone", "Ann,Bob|-,-", "Bob,-", ImportMode::replace, "Ann,-|-,-", "Ann,-|-,-",
       "another program changed it first"},
      {"who was to leave is gone", "Ann,Bob|-,-", "Bob,-", ImportMode::replace, "-,Bob|-,-", "Bob,-|-,-", ""},
  };
  // What a merge places elsewhere is a step of its own.
  const auto imports = [](ListProcess& process) {
    return std::ranges::count(history(process), StepKind::imported, &HistoryStep::kind);
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    world.preferences().setValue(PLFriendListKey, std::nullopt, TapnoteDomain);
    auto a = open(row.before);
    const auto before = imports(*a);
    std::optional<std::string> told;
    const ImportAnswer answer = import(*a, listOf(row.list), row.mode, [&](const std::optional<Refusal>& refusal) {
      told = refusal ? std::string(textOf(refusal->reason)) : "";
    });
    ASSERT_TRUE(answer);
    store(row.theirs);
    rest();
    EXPECT_EQ(told, row.refusal);
    EXPECT_EQ(a->process().list(), row.after);
    EXPECT_EQ(imports(*a) - before, row.refusal.empty() ? 1 : 0);
    EXPECT_EQ(a->process().manager().invariantViolation(), std::nullopt);
  }
}

// Too large for the history, but not for being taken back as long as it is not stored.
TEST_F(ListImportTest, WhatIsTooLargeToBeTakenBackIsSaidBeforeAndIsRefusedAsAWhole) {
  auto a = open("Ann,-|-,-");
  const auto largest = [&](std::size_t size) {
    ExportedList list = listOf("-,Bob");
    list.pages[0].friends[1]->metadata = {{"k", std::string(size, 'x')}};
    return a->process().run([&] { return a->list().planImport(list, ImportMode::add); }).isUndoable;
  };
  std::size_t fits = 1, tooLarge = std::size_t{1} << 20;
  while (fits + 1 < tooLarge) (largest((fits + tooLarge) / 2) ? fits : tooLarge) = (fits + tooLarge) / 2;
  for (const std::size_t size : {fits, tooLarge}) {
    ExportedList list = listOf("-,Bob");
    list.pages[0].friends[1]->metadata = {{"k", std::string(size, 'x')}};
    const ImportAnswer answer = import(*a, list, ImportMode::add);
    EXPECT_EQ(answer.isUndoable, size == fits) << "as it was planned";
    rest();
    EXPECT_EQ(history(*a).back().isUndoable, size == fits);
    const FriendId bob = a->idAt(0, 1);
    const std::vector<Edit> entry = {SetMetadata{bob, "k", Value(std::string(size, 'y'))}};
    EXPECT_EQ(a->process().run([&] { return a->list().plan(entry); }).isUndoable, false) << "before and after";
    a->apply([&](const Snapshot&) { return std::vector<Edit>{RemoveFriend{bob}}; });
    rest();
  }
  std::optional<Refusal> told;
  ExportedList list = listOf("Ann,A|B,C");
  list.pages[0].friends[1]->metadata = {{"k", std::string(tooLarge, 'x')}};
  const std::size_t steps = history(*a).size();
  ASSERT_FALSE(import(*a, list, ImportMode::add, [&](const auto& refusal) { told = refusal; }).isUndoable);
  store("Ann,X|Y,Z|U,-");
  rest();
  EXPECT_EQ(told, Refusal{noRoom});
  EXPECT_EQ(a->process().list(), "Ann,X|Y,Z|U,-");
  EXPECT_EQ(stored(2), "Ann,X|Y,Z|U,-") << "nothing of it was stored";
  ASSERT_EQ(history(*a).size(), steps + 1);
  EXPECT_EQ(history(*a).back().kind, StepKind::anotherProgram);
}

/// Makes lists that have some of their friends in common.
class RandomLists {
 public:
  explicit RandomLists(std::uint64_t seed) : _random(seed) {}

  std::size_t below(std::size_t count) { return std::uniform_int_distribution<std::size_t>(0, count - 1)(_random); }

  ExportedList list(std::uint64_t pageSize, std::size_t mostPages) {
    ExportedList list{pageSize};
    std::vector<int> people(12);
    for (std::size_t index = 0; index < people.size(); ++index) people[index] = static_cast<int>(index);
    std::ranges::shuffle(people, _random);
    for (std::size_t pages = below(mostPages + 1); pages > 0; --pages) {
      ExportedPage& page = list.pages.emplace_back();
      if (below(3) == 0) page.title = "T" + std::to_string(below(3));
      for (std::uint64_t slot = 0; slot < pageSize; ++slot) {
        const bool isTaken = !people.empty() && below(3) > 0;
        page.friends.push_back(isTaken ? std::optional(person(people.back())) : std::nullopt);
        if (isTaken) people.pop_back();
      }
    }
    return list;
  }

 private:
  ExportedFriend person(int number) {
    ExportedFriend person = somebody("P" + std::to_string(number));
    if (below(4) == 0) person.name.reset();
    if (below(4) == 0) person.contactGUID = "guid " + std::to_string(number);
    if (below(3) == 0) person.replyAs = std::to_string(below(2));
    if (below(3) == 0) person.chosenNumber = person.destinations.front();
    if (below(3) == 0) person.metadata.emplace("k" + std::to_string(below(2)), static_cast<std::int64_t>(below(2)));
    if (below(3) == 0) person.otherEntries.emplace("o" + std::to_string(below(2)), static_cast<std::int64_t>(below(2)));
    return person;
  }

  std::mt19937_64 _random;
};

class World : public ManagerTest {
 public:
  explicit World(std::uint64_t seed) : random(seed), pageSize(1 + random.below(3)), mostPages(2 + random.below(4)) {
    scheduler = std::make_shared<SimulatedScheduler>(seed);
    setGroups(mostPages, pageSize);
    a = std::make_unique<ListProcess>(launch());
    rest();
  }
  void TestBody() override {}
  using ManagerTest::launch;
  using ManagerTest::rest;

  ExportedList exported() {
    return a->process().run([&] { return a->list().exported(); });
  }
  ImportAnswer import(const ExportedList& list, ImportMode mode) {
    return a->process().run([&] { return a->list().import(list, mode); });
  }
  UndoAnswer undo() {
    return a->process().run([&] { return a->list().undo(); });
  }
  UndoAnswer redo() {
    return a->process().run([&] { return a->list().redo(); });
  }

  RandomLists random;
  const std::uint64_t pageSize;
  const std::size_t mostPages;
  std::unique_ptr<ListProcess> a;
};

// Empty pages at the end are laid out by each process for itself, whatever their titles: of those that another one does
// not lay out it can tell nothing.
bool isLaidOutByAll(const Snapshot& list) {
  std::size_t count = list.pageCount();
  while (count > 0 && list.page(count - 1).friendCount == 0) --count;
  return count == list.pageCount() || (count + 1 == list.pageCount() && list.page(count).title.empty());
}

class ListImportSeedsTest : public SeededTest {};

// PELLOR_IMPORTS=<count>: how many worlds, of a dozen imports each.
TEST_P(ListImportSeedsTest, ImportsTakenBackGiveTheListsOfBefore) {
  forEachSeed(countOf("PELLOR_IMPORTS", 400, 60), [](std::uint64_t seed) {
    World world(seed);
    std::vector<ExportedList> lists = {world.exported()};
    bool areAllLaidOut = true;
    for (int count = 0; count < 12; ++count) {
      const ExportedList list = world.random.list(world.pageSize, world.mostPages);
      const ImportMode mode = world.random.below(2) == 0 ? ImportMode::add : ImportMode::replace;
      const ImportAnswer plan = world.a->process().run([&] { return world.a->list().planImport(list, mode); });
      ASSERT_EQ(world.exported(), lists.back()) << "a plan changes nothing";
      const ImportAnswer answer = world.import(list, mode);
      ASSERT_EQ(answer.refusal, plan.refusal);
      ASSERT_EQ(answer.added.size(), plan.added.size());
      const ExportedList now = world.exported();
      ASSERT_EQ(now == lists.back(), !answer || answer.changesNothing()) << "it says what it does";
      ASSERT_EQ(world.a->process().manager().invariantViolation(), std::nullopt);
      if (answer && mode == ImportMode::replace) {
        ASSERT_TRUE(world.import(list, mode).changesNothing()) << "the list is what was imported";
      }
      if (!(now == lists.back())) lists.push_back(now);
      areAllLaidOut = areAllLaidOut && isLaidOutByAll(world.a->snapshot());
      if (world.random.below(3) == 0) world.rest();
    }
    world.rest();
    auto b = std::make_unique<ListProcess>(world.launch());
    world.rest();
    if (areAllLaidOut && world.random.below(4) > 0) std::swap(world.a, b);
    for (std::size_t left = lists.size() - 1; left > 0; --left) {
      ASSERT_TRUE(world.undo().step);
      world.rest();
      ASSERT_EQ(world.exported(), lists[left - 1]) << left;
      if (world.random.below(3) > 0) continue;
      ASSERT_TRUE(world.redo().step);
      world.rest();
      ASSERT_EQ(world.exported(), lists[left]) << left << ", taken back and done again";
      ASSERT_TRUE(world.undo().step);
      world.rest();
    }
    EXPECT_EQ(world.exported(), lists.front());
  });
}

INSTANTIATE_TEST_SUITE_P(Seeds, ListImportSeedsTest, ::testing::Range(std::uint64_t{0}, SeededTest::PartCount));

}  // namespace
}  // namespace pellor
