// Somebody who was removed and comes back gets back what he had.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "pellor/list/internal/ListClock.h"
#include "tests/list/ListProcess.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr double Day = 86400;
const std::string RemovedKey = "PLFriendListRemoved";

class RemovedFriendsTest : public ListTest {
 protected:
  RemovedFriendsTest() {
    setGroups(4, 3);
    contacts({"Ann", "Bob", "Cy"});
    store("Ann#,Bob#,Cy#|-,-,-");
    a = open();
    b = open();
    carry("Bob");
  }

  std::unique_ptr<ListProcess> open() {
    auto process = std::make_unique<ListProcess>(launch());
    process->process().process().local<ListClock>().now = [this] { return now; };
    rest();
    return process;
  }
  /// Gives a friend something of all kinds.
  void carry(const std::string& name) {
    ASSERT_TRUE(
        a->apply("reply " + name + " voice; choose " + name + " " + mailOf(name) + "; meta " + name + " seen 1"));
    rest();
  }
  /// Whether who is added gets something back, as the plan said too.
  static bool isRestored(ListProcess& process, const std::string& name) {
    const Edits addition = {AddFriend{.contactGUID = guidOf(name)}};
    const StepAnswer planned = process.run([&] { return process.list().plan(addition); });
    const StepAnswer answer = process.apply(addition);
    EXPECT_TRUE(answer && planned);
    EXPECT_EQ(planned.results, answer.results);
    return answer.results.at(0).restored;
  }
  static void expectHasAll(ListProcess& process, const std::string& name) {
    const auto person = process.friendNamed(name);
    ASSERT_TRUE(person);
    EXPECT_EQ(person->replyAs, "voice");
    EXPECT_EQ(person->chosenNumber, mailOf(name));
    EXPECT_EQ(person->metadata, (Dictionary{{"seen", "1"}}));
  }
  /// Who is in the stored memory, in its order.
  std::vector<std::string> remembered() {
    const auto value = storedValue(RemovedKey);
    std::vector<std::string> ids;
    if (!value) return ids;
    for (const Value& each : value->longArray() ? value->longArray()->elements() : *value->array())
      ids.push_back(*each.dictionary()->at("id").string());
    return ids;
  }

  double now = 1e9;
  std::unique_ptr<ListProcess> a, b;
};

TEST_F(RemovedFriendsTest, WhoIsAddedAgainInAnotherProcessGetsBackWhatHeHad) {
  world.preferences().clearRecords();
  a->apply("remove Bob");
  a->apply("remove Cy");
  rest();
  EXPECT_THAT(remembered(), ElementsAre("guid-Bob")) << "Cy had nothing of his own";
  for (const auto& write : world.preferences().writes())
    EXPECT_THAT(write.keys, testing::Contains(std::string(PLFriendListKey))) << "in the write of the step";
  a->kill();
  now += 29 * Day;
  EXPECT_FALSE(isRestored(*b, "Cy"));
  EXPECT_TRUE(isRestored(*b, "Bob"));
  expectHasAll(*b, "Bob");
  rest();
  EXPECT_THAT(remembered(), IsEmpty());
  auto c = open();
  expectHasAll(*c, "Bob");
  // What was chosen, and taken from the card since, does not come back.
  b->apply("remove Bob");
  rest();
  world.addressBook().remove("guid-Bob");
  world.addressBook().add({.guid = "guid-Bob", .first = "Bob", .emails = {{"work", "bob@work.example"}}});
  rest();
  EXPECT_TRUE(isRestored(*c, "Bob"));
  EXPECT_EQ(c->friendNamed("Bob")->chosenNumber, std::nullopt);
  EXPECT_EQ(c->friendNamed("Bob")->replyAs, "voice");
}

TEST_F(RemovedFriendsTest, WithoutAContactTheNameAndANumberTell) {
  for (const char* step : {"add x@example.org", "reply x@example.org text", "remove x@example.org"}) a->apply(step);
  rest();
  EXPECT_THAT(remembered(), ElementsAre("x@example.org"));
  const EditResult again = b->apply("add x@example.org").results.at(0);
  EXPECT_TRUE(again.restored);
  EXPECT_EQ(b->snapshot().friendWith(again.id)->replyAs, "text");
}

TEST_F(RemovedFriendsTest, AWrongClockNeitherKeepsForEverNorLosesAtOnce) {
  struct Case {
    std::string what;
    std::vector<double> days;         ///< when others are removed, in days after Bob was
    std::vector<std::string> memory;  ///< after these
    double addedAt;
    bool isRestored;
  };
  const std::vector<Case> cases = {
      {"in time", {}, {"guid-Bob"}, 29.9, true},
      {"too late", {}, {"guid-Bob"}, 30.1, false},
      {"goes with the next write", {31}, {"guid-Ann"}, 1, false},
      {"the clock is set back", {}, {"guid-Bob"}, -1000, true},
      {"set back for good, he goes after 30 days", {-1000, -969}, {"guid-Cy"}, -969, false},
      {"far ahead for a while", {9000}, {"guid-Bob", "guid-Ann"}, 2, true},
      {"far ahead, it was right", {9000, 9001.5}, {"guid-Ann", "guid-Cy"}, 9002, false},
      {"far ahead, back, and far ahead again", {9000, 3}, {"guid-Bob", "guid-Ann", "guid-Cy"}, 9003, false},
  };
  const double begin = now;
  for (const Case& each : cases) {
    SCOPED_TRACE(each.what);
    now = begin;
    for (const char* name : {"Ann", "Bob", "Cy"}) {
      a->apply(std::string("contact ") + name);
      carry(name);
    }
    a->apply("remove Bob");
    const std::vector<std::string> others = {"Ann", "Cy"};
    for (std::size_t index = 0; index < each.days.size(); ++index) {
      now = begin + each.days[index] * Day;
      a->apply("remove " + others[index]);
    }
    rest();
    EXPECT_EQ(remembered(), each.memory);
    now = begin + each.addedAt * Day;
    EXPECT_EQ(isRestored(*b, "Bob"), each.isRestored);
    rest();
  }
}

