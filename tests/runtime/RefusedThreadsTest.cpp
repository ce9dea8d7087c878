// The worker pool where the system gives it no more threads.
#include "tests/linux/RefusedThreads.h"

#include <optional>

#include "runtime/Process.h"
#include "runtime/Timer.h"
#include "tests/linux/ServedProcesses.h"

namespace pellor {
namespace {

TEST(RefusedThreadsTest, OneWorkerDoesTheWorkOfAll) {
  ChildProcess child([](const ChildProcess::Report&) {
    ServedProcesses processes;
    Process& process = processes.at(0);
    const Process::Scope scope(process);
    int done = 0;
    const auto first = SerialQueue::make("first"), second = SerialQueue::make("second");
    const auto arrive = [&] { process.mainQueue().async([&] { ++done; }); };
    std::optional<RefusedThreads> refused;
    first->async([&] {
      refused.emplace();  // the worker of this task stays alone
      second->async([&] { first->async(arrive); });
      ConcurrentQueue::make("third")->async([&] { second->async(arrive); });
    });
    const auto timer = Timer::after(*second, 0.001, arrive);
    return processes.runUntil([&] { return done == 3; }) ? 0 : 1;
  });
  EXPECT_EQ(child.exitCode(), 0);
}

}  // namespace
}  // namespace pellor
