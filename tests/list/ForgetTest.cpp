// Somebody who is forgotten: nothing that tells of him is left in the store.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "pellor/list/internal/FriendIdentity.h"
#include "pellor/runtime/Queue.h"
#include "pellor/testing/InMemoryTraces.h"
#include "tests/list/ListProcess.h"
#include "tests/pellor/SeededTest.h"

namespace pellor {
namespace {

using ::testing::AllOf;
using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using enum RefusalReason;

using Edits = std::vector<Edit>;

class ForgetTest : public ManagerTest {
 public:
  void TestBody() override {}

  std::unique_ptr<ListProcess> open() {
    auto process = std::make_unique<ListProcess>(launch());
    rest();
    return process;
  }
  static std::string secretOf(const std::string& name) { return "secret of " + name; }
  static Edits carrying(FriendId id, const std::string& name) {
    return {SetReplyAs{id, secretOf(name)}, ChooseNumber{id, mailOf(name)}, SetMetadata{id, "key", secretOf(name)}};
  }
  static bool apply(ListProcess& process, const Edits& edits, StoredHandler stored = {}) {
    return static_cast<bool>(process.apply([&](const Snapshot&) { return edits; }, std::move(stored)));
  }
  static ForgetAnswer forget(ListProcess& process, const std::string& who, ForgottenHandler forgotten = {}) {
    return process.process().run([&] { return process.list().forget(who, std::move(forgotten)); });
  }
  static std::vector<HistoryStep> history(ListProcess& process) {
    return process.process().run([&] { return process.list().history(); });
  }

  /// All that is stored under any key that was ever written.
  Dictionary valuesStored() {
    Dictionary values;
    for (const std::string& key : keysWritten())
      if (auto value = storedValue(key)) values.emplace(key, *std::move(value));
    return values;
  }
  static std::string textOf(const Dictionary& values) {
    std::string text;
    for (const auto& [key, value] : values) text += key + ": " + textOfAll(value) + "\n";
    return text;
  }
  /// The values and their last good copies, as text.
  std::string everythingStored() {
    std::string text;
    for (const std::string& key : keysWritten()) {
      for (const auto& value : {storedValue(key), world.preferences().lastGoodValue(key, TapnoteDomain)})
        if (value) text += key + ": " + textOfAll(*value) + "\n";
    }
    return text;
  }
  void expectNoTraceOf(const std::string& name) { expectNoTraceOf(name, everythingStored()); }
  static void expectNoTraceOf(const std::string& name, const std::string& text) {
    for (const std::string& trace : {mailOf(name), guidOf(name), secretOf(name), "\"" + name + "\"",
                                     std::to_string(fingerprintOf({guidOf(name), name, {mailOf(name)}}))})
      EXPECT_THAT(text, Not(HasSubstr(trace))) << name;
  }

