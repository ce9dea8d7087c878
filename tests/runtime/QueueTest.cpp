#include "pellor/runtime/Queue.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <latch>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "pellor/runtime/Timer.h"
#include "tests/runtime/BothSchedulers.h"

namespace pellor {
namespace {

using namespace std::chrono_literals;

class QueueTest : public BothSchedulers {};
INSTANTIATE_TEST_SUITE_P(Schedulers, QueueTest, bothSchedulers(), schedulerName);

// The records are written without a lock: under ThreadSanitizer this also proves that a task happens before the next.
TEST_P(QueueTest, SerialTasksRunOneAtATimeInTheOrderInWhichTheyWereQueued) {
  constexpr int count = 500;
  std::vector<std::shared_ptr<SerialQueue>> queues;
  std::vector<std::vector<int>> records(3);
  for (int i = 0; i < 3; ++i) queues.push_back(SerialQueue::make("test"));
  for (int i = 0; i < count; ++i) {
    for (std::size_t q = 0; q < queues.size(); ++q) queues[q]->async([&records, q, i] { records[q].push_back(i); });
  }
  ASSERT_TRUE(settle());
  for (const auto& record : records) {
    ASSERT_EQ(record.size(), count);
    EXPECT_TRUE(std::ranges::is_sorted(record));
  }
}

TEST_P(QueueTest, TasksNeverRunInsideTheCallAndKnowWhereTheyRun) {
  const auto serial = SerialQueue::make("serial");
  const auto concurrent = ConcurrentQueue::make("concurrent");
  const std::vector<Queue*> queues{serial.get(), concurrent.get(), &process->mainQueue()};
  std::atomic<int> ran = 0;
  const auto check = [&](const Queue* here) {
    for (const Queue* queue : queues) EXPECT_EQ(queue->isCurrent(), queue == here) << queue->label();
    EXPECT_EQ(&Process::current(), process.get());
    ++ran;
  };
  for (Queue* queue : queues) {
    thread_local bool isInsideCall = false;
    isInsideCall = true;
    queue->async([&check, queue] {
      EXPECT_FALSE(isInsideCall);
      check(queue);
    });
    isInsideCall = false;
  }
  concurrent->asyncBarrier([&] { check(concurrent.get()); });
  ASSERT_TRUE(settle());
  EXPECT_EQ(ran, 4);
  EXPECT_TRUE(process->mainQueue().isCurrent());
  EXPECT_FALSE(serial->isCurrent());
}

/// Queues a random mix of reads and barriers, reads now and then at once, with a barrier queued meanwhile, and checks
/// in each task that what was queued around it keeps its distance.
class Traffic {
 public:
  explicit Traffic(std::uint32_t seed) : _random(seed) {}

  void queueOn(ConcurrentQueue& queue, int count) {
    for (int i = 0; i < count; ++i) {
      const auto kind = _random() % 8;
      const int barriers = _queuedBarriers;
      if (kind < 3) {
        queueBarrierOn(queue);
        continue;
      }
      ++_queuedReads;
      if (kind == 3) {
        queue.sync([&] { runRead(barriers, [&] { queueBarrierOn(queue); }); });
      } else {
        queue.async([this, barriers] { runRead(barriers); });
      }
    }
  }

  void expectAllRan() const {
    EXPECT_EQ(_readsDone, _queuedReads);
    EXPECT_EQ(_barriersDone, _queuedBarriers);
  }

 private:
  void queueBarrierOn(ConcurrentQueue& queue) {
    const auto barrier = [this, before = _queuedReads] { runBarrier(before); };
    ++_queuedBarriers;
    queue.asyncBarrier(barrier);
  }
  void runBarrier(int readsBefore) {
    EXPECT_EQ(_running.fetch_add(1), 0) << "a barrier ran beside something";
    EXPECT_EQ(_readsDone, readsBefore) << "a barrier and a read changed places";
    ++_barriersDone;  // not atomic: a barrier is alone
    --_running;
  }
  void runRead(
      int barriersBefore, const Task& meanwhile = [] {}) {
    ++_running;
    EXPECT_EQ(_barriersDone, barriersBefore) << "a read and a barrier changed places";
    ++_readsDone;
    meanwhile();
    --_running;
  }

