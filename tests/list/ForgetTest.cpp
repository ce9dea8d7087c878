// Somebody who is forgotten: nothing that tells of him is left in the store.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "pellor/runtime/Queue.h"
#include "pellor/testing/InMemoryTraces.h"
#include "tests/list/ForgetWorld.h"

namespace pellor {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using enum RefusalReason;

class ForgetTest : public ForgetWorld {
 protected:
  ForgetTest() {
    setGroups(4, 3);
    contacts({"Ann", "Bob", "Cy"});
    store("Ann#,Bob#,Cy#|-,-,-");
    a = open();
    b = open();
  }
  /// Makes Bob a friend, where he is none, who carries something of all kinds.
  void carryBob() const {
    a->apply("contact Bob");
    a->apply(carrying("Bob"));
  }
  std::unique_ptr<ListProcess> a, b;
};

TEST_F(ForgetTest, NothingInTheStoreTellsOfHimAndWhatTellsOfOthersStays) {
  for (const std::string& step : {carrying("Bob"), std::string("move Bob 1:3"), std::string("reply Cy text"),
                                  std::string("reply Bob;title 1 Home")})
    a->apply(step);
  rest();
  EXPECT_THAT(everythingStored(), AllOf(HasSubstr(secretOf("Bob")), HasSubstr(fingerprintOf("Bob"))));

  std::vector<std::optional<Refusal>> told;
  const FriendId bob = b->idNamed("Bob");
  const ForgetAnswer answer =
      b->run([&] { return b->list().forget(bob, [&](const auto& each) { told.push_back(each.refusal); }); });
  ASSERT_TRUE(answer);
  EXPECT_THAT(answer.guids, ElementsAre("guid-Bob"));
  EXPECT_THAT(answer.destinations, ElementsAre("bob@example.org"));
  EXPECT_THAT(told, IsEmpty());
  rest();
  EXPECT_THAT(told, ElementsAre(std::nullopt));
  expectNoTraceOf("Bob");
  for (ListProcess* process : {a.get(), b.get()}) {
    EXPECT_FALSE(process->friendNamed("Bob"));
    EXPECT_THAT(process->told(), ElementsAre("own Cy >1", "own Cy ~1", "own pages 1", "own -1"))
        << "the step that told of him alone is gone, and who changed places with him is named";
    EXPECT_FALSE(process->history()[3].isUndoable);
    EXPECT_EQ(process->undo().refusal, (Refusal{notUndoable}));
  }
  EXPECT_TRUE(a->undo(a->history()[0].id));
  EXPECT_EQ(a->process().list(), "Ann,-,Cy|-,-,-");
  // As if he had never been there, in the process that had him too.
  EXPECT_FALSE(a->apply("contact Bob").results.at(0).restored);
  EXPECT_EQ(a->friendNamed("Bob")->replyAs, std::nullopt);
  EXPECT_EQ(a->friendNamed("Bob")->metadata, Dictionary());
}

TEST_F(ForgetTest, SomebodyWhoIsNoFriendAnyMoreIsForgottenByGUIDOrAddress) {
  for (const std::string& who : {guidOf("Bob"), mailOf("Bob"), std::string("mailto:bob@example.org")}) {
    SCOPED_TRACE(who);
    carryBob();
    a->apply("remove Bob");
    rest();
    EXPECT_THAT(everythingStored(), HasSubstr(secretOf("Bob")));
    a->kill();
    a = open();
    const std::size_t steps = b->history().size();
    EXPECT_TRUE(b->forget(who));
    rest();
    expectNoTraceOf("Bob");
    EXPECT_LT(a->history().size(), steps) << "no step says that somebody left";
    EXPECT_EQ(b->forget(who).refusal, (Refusal{notFound}));
  }
}

// Of a copy that was made before, and of whom the platform alone knows still.
TEST_F(ForgetTest, CopiesTellNothingOfHimOnceTheHandlerIsCalled) {
  const auto traces = std::make_shared<InMemoryTraces>();
  world.setPersonalTraces(traces);
  carryBob();
  a->apply("title 1 Bob's-page; move Cy 2:1");
  a->apply("remove Bob");
  carryBob();
  rest();
  const Dictionary copy = valuesStored();
  traces->addCopy(copy);
  traces->setKept(KeptTrace{"a server", "it is another one's"});
  auto c = open();
  const ForgetAnswer plan = c->run([&] { return c->list().planForget("bob@example.org"); });
  EXPECT_THAT(plan.found, ElementsAre("a copy"));
  EXPECT_THAT(plan.names, ElementsAre("Bob"));
  EXPECT_TRUE(plan.isInHistory);
  EXPECT_EQ(plan.friends, std::vector{c->idNamed("Bob")});
  EXPECT_EQ(valuesStored(), copy) << "a plan changes nothing";

  std::vector<Forgotten> told;
  c->forget("guid-Bob", [&](const Forgotten& each) {
    EXPECT_THAT(textOf(traces->copies()[0]), Not(HasSubstr(secretOf("Bob"))));
    told.push_back(each);
  });
  EXPECT_EQ(traces->copies()[0], copy) << "not before the step is stored";
  rest();
  ASSERT_EQ(told.size(), 1U);
  EXPECT_THAT(told[0].erased, ElementsAre("a copy"));
  EXPECT_THAT(told[0].kept, ElementsAre(KeptTrace{"a server", "it is another one's"}));
  expectNoTraceOf("Bob", textOf(traces->copies()[0]));
  EXPECT_THAT(textOf(traces->copies()[0]), AllOf(HasSubstr(guidOf("Cy")), HasSubstr("Bob's-page")));
  const LongArray list = *traces->copies()[0].at(std::string(PLFriendListKey)).longArray();
  EXPECT_EQ(list.size(), copy.at(std::string(PLFriendListKey)).longArray()->size()) << "his slot is empty";

  // A program was killed before the copies were done: nobody but these knows him any more.
  traces->addCopy(copy);
  traces->setKept(std::nullopt);
  c->forget("bob@example.org");
  rest();
  expectNoTraceOf("Bob", textOf(traces->copies()[1]));
  c->forget("bob@example.org", [&](const Forgotten& each) { told.push_back(each); });
  rest();
  EXPECT_EQ(told.back().refusal, (Refusal{notFound}));
}

TEST_F(ForgetTest, AFriendWithTheSameLineStays) {
  world.addressBook().add({.guid = "guid-Dan", .first = "Dan", .emails = {{"home", "bob@example.org"}}});
  rest();
  for (const std::string& step : {std::string("contact Dan"), carrying("Bob"), std::string("reply Dan kept")})
    a->apply(step);
  rest();
  ASSERT_TRUE(b->run([&] { return b->list().forget(b->idNamed("Bob")); }));
  rest();
  EXPECT_TRUE(a->friendNamed("Dan"));
  EXPECT_FALSE(a->friendNamed("Bob"));
  EXPECT_THAT(everythingStored(), AllOf(Not(HasSubstr(secretOf("Bob"))), Not(HasSubstr(guidOf("Bob")))));
  EXPECT_THAT(a->told(), ElementsAre("own Dan +1 pages 1", "own Dan ~1", "own -1"));
  // By the line both go.
  EXPECT_TRUE(a->forget("bob@example.org"));
  rest();
  EXPECT_FALSE(b->friendNamed("Dan"));
  EXPECT_THAT(everythingStored(), Not(HasSubstr("bob@example.org")));
}

TEST_F(ForgetTest, WhoIsLinkedWithAnotherContactSinceIsForgottenUnderBoth) {
  a->apply(carrying("Bob"));
  rest();
  world.addressBook().remove("guid-Bob");
  world.addressBook().add({.guid = "guid-New", .first = "Bob", .emails = {{"home", "bob@example.org"}}});
  rest();
  ASSERT_TRUE(a->friendNamed("New"));
  a->apply("reply Bob new");
  rest();
  EXPECT_TRUE(b->forget("guid-New"));
  rest();
  expectNoTraceOf("Bob");
  EXPECT_THAT(everythingStored(), Not(HasSubstr("guid-New")));
}

TEST_F(ForgetTest, AProcessThatDiesFirstHasForgottenNothing) {
  a->apply(carrying("Bob"));
  rest();
  const std::string before = everythingStored();
  world.preferences().failWrites();
  std::vector<std::optional<Refusal>> told;
  a->forget("guid-Bob", [&](const auto& each) { told.push_back(each.refusal); });
  a->kill();
  world.preferences().failWrites(0);
  rest();
  EXPECT_THAT(told, ElementsAre(Refusal{abandoned}));
  EXPECT_EQ(everythingStored(), before);
  EXPECT_EQ(b->friendNamed("Bob")->replyAs, secretOf("Bob"));
}

// Another process tells of him in the moment in which he is forgotten.
TEST_F(ForgetTest, WhatAnotherProcessToldOfHimMeanwhileGoesToo) {
  for (const std::string& edits : {carrying("Bob"), std::string("move Bob 1:1"),
                                   "meta Bob key " + secretOf("Bob") + ";remove Bob", std::string("drop 1")}) {
    for (const bool isFirst : {true, false}) {
      SCOPED_TRACE(edits + (isFirst ? ", first" : ", second"));
      for (const char* name : {"Ann", "Cy"}) a->apply(std::string("contact ") + name);
      carryBob();
      rest();
      if (isFirst) {
        EXPECT_TRUE(b->apply(edits));
        advance(0.001);
      }
      EXPECT_TRUE(a->forget("guid-Bob"));
      if (!isFirst) {
        EXPECT_TRUE(b->apply(edits));
      }
      rest();
      expectNoTraceOf("Bob");
      EXPECT_FALSE(a->friendNamed("Bob"));
      EXPECT_FALSE(b->friendNamed("Bob"));
    }
  }
}

// Who is no friend any more, of whom another process takes a step back in that moment.
TEST_F(ForgetTest, AStepThatIsTakenBackMeanwhileTellsNothingOfHimAfterwards) {
  for (const bool isFirst : {true, false}) {
    SCOPED_TRACE(isFirst ? "taken back first" : "forgotten first");
    carryBob();
    a->apply(std::string("reply Bob;move Cy ") + (isFirst ? "2:1" : "2:2"));
    const std::string both = a->history().back().id;
    a->apply("remove Bob");
    rest();
    if (isFirst) {
      EXPECT_TRUE(b->undo(both));
      advance(0.05);
    }
    EXPECT_TRUE(a->forget("guid-Bob"));
    if (!isFirst) {
      advance(0.05);
      EXPECT_TRUE(b->undo(both));
    }
    rest();
    expectNoTraceOf("Bob");
    EXPECT_EQ(b->process().list(), a->process().list());
  }
}

// What became of the friend is told by both: nothing says that the friend is to be forgotten.
TEST_F(ForgetTest, AStepThatTwoTakeBackAtOnceCanBeDoneAgainAndBeForgotten) {
  a->apply("remove Bob");
  a->clearHistory();
  a->apply("contact Bob");
  const std::string added = a->history().back().id;
  a->apply("move Cy 2:1");
  rest();
  for (ListProcess* process : {a.get(), b.get()}) EXPECT_TRUE(process->undo(added));
  rest();
  for (ListProcess* process : {a.get(), b.get()})
    EXPECT_EQ(process->run([&] { return process->list().planRedo(); }).step.value_or(HistoryStep()).id, added);
  EXPECT_TRUE(a->forget("bob@example.org"));
  rest();
  expectNoTraceOf("Bob");
}

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
  world.setPersonalTraces(std::make_shared<TracesOnAQueue>());
  auto c = open();
  std::vector<std::string> heard;
  std::shared_ptr<void> window(nullptr, [&](void*) {
    heard.emplace_back(Process::current().mainQueue().isCurrent() ? "ended on the main queue" : "ended elsewhere");
  });
  c->forget(guidOf("Ann"), [&heard, held = std::move(window)](const Forgotten&) { heard.emplace_back("forgotten"); });
  rest();
  EXPECT_THAT(heard, ElementsAre("forgotten", "ended on the main queue"));
}

}  // namespace
}  // namespace pellor
