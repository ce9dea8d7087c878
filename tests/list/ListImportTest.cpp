// Exported lists that are taken in: as one step, overtaken, taken back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <numeric>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "tests/list/SeededWorld.h"

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

class ListImportTest : public ListTest {
 protected:
  ListImportTest() { setGroups(3, 2); }
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
  std::vector<std::string> told;
  const ImportAnswer plan = a->run([&] { return a->list().planImport(list, ImportMode::add); });
  EXPECT_THAT(plan.added, SizeIs(2));
  EXPECT_THAT(a->snapshot().friends(), SizeIs(0)) << "only planned";
  ASSERT_TRUE(a->import(list, ImportMode::add, noteIn(told)));
  const ExportedList known = a->exported();
  list.pages[1].friends.pop_back();
  list.pages[1].friends[0]->monogram = known.pages[1].friends[0]->monogram;
  EXPECT_EQ(known, list);
  rest();
  EXPECT_THAT(told, ElementsAre("stored"));
  EXPECT_THAT(a->told(), ElementsAre("imported Ann Bob +2 pages 3"));
  EXPECT_EQ(stored(2), "-,Ann|Bob,-|-,-");
  EXPECT_TRUE(a->import(known, ImportMode::replace).changesNothing());
  auto b = open();
  ASSERT_TRUE(b->undo().step) << "another process takes it back";
  rest();
  EXPECT_EQ(a->exported().pages, std::vector<ExportedPage>());
}

// The list has Ann, who is linked with her contact, and Bob without one.
TEST_F(ListImportTest, WhoOfAFileIsAFriendAlready) {
  contacts({"Ann", "Abe"});
  world.addressBook().change(guidOf("Abe"), [](TestContact& contact) {
    contact.first = "Ann";
    contact.emails = {{"home", mailOf("Ann")}};
  });
  auto a = open("Ann#,Bob|-,-");
  const struct {
    const char* what;
    ExportedFriend person;
    bool isFriend;
  } rows[] = {
      {"by the GUID, whatever else was written",
       {.name = "Anna", .destinations = {"old@example.org"}, .contactGUID = guidOf("Ann")},
       true},
      {"by name and address", {.name = "Bob", .destinations = {"bob@example.org", "new@example.org"}}, true},
      {"by the address where there is no name", {.destinations = {"bob@example.org"}}, true},
      {"another one of the family", {.name = "Bea", .destinations = {"bob@example.org"}}, false},
      {"a namesake", {.name = "Bob", .destinations = {"other@example.org"}}, false},
      {"another contact, of the same name and address",
       {.name = "Ann", .destinations = {mailOf("Ann")}, .contactGUID = guidOf("Abe")},
       false},
      {"a contact of another machine",
       {.name = "Bob", .destinations = {mailOf("Bob")}, .contactGUID = "elsewhere"},
       true},
  };
  for (const auto& row : rows) {
    const ExportedList list{2, {{"", {row.person}}}};
    const ImportAnswer answer = a->run([&] { return a->list().planImport(list, ImportMode::add); });
    EXPECT_FALSE(answer.refusal) << row.what;
    EXPECT_EQ(answer.added.empty(), row.isFriend) << row.what;
  }
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
    const ImportAnswer answer = a->import(row.list, row.mode);
    SCOPED_TRACE(textOf(row.reason));
    EXPECT_EQ(answer.refusal, Refusal{row.reason});
    EXPECT_EQ(answer.cause ? std::optional(answer.cause->place) : std::nullopt, row.cause);
    EXPECT_EQ(answer.twin, row.twin);
    EXPECT_EQ(a->process().list(), before);
  }
  setSetting(PLEmptyTrailingGroupEnabledKey, false);
  auto b = open("Ann,Bob");
  EXPECT_EQ(b->import(listOf("A|B"), ImportMode::replace).refusal, Refusal{addsNoPages});
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
    std::string told;
  } rows[] = {
      {"added by both: one friend, where they have him", "Ann,-|-,-", "Ann,Bob", ImportMode::add, "Ann,-|-,Bob",
       "Ann,-|-,Bob|-,-", "stored"},
      {"his slot is taken", "Ann,-|-,-", "-,Bob", ImportMode::add, "Ann,Cy|-,-", "Ann,Cy|Bob,-|-,-", "stored"},
      {"there is no room any more", "Ann,-|-,-", "A,B|C,D", ImportMode::add, "Ann,X|Y,Z|-,-", "Ann,X|Y,Z|-,-",
       "there is no room"},
      {"who was a friend already left there", "Ann,-|-,-", "Ann,Bob", ImportMode::add, "-,-|-,-", "-,Bob|-,-",
       "stored"},
      {"a replacement keeps what they added", "Ann,Bob|-,-", "Bob,-", ImportMode::replace, "Ann,Bob|Cy,-",
       "Bob,-|Cy,-|-,-", "stored"},
      {"a friend whom it moves is gone", "Ann,Bob|-,-", "Bob,-", ImportMode::replace, "Ann,-|-,-", "Ann,-|-,-",
       "another program changed it first"},
      {"who was to leave is gone", "Ann,Bob|-,-", "Bob,-", ImportMode::replace, "-,Bob|-,-", "Bob,-|-,-", "stored"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    forgetList();
    auto a = open(row.before);
    std::vector<std::string> told;
    ASSERT_TRUE(a->import(listOf(row.list), row.mode, noteIn(told)));
    store(row.theirs);
    rest();
    EXPECT_THAT(told, ElementsAre(row.told));
    EXPECT_EQ(a->process().list(), row.after);
    // What a merge places elsewhere is a step of its own.
    EXPECT_EQ(std::ranges::count(a->history(), StepKind::imported, &HistoryStep::kind), row.told == "stored" ? 1 : 0);
    EXPECT_EQ(a->process().manager().invariantViolation(), std::nullopt);
  }
}