  std::minstd_rand _random;
  int _queuedReads = 0;
  int _queuedBarriers = 0;
  int _barriersDone = 0;
  std::atomic<int> _readsDone = 0;
  std::atomic<int> _running = 0;
};

TEST_P(QueueTest, BarriersRunAloneAndNothingOvertakesThem) {
  for (std::uint32_t seed = 1; seed <= 100; ++seed) {
    process.reset();
    process = std::make_unique<Process>(makeScheduler(GetParam(), seed), nullptr);
    const auto queue = ConcurrentQueue::make("test");
    Traffic traffic(seed);
    traffic.queueOn(*queue, 100);
    ASSERT_TRUE(settle());
    traffic.expectAllRan();
  }
}

/// Occupies the workers of a pool, each until it is released.
class BusyWorkers {
 public:
  BusyWorkers() {
    std::latch blocked(static_cast<int>(_releases.size()));
    for (auto& release : _releases) {
      SerialQueue::make("blocker")->async([&blocked, release] {
        blocked.count_down();
        release->wait();
      });
    }
    blocked.wait();
  }
  ~BusyWorkers() {
    while (!_releases.empty()) releaseOne();
  }

  void releaseOne() {
    _releases.back()->count_down();
    _releases.pop_back();
  }

 private:
  static std::vector<std::shared_ptr<std::latch>> latches() {
    std::vector<std::shared_ptr<std::latch>> latches(std::clamp(std::thread::hardware_concurrency(), 2U, 4U));
    for (auto& latch : latches) latch = std::make_shared<std::latch>(1);
    return latches;
  }

