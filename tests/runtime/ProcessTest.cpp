#include "pellor/runtime/Process.h"

#include <atomic>
#include <latch>
#include <thread>

#include "pellor/runtime/Timer.h"
#include "tests/runtime/BothSchedulers.h"

namespace pellor {
namespace {

struct Participant : SettleParticipant {
  bool isSettled() const override { return settled; }
  bool isWritten() const override { return written; }
  void didSettle() override { ++settles; }

  bool settled = true;
  bool written = true;
  int settles = 0;
};

class SettleTest : public BothSchedulers {
 protected:
  SettleTest() { process->addSettleParticipant(participant); }
  ~SettleTest() override { process->removeSettleParticipant(participant); }

  Participant participant;
};
INSTANTIATE_TEST_SUITE_P(Schedulers, SettleTest, bothSchedulers(), schedulerName);

TEST_P(SettleTest, ServesTimersWhileAParticipantIsNotSettled) {
  participant.settled = false;
  const auto pool = SerialQueue::make("pool");
  std::shared_ptr<Timer> second;
  const auto first = Timer::after(
      *pool, 0.001, [&] { second = Timer::after(process->mainQueue(), 0.001, [&] { participant.settled = true; }); });
  EXPECT_TRUE(settle());
  EXPECT_TRUE(participant.settled);
}

TEST_P(SettleTest, TellsWhatWasNotReached) {
  participant.written = false;
  EXPECT_FALSE(settle());
  participant.written = true;
  participant.settled = false;
  const double before = process->now();
  EXPECT_FALSE(process->settle(0.003));
  EXPECT_GE(process->now(), before + 0.003);
  EXPECT_EQ(participant.settles, 2);
}

TEST_P(SettleTest, MayBeCalledFromATaskAndNested) {
  const auto pool = SerialQueue::make("pool");
  std::atomic<int> ran = 0;
  const auto settleInside = [&](auto& self, int depth) -> void {
    pool->async([&] { ++ran; });
    process->mainQueue().async([&, depth] {
      if (depth > 0) self(self, depth - 1);
      ++ran;
    });
    EXPECT_TRUE(settle());
  };
  process->mainQueue().async([&] {
    settleInside(settleInside, 3);
    EXPECT_EQ(ran, 9);
  });
  process->mainQueue().async([&] { ++ran; });  // waits already when the first settle inside begins
  EXPECT_TRUE(settle());
  EXPECT_EQ(participant.settles, 5);
}

TEST(ThreadedSettleTest, IsWokenThoughASettleInsideItHasReturned) {
  Process process;
  const auto queue = SerialQueue::make("pool");
  for (int i = 0; i < 50; ++i) {
    process.mainQueue().async([&] {
      EXPECT_TRUE(process.settle(LongTime));
      queue->async([] {});
    });
    ASSERT_TRUE(process.settle(LongTime));
  }
}

class EndTest : public BothSchedulers {};
INSTANTIATE_TEST_SUITE_P(Schedulers, EndTest, bothSchedulers(), schedulerName);

TEST_P(EndTest, ANormalEndSettlesAndAnAbandonedProcessDropsItsTasks) {
  std::atomic<int> ran = 0;
  const auto queueEverywhere = [&] {
    SerialQueue::make("serial")->async([&] { ++ran; });
    ConcurrentQueue::make("concurrent")->asyncBarrier([&] { ++ran; });
    process->mainQueue().async([&] { ++ran; });
  };
  queueEverywhere();
  process.reset();
  EXPECT_EQ(ran, 3);

  ran = 0;
  process = std::make_unique<Process>(makeScheduler(GetParam()), nullptr);
  queueEverywhere();
  process->abandon();
  EXPECT_EQ(Process::hasCurrent(), false);
  process.reset();
  EXPECT_LE(ran, 2) << "a task of the main queue ran";  // the pool may have been faster
}

TEST_P(EndTest, HandlesMayOutliveTheProcess) {
  auto queue = SerialQueue::make("serial");
  auto readers = ConcurrentQueue::make("concurrent");
  auto onPool = Timer::after(*queue, 3600, [] {});
  auto onMain = Timer::after(process->mainQueue(), 3600, [queue] {});
  auto observation = process->notificationCenter().addObserver("name", [readers](const Notification&) {});
  // The captures of dropped tasks queue further ones as they are destroyed.
  std::shared_ptr<void> capture(nullptr, [queue](void*) { queue->async([] { ADD_FAILURE() << "ran"; }); });
  process->mainQueue().async([capture = std::move(capture)] {});
  process->abandon();
  process.reset();
  scheduler.reset();
  onMain.reset();
  observation.reset();
  readers.reset();
  queue->async([] { ADD_FAILURE() << "ran after the process"; });
  queue.reset();
  onPool.reset();
}

std::atomic<bool> hasEnded = false;
struct UsedByTask {
  ~UsedByTask() { EXPECT_TRUE(hasEnded) << "destroyed before the task that uses it ended"; }
};

TEST(ThreadedEndTest, DropsWhatHasNotStartedAndWaitsForTheTaskInProgress) {
  const auto scheduler = std::make_shared<ThreadedScheduler>();
  const Process other(scheduler, nullptr);  // keeps the workers from ending
  auto process = std::make_unique<Process>(scheduler, nullptr);
  const Process::Scope scope(*process);
  hasEnded = false;
  process->local<UsedByTask>();
  const auto queue = SerialQueue::make("pool");
  std::latch started(1), ending(1);
  queue->async([&] {
    started.count_down();
    ending.wait();
    for (int i = 0; i < 100; ++i) std::this_thread::yield();  // gives an end that does not wait the time to show
    hasEnded = true;
  });
  queue->async([] { ADD_FAILURE() << "ran after the process was abandoned"; });
  // Destroyed unrun, once the end is under way.
  std::shared_ptr<void> capture(nullptr, [&](void*) { ending.count_down(); });
  process->mainQueue().async([capture = std::move(capture)] { ADD_FAILURE() << "ran"; });
  started.wait();
  process->abandon();
  EXPECT_TRUE(hasEnded);
}

TEST(ProcessDeathTest, BrokenContractsEndTheProgramWithOneLine) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  struct StandardErrorSink : LogSink {
    void write(const LogEntry& entry) override { fprintf(stderr, "[log: %s]", entry.messageText().c_str()); }
  };
  EXPECT_DEATH(Process::current(), "pellor: fatal: expected a current process");
  const auto world = std::make_shared<SimulatedScheduler>(1);
  Process process(world, std::make_shared<StandardErrorSink>());
  EXPECT_DEATH(
      std::thread([&] { process.notificationCenter().post({.name = "n", .object = {}, .userInfo = {}}); }).join(),
      "^pellor: fatal: expected NotificationCenter::post to be called on the main queue\n"
      ".log: pellor: fatal: expected NotificationCenter::post to be called on the main queue.$");
  EXPECT_DEATH((process.mainQueue().async([&] { process.abandon(); }), world->step()),
               "expected a process to end outside of its tasks");
  Process second(world, nullptr);
  EXPECT_DEATH(Process::current(), "pellor: fatal: expected a current process");
}

}  // namespace
}  // namespace pellor