// Too large for the history, but not for being taken back as long as it is not stored.
TEST_F(ListImportTest, WhatIsTooLargeToBeTakenBackIsSaidBeforeAndIsRefusedAsAWhole) {
  auto a = open("Ann,-|-,-");
  const auto largest = [&](std::size_t size) {
    ExportedList list = listOf("-,Bob");
    list.pages[0].friends[1]->metadata = {{"k", std::string(size, 'x')}};
    return a->run([&] { return a->list().planImport(list, ImportMode::add); }).isUndoable;
  };
  std::size_t fits = 1, tooLarge = std::size_t{1} << 20;
  while (fits + 1 < tooLarge) (largest((fits + tooLarge) / 2) ? fits : tooLarge) = (fits + tooLarge) / 2;
  for (const std::size_t size : {fits, tooLarge}) {
    ExportedList list = listOf("-,Bob");
    list.pages[0].friends[1]->metadata = {{"k", std::string(size, 'x')}};
    const ImportAnswer answer = a->import(list, ImportMode::add);
    EXPECT_EQ(answer.isUndoable, size == fits) << "as it was planned";
    rest();
    EXPECT_EQ(a->history().back().isUndoable, size == fits);
    const FriendId bob = a->idAt(0, 1);
    const std::vector<Edit> entry = {SetMetadata{bob, "k", Value(std::string(size, 'y'))}};
    EXPECT_EQ(a->run([&] { return a->list().plan(entry); }).isUndoable, false) << "before and after";
    a->apply("remove Bob");
    rest();
  }
  std::vector<std::string> told;
  ExportedList list = listOf("Ann,A|B,C");
  list.pages[0].friends[1]->metadata = {{"k", std::string(tooLarge, 'x')}};
  const std::size_t steps = a->history().size();
  ASSERT_FALSE(a->import(list, ImportMode::add, noteIn(told)).isUndoable);
  store("Ann,X|Y,Z|U,-");
  rest();
  EXPECT_THAT(told, ElementsAre(textOf(noRoom)));
  EXPECT_EQ(a->process().list(), "Ann,X|Y,Z|U,-");
  EXPECT_EQ(stored(2), "Ann,X|Y,Z|U,-") << "nothing of it was stored";
  ASSERT_EQ(a->history().size(), steps + 1);
  EXPECT_EQ(a->history().back().kind, StepKind::anotherProgram);
}