 private:
  std::set<std::string> keysWritten() {
    std::set<std::string> keys = {std::string(PLFriendListKey), std::string(PLGroupTitlesKey)};
    for (const auto& write : world.preferences().writes()) keys.insert(write.keys.begin(), write.keys.end());
    return keys;
  }
  static std::string textOfAll(const Value& value) {
    if (value.longArray()) return Value(value.longArray()->elements()).description();
    return value.description();
  }
};

class ForgetStoryTest : public ForgetTest {
 protected:
  ForgetStoryTest() {
    setGroups(4, 3);
    contacts({"Ann", "Bob", "Cy"});
    store("Ann#,Bob#,Cy#|-,-,-");
    a = open();
    b = open();
    bob = a->idNamed("Bob");
  }
  std::unique_ptr<ListProcess> a, b;
  FriendId bob;
};

TEST_F(ForgetStoryTest, NothingInTheStoreTellsOfHimAndWhatTellsOfOthersStays) {
  const FriendId cy = a->idNamed("Cy");
  apply(*a, carrying(bob, "Bob"));
  apply(*a, {MoveFriend{bob, {0, 2}}});
  apply(*a, {SetReplyAs{cy, "text"}});
  apply(*a, {SetReplyAs{bob, {}}, RenamePage{a->snapshot().page(0).id, "Home"}});
  rest();
  EXPECT_THAT(everythingStored(), HasSubstr(secretOf("Bob")));
  EXPECT_THAT(everythingStored(), HasSubstr(std::to_string(fingerprintOf({guidOf("Bob"), "Bob", {mailOf("Bob")}}))));

  std::vector<std::optional<Refusal>> told;
  const FriendId bobOfB = b->idNamed("Bob");
  const ForgetAnswer answer = b->process().run(
      [&] { return b->list().forget(bobOfB, [&](const auto& each) { told.push_back(each.refusal); }); });
  ASSERT_TRUE(answer);
  EXPECT_THAT(answer.guids, ElementsAre("guid-Bob"));
  EXPECT_THAT(answer.destinations, ElementsAre("bob@example.org"));
  EXPECT_THAT(told, IsEmpty());
  rest();
  EXPECT_THAT(told, ElementsAre(std::nullopt));
  expectNoTraceOf("Bob");
  for (ListProcess* process : {a.get(), b.get()}) {
    EXPECT_FALSE(process->friendNamed("Bob"));
    const auto steps = history(*process);
    ASSERT_EQ(steps.size(), 4U) << "the step that told of him alone is gone";
    EXPECT_EQ(steps[0].summary.names, std::vector<std::string>{"Cy"}) << "who changed places with him";
    EXPECT_EQ(steps[2].summary.pages, 1U);
    EXPECT_EQ(steps[3].summary, (StepSummary{.removed = 1}));
    EXPECT_FALSE(steps[3].isUndoable);
    const auto refused = process->process().run([&] { return process->list().undo(); });
    EXPECT_EQ(refused.refusal, (Refusal{notUndoable}));
  }
  const std::string swap = history(*a)[0].id;
  EXPECT_TRUE(a->process().run([&] { return a->list().undo(swap); }));
  EXPECT_EQ(a->process().list(), "Ann,-,Cy|-,-,-");
  // As if he had never been there, in the process that had him too.
  const auto again = a->apply([](const Snapshot&) { return Edits{AddFriend{.contactGUID = "guid-Bob"}}; });
  EXPECT_FALSE(again.results.at(0).restored);
  EXPECT_EQ(a->friendNamed("Bob")->replyAs, std::nullopt);
  EXPECT_EQ(a->friendNamed("Bob")->metadata, Dictionary());
}

TEST_F(ForgetStoryTest, SomebodyWhoIsNoFriendAnyMoreIsForgottenByGUIDOrAddress) {
  for (const std::string& who : {guidOf("Bob"), mailOf("Bob"), std::string("mailto:bob@example.org")}) {
    SCOPED_TRACE(who);
    if (!a->friendNamed("Bob")) apply(*a, {AddFriend{.contactGUID = "guid-Bob"}});
    apply(*a, carrying(a->idNamed("Bob"), "Bob"));
    apply(*a, {RemoveFriend{a->idNamed("Bob")}});
    rest();
    EXPECT_THAT(everythingStored(), HasSubstr(secretOf("Bob")));
    a->kill();
    a = open();
    const std::size_t steps = history(*b).size();
    EXPECT_TRUE(forget(*b, who));
    rest();
    expectNoTraceOf("Bob");
    EXPECT_LT(history(*a).size(), steps) << "no step says that somebody left";
    EXPECT_EQ(forget(*b, who).refusal, (Refusal{notFound}));
  }
}

// Of a copy that was made before, and of whom the platform alone knows still.
TEST_F(ForgetStoryTest, CopiesTellNothingOfHimOnceTheHandlerIsCalled) {
  const auto traces = std::make_shared<InMemoryTraces>();
  world.setPersonalTraces(traces);
  apply(*a, carrying(bob, "Bob"));
  apply(*a, {RenamePage{a->snapshot().page(0).id, "Bob's page"}, MoveFriend{a->idNamed("Cy"), {1, 0}}});
  apply(*a, {RemoveFriend{bob}});
  apply(*a, {AddFriend{.contactGUID = "guid-Bob"}});
  apply(*a, carrying(a->idNamed("Bob"), "Bob"));
  rest();
  const Dictionary copy = valuesStored();
  traces->addCopy(copy);
  traces->setKept(KeptTrace{"a server", "it is another one's"});
  auto c = open();
  const ForgetAnswer plan = c->process().run([&] { return c->list().planForget("bob@example.org"); });
  EXPECT_THAT(plan.found, ElementsAre("a copy"));
  EXPECT_THAT(plan.names, ElementsAre("Bob"));
  EXPECT_TRUE(plan.isInHistory);
  EXPECT_EQ(plan.friends, std::vector{c->idNamed("Bob")});
  EXPECT_EQ(valuesStored(), copy) << "a plan changes nothing";

  std::vector<Forgotten> told;
  forget(*c, "guid-Bob", [&](const Forgotten& each) {
    EXPECT_THAT(textOf(traces->copies()[0]), Not(HasSubstr(secretOf("Bob"))));
    told.push_back(each);
  });
  EXPECT_EQ(traces->copies()[0], copy) << "not before the step is stored";
  rest();
  ASSERT_EQ(told.size(), 1U);
  EXPECT_THAT(told[0].erased, ElementsAre("a copy"));
  EXPECT_THAT(told[0].kept, ElementsAre(KeptTrace{"a server", "it is another one's"}));
  expectNoTraceOf("Bob", textOf(traces->copies()[0]));
  EXPECT_THAT(textOf(traces->copies()[0]), AllOf(HasSubstr(guidOf("Cy")), HasSubstr("Bob's page")));
  const LongArray list = *traces->copies()[0].at(std::string(PLFriendListKey)).longArray();
  EXPECT_EQ(list.size(), copy.at(std::string(PLFriendListKey)).longArray()->size()) << "his slot is empty";

  // A program was killed before the copies were done: nobody but these knows him any more.
  traces->addCopy(copy);
  traces->setKept(std::nullopt);
  forget(*c, "bob@example.org");
  rest();
  expectNoTraceOf("Bob", textOf(traces->copies()[1]));
  forget(*c, "bob@example.org", [&](const Forgotten& each) { told.push_back(each); });
  rest();
  EXPECT_EQ(told.back().refusal, (Refusal{notFound}));
}

TEST_F(ForgetStoryTest, AFriendWithTheSameLineStays) {
  world.addressBook().add({.guid = "guid-Dan", .first = "Dan", .emails = {{"home", "bob@example.org"}}});
  rest();
  apply(*a, {AddFriend{.contactGUID = "guid-Dan"}});
  apply(*a, carrying(bob, "Bob"));
  apply(*a, {SetReplyAs{a->idNamed("Dan"), "kept"}});
  rest();
  ASSERT_TRUE(b->process().run([&] { return b->list().forget(b->idNamed("Bob")); }));
  rest();
  EXPECT_TRUE(a->friendNamed("Dan"));
  EXPECT_FALSE(a->friendNamed("Bob"));
  EXPECT_THAT(everythingStored(), Not(HasSubstr(secretOf("Bob"))));
  EXPECT_THAT(everythingStored(), Not(HasSubstr(guidOf("Bob"))));
  EXPECT_EQ(history(*a).size(), 3U) << "Dan's two, and the removal";
  // By the line both go.
  EXPECT_TRUE(forget(*a, "bob@example.org"));
  rest();
  EXPECT_FALSE(b->friendNamed("Dan"));
  EXPECT_THAT(everythingStored(), Not(HasSubstr("bob@example.org")));
}

TEST_F(ForgetStoryTest, WhoIsLinkedWithAnotherContactSinceIsForgottenUnderBoth) {
  apply(*a, carrying(bob, "Bob"));
  rest();
  world.addressBook().remove("guid-Bob");
  world.addressBook().add({.guid = "guid-New", .first = "Bob", .emails = {{"home", "bob@example.org"}}});
  rest();
  const auto linked = a->snapshot().friendWith(bob);
  ASSERT_EQ(linked->contactGUID, "guid-New");
  apply(*a, {SetReplyAs{bob, "new"}});
  rest();
  EXPECT_TRUE(forget(*b, "guid-New"));
  rest();
  expectNoTraceOf("Bob");
  EXPECT_THAT(everythingStored(), Not(HasSubstr("guid-New")));
}

TEST_F(ForgetStoryTest, AProcessThatDiesFirstHasForgottenNothing) {
  apply(*a, carrying(bob, "Bob"));
  rest();
  const std::string before = everythingStored();
  world.preferences().failWrites();
  std::vector<std::optional<Refusal>> told;
  forget(*a, "guid-Bob", [&](const auto& each) { told.push_back(each.refusal); });
  a->kill();
  world.preferences().failWrites(0);
  rest();
  EXPECT_THAT(told, ElementsAre(Refusal{abandoned}));
  EXPECT_EQ(everythingStored(), before);
  EXPECT_EQ(b->friendNamed("Bob")->replyAs, secretOf("Bob"));
}

// Another process tells of him in the moment in which he is forgotten.
TEST_F(ForgetStoryTest, WhatAnotherProcessToldOfHimMeanwhileGoesToo) {
  struct Case {
    std::string what;
    std::function<Edits()> edits;  ///< of the other process
  };
  const std::vector<Case> cases = {
      {"changed", [&] { return carrying(b->idNamed("Bob"), "Bob"); }},
      {"moved",
       [&] {
         return Edits{MoveFriend{b->idNamed("Bob"), {0, 0}}};
       }},
      {"removed",
       [&] {
         return Edits{SetMetadata{b->idNamed("Bob"), "key", secretOf("Bob")}, RemoveFriend{b->idNamed("Bob")}};
       }},
      {"removed with others", [&] { return Edits{RemovePage{b->snapshot().page(0).id}}; }},
  };
  for (const Case& each : cases) {
    for (const bool isFirst : {true, false}) {
      SCOPED_TRACE(each.what + (isFirst ? ", first" : ", second"));
      for (const char* name : {"Ann", "Bob", "Cy"})
        if (!a->friendNamed(name)) apply(*a, {AddFriend{.contactGUID = guidOf(name)}});
      apply(*a, carrying(a->idNamed("Bob"), "Bob"));
      rest();
      const auto other = [&] { EXPECT_TRUE(apply(*b, each.edits())); };
      if (isFirst) other();
      if (isFirst) advance(0.001);
      EXPECT_TRUE(forget(*a, "guid-Bob"));
      if (!isFirst) other();
      rest();
      expectNoTraceOf("Bob");
      EXPECT_FALSE(a->friendNamed("Bob"));
      EXPECT_FALSE(b->friendNamed("Bob"));
    }
  }
}

// Who is no friend any more, of whom another process takes a step back in that moment.
TEST_F(ForgetStoryTest, AStepThatIsTakenBackMeanwhileTellsNothingOfHimAfterwards) {
  for (const bool isFirst : {true, false}) {
    SCOPED_TRACE(isFirst ? "taken back first" : "forgotten first");
    if (!a->friendNamed("Bob")) apply(*a, {AddFriend{.contactGUID = "guid-Bob"}});
    apply(*a, carrying(a->idNamed("Bob"), "Bob"));
    apply(*a, {SetReplyAs{a->idNamed("Bob"), {}}, MoveFriend{a->idNamed("Cy"), {1, isFirst ? 0U : 1U}}});
    const std::string both = history(*a).back().id;
    apply(*a, {RemoveFriend{a->idNamed("Bob")}});
    rest();
    const auto takeBack = [&] { EXPECT_TRUE(b->process().run([&] { return b->list().undo(both); })); };
    if (isFirst) takeBack();
    if (isFirst) advance(0.05);
    EXPECT_TRUE(forget(*a, "guid-Bob"));
    if (!isFirst) advance(0.05);
    if (!isFirst) takeBack();
    rest();
    expectNoTraceOf("Bob");
    EXPECT_EQ(b->process().list(), a->process().list());
  }
}

TEST_F(ForgetStoryTest, TwoWhoAreForgottenAtOnceLeaveNothingInAStepOfBoth) {
  Edits edits = carrying(bob, "Bob");
  for (const Edit& edit : carrying(a->idNamed("Ann"), "Ann")) edits.push_back(edit);
  edits.emplace_back(SetReplyAs{a->idNamed("Cy"), "text"});
  apply(*a, edits);
  rest();
  EXPECT_TRUE(forget(*a, "guid-Ann"));
  EXPECT_TRUE(forget(*b, "guid-Bob"));
  rest();
  expectNoTraceOf("Ann");
  expectNoTraceOf("Bob");
  EXPECT_EQ(history(*a).front().summary.names, std::vector<std::string>{"Cy"});
}

// What became of the friend is told by both: nothing says that the friend is to be forgotten.
TEST_F(ForgetStoryTest, AStepThatTwoTakeBackAtOnceCanBeDoneAgainAndBeForgotten) {
  apply(*a, {RemoveFriend{bob}});
  a->process().run([&] { a->list().clearHistory(); });
  apply(*a, {AddFriend{.contactGUID = "guid-Bob"}});
  const std::string added = history(*a).back().id;
  apply(*a, {MoveFriend{a->idNamed("Cy"), {1, 0}}});
  rest();
  for (ListProcess* process : {a.get(), b.get()})
    EXPECT_TRUE(process->process().run([&] { return process->list().undo(added); }));
  rest();
  for (ListProcess* process : {a.get(), b.get()})
    EXPECT_EQ(process->process().run([&] { return process->list().planRedo(); }).step.value_or(HistoryStep()).id,
              added);
  EXPECT_TRUE(forget(*a, "bob@example.org"));
  rest();
  expectNoTraceOf("Bob");
}

TEST_F(ForgetStoryTest, AClearedHistoryIsEmptyInAllProcesses) {
  apply(*a, carrying(bob, "Bob"));
  rest();
  std::vector<std::optional<Refusal>> told;
  EXPECT_TRUE(
      b->process().run([&] { return b->list().clearHistory([&](const auto& each) { told.push_back(each); }); }));
  rest();
  EXPECT_THAT(told, ElementsAre(std::nullopt));
  EXPECT_THAT(history(*a), IsEmpty());
  EXPECT_FALSE(a->process().run([&] { return a->list().undo(); }).step);
  EXPECT_EQ(a->friendNamed("Bob")->replyAs, secretOf("Bob"));
  auto c = open();
  EXPECT_THAT(history(*c), IsEmpty());
}

/// Two processes do steps at random, and somebody is forgotten.
class ForgettingWorld : public ForgetTest {
 public:
  explicit ForgettingWorld(std::uint64_t seed) : _random(seed) {
    scheduler = std::make_shared<SimulatedScheduler>(seed);
    setGroups(4, 2 + below(2));
    for (int number = 0; number < 7; ++number) _names.push_back("P" + std::string(1, static_cast<char>('a' + number)));
    contacts(_names);
    for (int count = 0; count < 2; ++count) _processes.push_back(open());
  }

