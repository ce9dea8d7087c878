#include "pellor/testing/SimulatedScheduler.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "pellor/runtime/Process.h"

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

}  // namespace
}  // namespace pellor