/// A process that takes in lists that have some of their friends in common.
class World : public SeededWorld {
 public:
  explicit World(std::uint64_t seed) : SeededWorld(seed), _pageSize(1 + below(3)), _mostPages(2 + below(4)) {
    setGroups(_mostPages, _pageSize);
    a = open();
  }

  ExportedList list() {
    ExportedList list{_pageSize};
    std::vector<int> people(12);
    std::iota(people.begin(), people.end(), 0);
    shuffle(people);
    for (std::size_t pages = below(_mostPages + 1); pages > 0; --pages) {
      ExportedPage& page = list.pages.emplace_back();
      if (below(3) == 0) page.title = "T" + std::to_string(below(3));
      for (std::uint64_t slot = 0; slot < _pageSize; ++slot) {
        const bool isTaken = !people.empty() && below(3) > 0;
        page.friends.push_back(isTaken ? std::optional(person(people.back())) : std::nullopt);
        if (isTaken) people.pop_back();
      }
    }
    return list;
  }

  std::unique_ptr<ListProcess> a;

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

  const std::uint64_t _pageSize;
  const std::size_t _mostPages;
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
    std::vector<ExportedList> lists = {world.a->exported()};
    bool areAllLaidOut = true;
    for (int count = 0; count < 12; ++count) {
      const ExportedList list = world.list();
      const ImportMode mode = world.below(2) == 0 ? ImportMode::add : ImportMode::replace;
      const ImportAnswer plan = world.a->run([&] { return world.a->list().planImport(list, mode); });
      ASSERT_EQ(world.a->exported(), lists.back()) << "a plan changes nothing";
      const ImportAnswer answer = world.a->import(list, mode);
      ASSERT_EQ(answer.refusal, plan.refusal);
      ASSERT_EQ(answer.added.size(), plan.added.size());
      const ExportedList now = world.a->exported();
      ASSERT_EQ(now == lists.back(), !answer || answer.changesNothing()) << "it says what it does";
      ASSERT_EQ(world.a->process().manager().invariantViolation(), std::nullopt);
      if (answer && mode == ImportMode::replace) {
        ASSERT_TRUE(world.a->import(list, mode).changesNothing()) << "the list is what was imported";
      }
      if (!(now == lists.back())) lists.push_back(now);
      areAllLaidOut = areAllLaidOut && isLaidOutByAll(world.a->snapshot());
      if (world.below(3) == 0) world.rest();
    }
    world.rest();
    auto b = std::make_unique<ListProcess>(world.launch());
    world.rest();
    if (areAllLaidOut && world.below(4) > 0) std::swap(world.a, b);
    for (std::size_t left = lists.size() - 1; left > 0; --left) {
      ASSERT_TRUE(world.a->undo().step);
      world.rest();
      ASSERT_EQ(world.a->exported(), lists[left - 1]) << left;
      if (world.below(3) > 0) continue;
      ASSERT_TRUE(world.a->redo().step);
      world.rest();
      ASSERT_EQ(world.a->exported(), lists[left]) << left << ", taken back and done again";
      ASSERT_TRUE(world.a->undo().step);
      world.rest();
    }
    EXPECT_EQ(world.a->exported(), lists.front());
  });
}

INSTANTIATE_TEST_SUITE_P(Seeds, ListImportSeedsTest, ::testing::Range(std::uint64_t{0}, SeededTest::PartCount));

}  // namespace
}  // namespace pellor