  void run() {
    for (std::size_t round = 1 + below(3); round > 0 && !HasFailure(); --round) {
      for (std::size_t steps = 5 + below(20); steps > 0; --steps) {
        step(some(_processes));
        if (below(3) == 0) rest();
      }
      if (below(5) == 0) killOne();
      rest();
      const std::size_t own = below(2);
      for (std::size_t steps = below(3); steps > 0; --steps) stepBeside(*_processes[1 - own]);
      for (std::size_t steps = below(2); steps > 0; --steps) step(_processes[own]);
      std::set<std::string> gone = {forgetSomebody(*_processes[own])};
      if (below(4) == 0) gone.insert(forgetSomebody(*_processes[1 - own]));
      rest();
      for (const std::string& name : gone) expectForgotten(name);
      for (const auto& process : _processes) EXPECT_EQ(process->process().manager().invariantViolation(), std::nullopt);
    }
  }
  std::size_t forgotten() const { return _forgotten; }

 private:
  std::size_t below(std::size_t count) { return std::uniform_int_distribution<std::size_t>(0, count - 1)(_random); }
  template <class Type>
  Type& some(std::vector<Type>& all) {
    return all[below(all.size())];
  }

  std::string forgetSomebody(ListProcess& process) {
    std::string name = some(_names);
    if (forget(process, below(2) == 0 ? guidOf(name) : mailOf(name))) ++_forgotten;
    return name;
  }
  // A removal that another program takes back in the same moment brings a person back.
  void expectForgotten(const std::string& name) {
    EXPECT_EQ(_processes[0]->friendNamed(name) == nullptr, _processes[1]->friendNamed(name) == nullptr);
    if (!_processes[0]->friendNamed(name)) expectNoTraceOf(name);
  }