  std::vector<std::shared_ptr<std::latch>> _releases = latches();
};

class ThreadedQueueTest : public testing::Test {
 protected:
  Process process;
};

TEST_F(ThreadedQueueTest, TheWorkerThatKeepsTimeWorksWhenTheOthersAreBusy) {
  const auto queue = SerialQueue::make("test");
  const auto timer = Timer::after(*queue, 3600, [] {});
  for (int i = 0; i < 50; ++i) {
    {
      const BusyWorkers workers;
    }
    ASSERT_TRUE(process.settle(LongTime));
  }
}

TEST_F(ThreadedQueueTest, ASynchronousReadNeedsNoWorker) {
  const BusyWorkers workers;
  const auto queue = ConcurrentQueue::make("test");
  const auto caller = std::this_thread::get_id();
  std::vector<int> order;
  const auto note = [&](int number) {
    EXPECT_EQ(std::this_thread::get_id(), caller);
    EXPECT_TRUE(queue->isCurrent());
    EXPECT_FALSE(process.mainQueue().isCurrent());
    order.push_back(number);
  };
  queue->sync([&] { note(0); });
  queue->asyncBarrier([&] { note(1); });
  queue->async([&] { note(2); });
  queue->asyncBarrier([&] { note(3); });
  queue->sync([&] { note(4); });
  EXPECT_EQ(order, (std::vector{0, 1, 2, 3, 4}));
  EXPECT_TRUE(process.mainQueue().isCurrent());
}

TEST_F(ThreadedQueueTest, ASynchronousReadRunsBesideARunningReaderAndAfterARunningBarrier) {
  const auto queue = ConcurrentQueue::make("test");
  std::latch readerRuns(1), releaseReader(1), barrierRuns(1), releaseBarrier(1);
  queue->async([&] {
    readerRuns.count_down();
    releaseReader.wait();
  });
  readerRuns.wait();
  queue->sync([&] { releaseReader.count_down(); });  // hangs unless it runs beside the reader

  bool isWritten = false;
  queue->asyncBarrier([&] {
    barrierRuns.count_down();
    releaseBarrier.wait();
    isWritten = true;
  });
  barrierRuns.wait();
  std::thread other([&] { queue->sync([&] { EXPECT_TRUE(isWritten); }); });
  releaseBarrier.count_down();
  queue->sync([&] { EXPECT_TRUE(isWritten); });
  other.join();
}

TEST_F(ThreadedQueueTest, EveryThreadReadsItsOwnWrites) {
  constexpr int threadCount = 4, rounds = 300;
  const auto queue = ConcurrentQueue::make("test");
  std::vector<int> counters(threadCount);
  std::vector<std::thread> threads;
  for (std::size_t t = 0; t < threadCount; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 1; i <= rounds; ++i) {
        queue->asyncBarrier([&counters, t] { ++counters[t]; });
        queue->async([&counters] { (void)counters.front(); });
        queue->sync([&] { EXPECT_EQ(counters[t], i); });
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_TRUE(process.settle(LongTime));
  EXPECT_EQ(counters, std::vector<int>(threadCount, rounds));
}

// One worker is free, and each default task asks for the next one and takes 20 ms.
TEST(QualityOfServiceTest, DefaultTasksComeFirstAndUtilityWaitsForALimitedTime) {
  std::atomic<std::chrono::milliseconds> time = 0ms;
  const auto steadyClock = [&] { return std::chrono::steady_clock::time_point(time.load()); };
  Process process(std::make_shared<ThreadedScheduler>(wallClockNow, steadyClock), nullptr);
  const auto utility = SerialQueue::make("utility", QualityOfService::utility);
  const auto other = ConcurrentQueue::make("other utility", QualityOfService::utility);
  const auto byDefault = SerialQueue::make("default");
  std::latch utilityTasks(3);
  std::string order;
  const auto work = [&] {
    order += 'u';
    utilityTasks.count_down();
  };
  const Task demand = [&] {
    order += 'd';
    time = time.load() + 20ms;
    if (!utilityTasks.try_wait() && order.size() < 100) byDefault->async(demand);
  };
  {
    BusyWorkers workers;
    utility->async(work);
    other->asyncBarrier(work);
    utility->async(work);
    byDefault->async(demand);
    workers.releaseOne();
    utilityTasks.wait();
  }
  EXPECT_TRUE(process.settle(LongTime));
  EXPECT_EQ(order, "ddduudddud");
}

using QueueDeathTest = QueueTest;
INSTANTIATE_TEST_SUITE_P(Schedulers, QueueDeathTest, bothSchedulers(), schedulerName);

TEST_P(QueueDeathTest, ASynchronousReadFromATaskOfTheSameQueueIsFatal) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto queue = ConcurrentQueue::make("outer");
  const auto other = ConcurrentQueue::make("other");
  const auto readAgain = [&] { queue->sync([] {}); };
  const char* message = "pellor: fatal: expected a synchronous read from outside the tasks of queue outer";
  EXPECT_DEATH((queue->asyncBarrier(readAgain), settle()), message);
  EXPECT_DEATH((queue->async([&] { other->sync(readAgain); }), settle()), message);
}

TEST_P(QueueDeathTest, WhatAQueueGuardsIsUsedInItsTasksAlone) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto serial = SerialQueue::make("serial");
  const auto concurrent = ConcurrentQueue::make("concurrent");
  const auto write = [&] { concurrent->requireCurrent(); };
  EXPECT_DEATH((serial->async(write), settle()), "expected .* to be called on queue concurrent");
  EXPECT_DEATH((concurrent->asyncBarrier([&] { serial->requireCurrent(); }), settle()), "on queue serial");
  EXPECT_DEATH(concurrent->sync(write), "on queue concurrent") << "a read is no barrier";
  EXPECT_DEATH(concurrent->requireReader(), "on queue concurrent");
}

}  // namespace
}  // namespace pellor
