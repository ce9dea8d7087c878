#include "testing/SimulatedScheduler.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "runtime/Process.h"
#include "runtime/Timer.h"

namespace pellor {
namespace {

/// The order in which the tasks of two processes run under a seed.
std::string orderUnder(std::uint64_t seed) {
  const auto world = std::make_shared<SimulatedScheduler>(seed);
  Process first(world, nullptr), second(world, nullptr);
  std::string order;
  std::vector<std::shared_ptr<Queue>> queues;
  for (Process* process : {&first, &second}) {
    const Process::Scope scope(*process);
    queues.push_back(SerialQueue::make("serial"));
    queues.push_back(process->mainQueue().shared_from_this());
  }
  for (int i = 0; i < 3; ++i) {
    for (std::size_t q = 0; q < queues.size(); ++q) {
      queues[q]->async([&order, q] { order += static_cast<char>('a' + q); });
    }
  }
  world->runUntilQuiet();
  return order;
}

TEST(SimulatedSchedulerTest, aSeedDecidesTheOrderAndNothingElse) {
  std::set<std::string> orders;
  for (std::uint64_t seed = 0; seed < 200; ++seed) {
    EXPECT_EQ(orderUnder(seed), orderUnder(seed));
    orders.insert(orderUnder(seed));
  }
  EXPECT_GT(orders.size(), 150U);  // of 369,600
}

TEST(SimulatedSchedulerTest, twoReadyTasksRunInEitherOrder) {
  int firstWas[2] = {0, 0};
  for (std::uint64_t seed = 0; seed < 200; ++seed) {
    Process process(std::make_shared<SimulatedScheduler>(seed), nullptr);
    int first = -1;
    const auto queue = SerialQueue::make("pool");
    queue->async([&] { first = first < 0 ? 0 : first; });
    process.mainQueue().async([&] { first = first < 0 ? 1 : first; });
    EXPECT_TRUE(process.settle(1));
    ++firstWas[first];
  }
  EXPECT_GT(firstWas[0], 60);
  EXPECT_GT(firstWas[1], 60);
}

TEST(SimulatedSchedulerTest, timeMovesOnlyWhenNothingIsReady) {
  const auto world = std::make_shared<SimulatedScheduler>(1);
  Process process(world, nullptr);
  EXPECT_EQ(process.now(), 700'000'000);
  EXPECT_FALSE(world->step());
  int fired = 0;
  const auto timer = Timer::after(process.mainQueue(), 2.5, [&] { ++fired; });
  process.mainQueue().async([] {});
  world->runUntilQuiet();
  EXPECT_EQ(process.now(), 700'000'000);
  EXPECT_TRUE(world->step());  // moves time
  EXPECT_EQ(process.now(), 700'000'002.5);
  EXPECT_EQ(fired, 0);
  EXPECT_TRUE(world->step());  // runs the handler
  EXPECT_EQ(fired, 1);
  EXPECT_FALSE(world->step());
}

TEST(SimulatedSchedulerTest, runUntilStopsAtThePredicateOrAtItsLimit) {
  const auto world = std::make_shared<SimulatedScheduler>(1);
  Process process(world, nullptr);
  int ticks = 0;
  std::shared_ptr<Timer> timer = Timer::make(process.mainQueue(), [&] {
    ++ticks;
    timer->fireAt(process.now() + 1);
  });
  timer->fireAt(process.now() + 1);
  EXPECT_TRUE(world->runUntil([&] { return ticks == 3; }, 10));
  EXPECT_EQ(process.now(), 700'000'003);
  EXPECT_FALSE(world->runUntil([&] { return ticks == 30; }, 10.5));
  EXPECT_EQ(process.now(), 700'000'013.5);
  EXPECT_EQ(ticks, 13);
}

TEST(SimulatedSchedulerTest, settleOfOneProcessRunsTheOthersThatItWaitsFor) {
  const auto world = std::make_shared<SimulatedScheduler>(1);
  Process first(world, nullptr), second(world, nullptr);
  std::string path;
  first.mainQueue().async([&] {
    path += "first ";
    second.mainQueue().async([&] {
      path += "second ";
      first.mainQueue().async([&] { path += "first again"; });
    });
    world->runUntil([&] { return path == "first second first again"; }, 1);
  });
  EXPECT_TRUE(first.settle(1));
  EXPECT_EQ(path, "first second first again");
}

TEST(SimulatedSchedulerTest, anAbandonedProcessLeavesTheWorldToTheOthers) {
  const auto world = std::make_shared<SimulatedScheduler>(1);
  Process survivor(world, nullptr);
  auto victim = std::make_unique<Process>(world, nullptr);
  std::vector<std::shared_ptr<Timer>> timers;
  timers.push_back(Timer::after(victim->mainQueue(), 1, [] { ADD_FAILURE() << "a timer of the dead"; }));
  victim->mainQueue().async([] { ADD_FAILURE() << "a task of the dead"; });
  bool isKilled = false;
  // Killed from inside a task of another process, as by a test's own fault.
  timers.push_back(Timer::after(survivor.mainQueue(), 0.5, [&] { isKilled = true; }));
  survivor.mainQueue().async([&] {
    victim->abandon();
    victim.reset();
  });
  {
    const Process::Scope scope(survivor);
    survivor.mainQueue().drain();
  }
  world->advance(2);
  EXPECT_TRUE(isKilled);
}

TEST(SimulatedSchedulerDeathTest, aWorldThatNeverRestsOrNeverWakesEndsWithItsSeed) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto world = std::make_shared<SimulatedScheduler>(42, 1000);
  Process process(world, nullptr);
  std::function<void()> again = [&] { process.mainQueue().async(again); };
  EXPECT_DEATH((again(), process.settle(1)), "expected a world that comes to rest within 1000 steps .seed 42.");
  EXPECT_DEATH(process.mainQueue().run(), "expected a task or a timer to wait for .seed 42.");
}

}  // namespace
}  // namespace pellor