TEST_F(RemovedFriendsTest, TakingARemovalBackTakesHimOutAndDoingItAgainPutsHimBack) {
  a->apply("remove Bob");
  rest();
  ASSERT_TRUE(b->undo().step);
  rest();
  EXPECT_THAT(remembered(), IsEmpty());
  expectHasAll(*a, "Bob");
  ASSERT_TRUE(b->redo().step);
  rest();
  EXPECT_THAT(remembered(), ElementsAre("guid-Bob"));
  ASSERT_TRUE(isRestored(*a, "Bob"));
  rest();
  ASSERT_TRUE(b->undo().step) << "the addition";
  rest();
  EXPECT_THAT(remembered(), ElementsAre("guid-Bob"));
  // With his page.
  ASSERT_TRUE(isRestored(*b, "Bob"));
  b->apply("drop 1");
  rest();
  EXPECT_THAT(remembered(), ElementsAre("guid-Bob"));
}

TEST_F(RemovedFriendsTest, ARefusedStepLeavesTheMemoryAsItWas) {
  const Value before = *storedValue(PLFriendListKey);
  const auto withoutCy = [&](const Value& list) {
    Array elements = list.longArray() ? list.longArray()->elements() : *list.array();
    elements[2] = Dictionary();
    world.preferences().setValue(PLFriendListKey, storedAfter(list, elements), TapnoteDomain);
  };
  const auto expectRefused = [&](const Edits& edits) {
    std::vector<std::string> told;
    a->apply(edits, noteIn(told));
    rest();
    EXPECT_THAT(told, ElementsAre(testing::Ne("stored")));
  };
  const FriendId ann = a->idNamed("Ann"), bob = a->idNamed("Bob"), cy = a->idNamed("Cy");
  withoutCy(before);
  expectRefused({RemoveFriend{bob}, SetReplyAs{cy, "x"}});
  EXPECT_THAT(remembered(), IsEmpty());
  expectHasAll(*b, "Bob");
  // One who was to get it back.
  a->apply("remove Bob");
  rest();
  Array nobody(6, Value(Dictionary()));
  world.preferences().setValue(PLFriendListKey, storedAfter(storedValue(PLFriendListKey), nobody), TapnoteDomain);
  expectRefused({AddFriend{.contactGUID = "guid-Bob"}, SetReplyAs{ann, "x"}});
  EXPECT_THAT(remembered(), ElementsAre("guid-Bob"));
  EXPECT_TRUE(isRestored(*b, "Bob"));
}

// The process that stored the removal does not know it yet when it meets what another one stored.
TEST_F(RemovedFriendsTest, ARemovalThatIsStoredAndNotToldYetStaysTheStepThatItWas) {
  using Untold = InMemoryPreferences::Untold;
  world.preferences().leaveUntold(Untold::stored, 1);
  std::vector<std::string> told;
  a->apply("remove Bob", noteIn(told));
  advance(0.01);
  EXPECT_THAT(remembered(), ElementsAre("guid-Bob"));
  a->apply("reply Cy x");
  b->apply("reply Ann y");
  rest();
  EXPECT_THAT(told, ElementsAre("stored"));
  EXPECT_THAT(remembered(), ElementsAre("guid-Bob"));
  const auto history = b->history();
  const auto removal = std::ranges::find(history, StepKind::removed, &HistoryStep::kind);
  ASSERT_NE(removal, history.end());
  EXPECT_EQ(removal->summary.names, std::vector<std::string>{"Bob"});
  ASSERT_TRUE(b->undo(removal->id));
  expectHasAll(*b, "Bob");
}

// Both removed him; one of them dies with what it had made of it.
TEST_F(RemovedFriendsTest, TwoProcessesRememberOneOnce) {
  a->apply("remove Bob");
  b->apply("remove Bob");
  rest();
  EXPECT_THAT(remembered(), ElementsAre("guid-Bob"));
  world.preferences().failWrites();
  ASSERT_TRUE(isRestored(*a, "Bob"));
  a->kill();
  world.preferences().failWrites(0);
  rest();
  EXPECT_THAT(remembered(), ElementsAre("guid-Bob"));
  EXPECT_TRUE(isRestored(*b, "Bob"));
  rest();
  EXPECT_THAT(remembered(), IsEmpty());
}

}  // namespace
}  // namespace pellor
