#include "pellor/runtime/Timer.h"

#include <atomic>
#include <latch>
#include <limits>
#include <memory>
#include <thread>
#include <vector>

#include "tests/runtime/BothSchedulers.h"

namespace pellor {
namespace {

class TimerTest : public BothSchedulers {
 protected:
  std::vector<std::shared_ptr<Queue>> queues() {
    return {SerialQueue::make("serial"), ConcurrentQueue::make("concurrent"), process->mainQueue().shared_from_this()};
  }
  void runUntilStopped() { process->mainQueue().run(); }
};
INSTANTIATE_TEST_SUITE_P(Schedulers, TimerTest, bothSchedulers(), schedulerName);

TEST_P(TimerTest, FiresOnceOnItsQueueNotBeforeItsTime) {
  for (const auto& queue : queues()) {
    std::atomic<int> fired = 0;
    const double due = process->now() + 0.002;
    std::shared_ptr<Timer> timer = Timer::make(*queue, [&] {
      EXPECT_TRUE(queue->isCurrent());
      EXPECT_GE(process->now(), due);
      EXPECT_FALSE(timer->isValid());
      ++fired;
      process->mainQueue().stop();
    });
    EXPECT_FALSE(timer->isValid());
    timer->fireAt(due + 3600);
    EXPECT_TRUE(timer->isValid());
    timer->fireAt(due);
    runUntilStopped();
    EXPECT_TRUE(settle());
    EXPECT_EQ(fired, 1) << queue->label();
  }
}

TEST_P(TimerTest, ATimeThatHasPassedFiresWhenTheQueueIsFreeAndNeverInsideTheCall) {
  const std::vector<double> times{0, process->now(), -std::numeric_limits<double>::infinity(),
                                  std::numeric_limits<double>::quiet_NaN()};
  for (const double time : times) {
    int fired = 0;
    process->mainQueue().async([&] { EXPECT_EQ(fired, 0); });
    const auto timer = Timer::make(process->mainQueue(), [&] { ++fired; });
    timer->fireAt(time);
    EXPECT_EQ(fired, 0);
    EXPECT_TRUE(timer->isValid());
    EXPECT_TRUE(settle());  // the firing is a task: settle waits for it
    EXPECT_EQ(fired, 1) << time;
  }
}

// A firing is queued at once because its time has passed; what ends it comes before the task runs.
TEST_P(TimerTest, AFiringThatIsQueuedEndsWithTheTimer) {
  std::vector<std::string> fired;
  MainQueue& queue = process->mainQueue();
  const auto cancelled = Timer::after(queue, -1, [&] { fired.push_back("cancelled"); });
  auto dropped = Timer::after(queue, -1, [&] { fired.push_back("dropped"); });
  const auto setAgain = Timer::after(queue, -1, [&] { fired.push_back("set again"); });
  const auto setLater = Timer::after(queue, -1, [&] { fired.push_back("set later"); });
  const auto setAfterCancel = Timer::make(queue, [&] { fired.push_back("set after cancel"); });
  cancelled->cancel();
  dropped.reset();
  setAgain->fireAt(0);
  setLater->fireAt(process->now() + 3600);
  setAfterCancel->cancel();
  setAfterCancel->fireAt(0);
  EXPECT_FALSE(cancelled->isValid());
  EXPECT_FALSE(setAfterCancel->isValid());
  EXPECT_TRUE(settle());
  EXPECT_EQ(fired, std::vector<std::string>{"set again"});
  EXPECT_TRUE(setLater->isValid());
}

TEST(ThreadedTimerTest, TimersAndLimitsRunSteadilyWhateverIsDoneToTheWallClock) {
  for (const double shift : {-3600.0, 3600.0}) {
    std::atomic<double> wallClock = 700'000'000;
    Process process(std::make_shared<ThreadedScheduler>([&] { return wallClock.load(); }), nullptr);
    const auto pool = SerialQueue::make("pool");
    MainQueue& mainQueue = process.mainQueue();
    std::latch firedInPool(1);
    bool hasFired = false;
    const auto far = Timer::after(*pool, 3000, [] { ADD_FAILURE() << "fired too early"; });
    const auto farOnMain = Timer::after(mainQueue, 3000, [] { ADD_FAILURE() << "fired too early"; });
    const auto near = Timer::after(*pool, 0.002, [&] { firedInPool.count_down(); });
    const auto nearOnMain = Timer::after(mainQueue, 0.002, [&] { hasFired = true; });
    wallClock = wallClock + shift;
    mainQueue.asyncAfter(0.004, [&] { mainQueue.stop(); });
    mainQueue.run();
    EXPECT_TRUE(hasFired);
    firedInPool.wait();
    EXPECT_TRUE(far->isValid());
    EXPECT_TRUE(farOnMain->isValid());
  }
}

TEST(ThreadedTimerTest, CancelMayRaceWithTheFiring) {
  Process process;
  const auto queue = SerialQueue::make("test");
  for (int i = 0; i < 200; ++i) {
    std::atomic<bool> isCancelled = false;
    const auto timer = Timer::make(*queue, [&] { EXPECT_FALSE(isCancelled); });
    timer->fireAt(process.now() + (i % 4) * 1e-5);
    queue->async([&] {
      timer->cancel();
      isCancelled = true;
    });
    ASSERT_TRUE(process.settle(LongTime));
  }
  for (int i = 0; i < 200; ++i) {
    const auto timer = Timer::make(*queue, [] {});
    std::thread other([&] { timer->cancel(); });
    timer->fireAt(process.now() + 1e-5);
    other.join();
    EXPECT_FALSE(timer->isValid());
  }
}

// Each timer fires while a worker waits for it: the only one, which was to keep time, and then the one that set it.
TEST(ThreadedTimerTest, ABusyPoolStillKeepsTime) {
  Process process;
  const auto busy = SerialQueue::make("busy");
  const auto other = SerialQueue::make("other");
  other->async([] {});
  ASSERT_TRUE(process.settle(LongTime));
  std::latch firedFirst(1), fired(1);
  auto timer = Timer::after(*other, 0.01, [&] { firedFirst.count_down(); });
  busy->async([&] { firedFirst.wait(); });
  ASSERT_TRUE(process.settle(LongTime));
  busy->async([&] {
    timer = Timer::after(*other, 0.001, [&] { fired.count_down(); });
    fired.wait();
  });
  EXPECT_TRUE(process.settle(LongTime));
}

}  // namespace
}  // namespace pellor
