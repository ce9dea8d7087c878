#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <latch>
#include <thread>

#include "tests/testing/SimulatedProcess.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class InMemoryBusTest : public ::testing::Test {
 protected:
  // Lets the process note the deliveries of a name.
  static void observe(SimulatedProcess& process, std::vector<std::string>& heard, const std::string& name) {
    process.run([&] {
      process.platform.notifyBus->addObserver(
          &heard, [&heard, name] { heard.push_back(name); }, name);
    });
  }
  static void post(SimulatedProcess& process, const std::string& name) {
    process.run([&] { process.platform.notifyBus->post(name); });
  }

  SimulatedWorld world;
  InMemoryBus& bus = world.bus();
  std::shared_ptr<SimulatedScheduler> scheduler = std::make_shared<SimulatedScheduler>(1);
  SimulatedProcess first{world, scheduler};
  SimulatedProcess second{world, scheduler};
  std::vector<std::string> heardByFirst;
  std::vector<std::string> heardBySecond;
};

TEST_F(InMemoryBusTest, CoalescesPostsOfOthersAlone) {
  observe(first, heardByFirst, "list");
  observe(first, heardByFirst, "titles");
  bus.setCoalescesPostsOfOthers(true);
  for (int i = 0; i < 3; ++i) post(second, "list");
  post(first, "list");
  bus.post("titles");
  post(first, "list");
  bus.post("list");
  EXPECT_THAT(heardByFirst, IsEmpty()) << "never inside a call";
  scheduler->runUntilQuiet();
  EXPECT_THAT(heardByFirst, ElementsAre("list", "list", "titles", "list"));
  EXPECT_EQ(bus.postCount("list"), 6u);

  std::vector<std::string> heardLate;
  bus.post("list");
  observe(first, heardLate, "list");
  bus.post("list");
  scheduler->runUntilQuiet();
  EXPECT_EQ(heardByFirst.size(), 5u) << "what comes after a delivery is delivered";
  EXPECT_EQ(heardLate.size(), 1u) << "a delivery stands for the last post that it was merged from";
}

TEST_F(InMemoryBusTest, ABrokenConnectionIsMadeUpFor) {
  observe(first, heardByFirst, "list");
  observe(first, heardByFirst, "titles");
  observe(second, heardBySecond, "list");
  post(first, "list");
  post(second, "list");
  bus.breakConnection(first.process);
  post(first, "list");
  post(first, "unobserved");
  post(second, "list");
  scheduler->runUntilQuiet();
  EXPECT_THAT(heardByFirst, IsEmpty()) << "also what was on its way is lost";
  EXPECT_THAT(heardBySecond, ElementsAre("list", "list", "list"));

  bus.restoreConnection(first.process);
  bus.restoreConnection(first.process);
  scheduler->runUntilQuiet();
  EXPECT_THAT(heardByFirst, ElementsAre("list", "list", "list", "titles")) << "both own posts, and one more a name";
  EXPECT_EQ(heardBySecond.size(), 4u) << "what was posted meanwhile has gone out";
  post(first, "list");
  scheduler->runUntilQuiet();
  EXPECT_EQ(heardByFirst.size(), 5u);
}

TEST_F(InMemoryBusTest, AnObserverHearsWhatIsPostedWhileItIsRegistered) {
  int removed = 0;
  first.run([&] {
    SystemNotifyBus& connection = *first.platform.notifyBus;
    connection.addObserver(
        &heardByFirst, [&] { connection.removeObserver(&removed, "list"); }, "list");
    connection.addObserver(
        &removed, [&] { ++removed; }, "list");
    connection.post("list");
  });
  observe(first, heardBySecond, "list");
  scheduler->runUntilQuiet();
  EXPECT_EQ(removed, 0) << "removed by the observer before it";
  EXPECT_THAT(heardBySecond, IsEmpty()) << "registered after the post";
}

TEST(InMemoryBusThreadTest, ProcessesOnRealThreads) {
  constexpr int posts = 200;
  SimulatedWorld world;
  std::latch allObserve(2);
  const auto live = [&] {
    Process process;
    const Platform platform = world.makePlatform(process);
    int heard = 0;
    platform.notifyBus->addObserver(
        &heard,
        [&] {
          if (++heard == 2 * posts) process.mainQueue().stop();
        },
        "list");
    allObserve.arrive_and_wait();
    for (int i = 0; i < posts; ++i) {
      platform.notifyBus->post("list");
      world.addressBook().add({.first = "Ada"});
    }
    process.mainQueue().run();
    EXPECT_EQ(heard, 2 * posts);
  };
  std::thread other(live);
  live();
  other.join();
}

TEST_F(InMemoryBusTest, AProcessThatEndedIsNotDisturbed) {
  {
    SimulatedProcess third{world, scheduler};
    observe(third, heardByFirst, "list");
    post(second, "list");
    third.process.abandon();
    post(second, "list");
  }
  post(second, "list");
  scheduler->runUntilQuiet();
  EXPECT_THAT(heardByFirst, IsEmpty());
}

}  // namespace
}  // namespace pellor
