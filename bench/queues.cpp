// Queues: posts to the main queue, and reads on a concurrent queue, beside what they would cost by hand.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <shared_mutex>
#include <thread>

#include "pellor/runtime/Process.h"
#include "pellor/runtime/Queue.h"

namespace pellor::bench {
namespace {

constexpr int Trips = 500;
constexpr int Burst = 1'000;

void postAndBack(benchmark::State& state) {
  Process process;
  const Process::Scope scope(process);
  const auto queue = SerialQueue::make("bench");
  MainQueue& mainQueue = process.mainQueue();
  while (state.KeepRunningBatch(Trips)) {
    int left = Trips;
    std::function<void()> out;
    const Task back = [&] { --left > 0 ? out() : mainQueue.stop(); };
    out = [&] { queue->async([&] { mainQueue.async(back); }); };
    out();
    mainQueue.run();
  }
}
BENCHMARK(postAndBack)->MinTime(0.1)->UseRealTime();

void postInBurst(benchmark::State& state) {
  Process process;
  const Process::Scope scope(process);
  MainQueue& mainQueue = process.mainQueue();
  int count = 0;
  while (state.KeepRunningBatch(Burst)) {
    for (int post = 0; post < Burst; ++post) mainQueue.async([&count] { ++count; });
    while (mainQueue.drain()) {
    }
  }
  benchmark::DoNotOptimize(count);
}
BENCHMARK(postInBurst)->MinTime(0.05)->UseRealTime();

/// The yardstick: a queue as one writes it down.
class PlainQueue {
 public:
  void post(Task task) {
    {
      const std::lock_guard lock(_mutex);
      _tasks.push_back(std::move(task));
    }
    _condition.notify_one();
  }

  void runNext() {
    Task task;
    {
      std::unique_lock lock(_mutex);
      _condition.wait(lock, [this] { return !_tasks.empty(); });
      task = std::move(_tasks.front());
      _tasks.pop_front();
    }
    task();
  }

 private:
  std::mutex _mutex;
  std::condition_variable _condition;
  std::deque<Task> _tasks;
};

void plainPostAndBack(benchmark::State& state) {
  PlainQueue here, there;
  bool isDone = false;
  std::thread other([&] {
    while (!isDone) there.runNext();
  });
  while (state.KeepRunningBatch(Trips)) {
    for (int trip = 0; trip < Trips; ++trip) {
      there.post([&here] { here.post([] {}); });
      here.runNext();
    }
  }
  there.post([&isDone] { isDone = true; });
  other.join();
}
BENCHMARK(plainPostAndBack)->MinTime(0.1)->UseRealTime();

void plainPostInBurst(benchmark::State& state) {
  PlainQueue queue;
  int count = 0;
  while (state.KeepRunningBatch(Burst)) {
    for (int post = 0; post < Burst; ++post) queue.post([&count] { ++count; });
    for (int post = 0; post < Burst; ++post) queue.runNext();
  }
  benchmark::DoNotOptimize(count);
}
BENCHMARK(plainPostInBurst)->MinTime(0.05)->UseRealTime();

long threadSwitches() {
  rusage usage{};
  ::getrusage(RUSAGE_THREAD, &usage);
  return usage.ru_nvcsw;
}

void readOnIdleQueue(benchmark::State& state) {
  Process process;
  const Process::Scope scope(process);
  const auto queue = ConcurrentQueue::make("bench");
  const int value = 7;
  const long before = threadSwitches();
  for (auto _ : state) {
    int read = 0;
    queue->sync([&] { read = value; });
    benchmark::DoNotOptimize(read);
  }
  state.counters["switches"] = static_cast<double>(threadSwitches() - before);
}
BENCHMARK(readOnIdleQueue)->MinTime(0.05);

void readUnderSharedMutex(benchmark::State& state) {
  std::shared_mutex mutex;
  const int value = 7;
  for (auto _ : state) {
    const std::shared_lock lock(mutex);
    int read = value;
    benchmark::DoNotOptimize(read);
  }
}
BENCHMARK(readUnderSharedMutex)->MinTime(0.05);

}  // namespace
}  // namespace pellor::bench