  void killOne() {
    auto& process = some(_processes);
    process->kill();
    process = open();
  }

  void step(std::unique_ptr<ListProcess>& process) {
    if (below(5) == 0) return takeBackOrAgain(*process);
    if (const std::string name = some(_names); !process->friendNamed(name)) {
      apply(*process, {AddFriend{.contactGUID = guidOf(name)}});
    } else {
      change(*process);
    }
  }

  // Adds nobody.
  void stepBeside(ListProcess& process) { below(3) == 0 ? takeBackOrAgain(process) : change(process); }

  void takeBackOrAgain(ListProcess& process) {
    process.process().run([&] { below(2) == 0 ? process.list().undo() : process.list().redo(); });
  }

  void change(ListProcess& process) {
    const Snapshot list = process.snapshot();
    Edits edits;
    for (std::size_t count = 1 + below(3); count > 0; --count) addEdits(process, list, edits);
    apply(process, edits);
  }

  void addEdits(ListProcess& process, const Snapshot& list, Edits& edits) {
    const std::string name = some(_names);
    const auto person = process.friendNamed(name);
    const std::size_t page = below(list.pageCount());
    if (!person) return;
    const Edits own = carrying(person->id, name);
    switch (below(5)) {
      case 0:
        return edits.emplace_back(RemoveFriend{person->id}), void();
      case 1:
        return edits.emplace_back(MoveFriend{person->id, {page, below(2)}}), void();
      case 2:
        return edits.emplace_back(below(3) == 0 ? Edit(RemovePage{list.page(page).id})
                                                : Edit(MovePage{list.page(page).id, 0})),
               void();
      default:
        edits.insert(edits.end(), own.begin(), own.end());
    }
  }

