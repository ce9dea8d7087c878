#include "pellor/runtime/MainQueue.h"

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "pellor/runtime/Timer.h"
#include "tests/runtime/BothSchedulers.h"

namespace pellor {
namespace {

class MainQueueTest : public BothSchedulers {
 protected:
  void note(std::string text) { notes.push_back(std::move(text)); }

  MainQueue& queue = process->mainQueue();
  std::vector<std::string> notes;
};
INSTANTIATE_TEST_SUITE_P(Schedulers, MainQueueTest, bothSchedulers(), schedulerName);

TEST_P(MainQueueTest, DrainRunsWhatWasQueuedAtItsEntryAndMayBeNested) {
  queue.async([&] {
    note("outer");
    queue.async([&] { note("queued by outer"); });
    EXPECT_FALSE(queue.drain());
    queue.async([&] { note("after the inner drain"); });
  });
  queue.async([&] { note("next"); });
  EXPECT_TRUE(queue.drain());
  EXPECT_EQ(notes, (std::vector<std::string>{"outer", "next", "queued by outer"}));
  EXPECT_FALSE(queue.drain());
  EXPECT_EQ(notes.back(), "after the inner drain");
}

TEST_P(MainQueueTest, DrainRunsTimersThatAreDue) {
  const double due = process->now() + 0.001;
  const auto timer = Timer::make(queue, [&] { note("timer"); });
  const auto later = Timer::make(queue, [&] { note("later"); });
  later->fireAt(due + 3600);
  later->fireAt(due + 7200);
  timer->fireAt(due);
  EXPECT_EQ(queue.nextDeadline(), due);
  if (isThreaded()) {
    while (process->now() < due) std::this_thread::yield();
  } else {
    // Time is moved from a task, so that nothing but the drain can serve the timer.
    const auto pool = SerialQueue::make("pool");
    const auto alarm = Timer::after(*pool, 0.001, [] {});
    static_cast<SimulatedScheduler&>(*scheduler).step();
  }
  EXPECT_FALSE(queue.drain());
  EXPECT_EQ(notes, std::vector<std::string>{"timer"});
  EXPECT_EQ(queue.nextDeadline(), due + 7200);
  later->cancel();
  EXPECT_EQ(queue.nextDeadline(), std::nullopt);
}

TEST_P(MainQueueTest, TheWakeHandlerTellsOfWorkForAnEmptyQueueAndOfEarlierTimers) {
  int wakes = 0;
  queue.setWakeHandler([&] {
    ++wakes;
    queue.nextDeadline();  // takes the lock that must not be held
  });
  EXPECT_EQ(wakes, 0);
  queue.async([&] { queue.async([] {}); });
  EXPECT_EQ(wakes, 1);
  queue.async([] {});
  queue.drain();
  EXPECT_EQ(wakes, 1) << "woken for a queue that was not empty";
  const auto first = Timer::after(queue, 100, [] {});
  EXPECT_EQ(wakes, 2);
  const auto later = Timer::after(queue, 200, [] {});
  EXPECT_EQ(wakes, 2) << "woken for a later timer";
  const auto earlier = Timer::after(queue, 50, [] {});
  EXPECT_EQ(wakes, 3);
  queue.setWakeHandler(nullptr);
  queue.async([] {});
  EXPECT_EQ(wakes, 3);
  queue.setWakeHandler([&] { ++wakes; });
  EXPECT_EQ(wakes, 4) << "not told of work that was waiting";
}

TEST_P(MainQueueTest, RunServesUntilStopped) {
  queue.stop();
  queue.async([&] { note("task"); });
  queue.run();
  EXPECT_TRUE(notes.empty()) << "a stop before the run was lost";
  queue.async([&] {
    queue.stop();
    queue.async([&] { note("after stop"); });
  });
  queue.async([&] { note("before stop"); });
  queue.run();
  EXPECT_EQ(notes, std::vector<std::string>{"task"});
  EXPECT_TRUE(settle());
  EXPECT_EQ(notes, (std::vector<std::string>{"task", "before stop", "after stop"}));
}

TEST(ThreadedMainQueueTest, AnEventLoopOfAnyKindCanDriveIt) {
  Process process;
  MainQueue& queue = process.mainQueue();
  std::atomic<int> wakes = 0;
  queue.setWakeHandler([&] {
    ++wakes;
    wakes.notify_one();
  });
  constexpr int count = 2000;
  int ran = 0;
  std::thread poster([&] {
    for (int i = 0; i < count; ++i) queue.async([&] { ++ran; });
  });
  while (ran < count) {
    wakes.wait(0);
    wakes = 0;
    while (queue.drain()) {
    }
  }
  poster.join();
  queue.setWakeHandler(nullptr);
}

TEST(MainQueueDeathTest, IsUsedOnItsOwnThreadAndNotNested) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  Process process;
  EXPECT_DEATH(std::thread([&] { process.mainQueue().drain(); }).join(),
               "pellor: fatal: expected MainQueue::drain to be called on the main queue");
  EXPECT_DEATH((process.mainQueue().async([&] { process.mainQueue().run(); }), process.mainQueue().run()),
               "expected MainQueue::run to be called outside of itself");
}

}  // namespace
}  // namespace pellor
