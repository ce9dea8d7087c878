// The worker pool where the system gives it no more threads.
#include "tests/linux/RefusedThreads.h"

#include <memory>
#include <optional>

#include "pellor/runtime/Process.h"
#include "pellor/runtime/Timer.h"
#include "tests/linux/ServedProcesses.h"

namespace pellor {
namespace {

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