  std::mt19937_64 _random;
  std::vector<std::string> _names;
  std::vector<std::unique_ptr<ListProcess>> _processes;
  std::size_t _forgotten = 0;
};

class ForgetSeedsTest : public SeededTest {};

TEST_P(ForgetSeedsTest, AfterItNoValueOfTheStoreTellsOfHim) {
  std::size_t forgotten = 0;
  forEachSeed(countOf("PELLOR_FORGET", 400, 60), [&](std::uint64_t seed) {
    ForgettingWorld world(seed);
    world.run();
    forgotten += world.forgotten();
  });
  EXPECT_GT(forgotten, 0U);
}

INSTANTIATE_TEST_SUITE_P(Parts, ForgetSeedsTest, ::testing::Range(std::uint64_t{0}, SeededTest::PartCount));

/// Has the last hold of what an erasure calls, on a queue of its own.
class TracesOnAQueue final : public InMemoryTraces {
 public:
  void erase(std::shared_ptr<ForgottenTraits> person, ErasedHandler erased) override {
    _queue = SerialQueue::make("traces");
    _queue->async([this, person = std::move(person), erased = std::move(erased)]() mutable {
      auto held = std::make_shared<ErasedHandler>(std::move(erased));
      Process::current().mainQueue().async([this, person, held] {
        (*held)({});
        _queue->async([last = std::move(*held)] {});
      });
    });
  }

 private:
  std::shared_ptr<SerialQueue> _queue;
};

// It may hold a window, which no other thread may touch.
TEST_F(ForgetTest, WhatTheHandlerHoldsEndsOnTheMainQueue) {
  contacts({"Ann"});
  store("Ann#,-");
  world.setPersonalTraces(std::make_shared<TracesOnAQueue>());
  auto a = open();
  std::vector<std::string> heard;
  std::shared_ptr<void> window(nullptr, [&](void*) {
    heard.emplace_back(Process::current().mainQueue().isCurrent() ? "ended on the main queue" : "ended elsewhere");
  });
  forget(*a, guidOf("Ann"), [&heard, held = std::move(window)](const Forgotten&) { heard.emplace_back("forgotten"); });
  rest();
  EXPECT_THAT(heard, ElementsAre("forgotten", "ended on the main queue"));
}

}  // namespace
}  // namespace pellor
