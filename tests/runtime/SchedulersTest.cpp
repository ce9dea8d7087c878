// The schedulers of tests and programs: the one that a seed rules, and the pool to which the system gives no threads.
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "pellor/runtime/Process.h"
#include "pellor/runtime/Timer.h"
#include "pellor/testing/SimulatedScheduler.h"
#include "tests/linux/RefusedThreads.h"
#include "tests/linux/ServedProcesses.h"

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

TEST(SimulatedSchedulerTest, ASeedDecidesTheOrderAndNothingElse) {
  std::set<std::string> orders;
  for (std::uint64_t seed = 0; seed < 200; ++seed) {
    EXPECT_EQ(orderUnder(seed), orderUnder(seed));
    orders.insert(orderUnder(seed));
  }
  EXPECT_GT(orders.size(), 150U);  // of 369,600
}

TEST(RefusedThreadsTest, OneWorkerDoesTheWorkOfAll) {
  ChildProcess child([](const ChildProcess::Report&) noexcept {
    ServedProcesses processes;
    Process& process = processes.at(0);
    const Process::Scope scope(process);
    int done = 0;
    const auto first = SerialQueue::make("first"), second = SerialQueue::make("second");
    const auto arrive = [&] { process.mainQueue().async([&] { ++done; }); };
    std::optional<RefusedThreads> refused;
    std::shared_ptr<Timer> timer;
    first->async([&] {
      refused.emplace();  // the worker of this task stays alone
      second->async([&] { first->async(arrive); });
      ConcurrentQueue::make("third")->async([&] { second->async(arrive); });
      timer = Timer::after(*second, 0.001, arrive);
    });
    const bool isDone = processes.runUntil([&] { return done == 3; });
    return isDone && !testing::Test::HasFailure() ? 0 : 1;
  });
  EXPECT_EQ(child.exitCode(), 0);
}

}  // namespace

}  // namespace pellor
