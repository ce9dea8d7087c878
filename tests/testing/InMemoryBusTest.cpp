// A bus that does not keep what a bus has to promise.
#include <gtest/gtest.h>

#include <string>

#include "testing/SimulatedScheduler.h"
#include "testing/SimulatedWorld.h"

namespace pellor {
namespace {

class InMemoryBusTest : public ::testing::Test {
 protected:
  InMemoryBusTest() {
    for (const auto& [process, name] : {std::pair(&_poster, "own "), std::pair(&_other, "other ")}) {
      const Process::Scope scope(*process);
      _world.bus().busFor(*process)->addObserver(
          this, [this, name = name] { _deliveries += name; }, "news");
    }
  }

  std::string deliveriesAfterPosts(int count) {
    const Process::Scope scope(_poster);
    while (count-- > 0) {
      _world.bus().busFor(_poster)->post("news");
      _scheduler->runUntilQuiet();
    }
    return takeDeliveries();
  }
  std::string takeDeliveries() {
    _scheduler->runUntilQuiet();
    return std::exchange(_deliveries, "");
  }

  SimulatedWorld _world;
  std::shared_ptr<SimulatedScheduler> _scheduler = std::make_shared<SimulatedScheduler>(1);
  Process _poster{_scheduler, nullptr}, _other{_scheduler, nullptr};
  std::shared_ptr<SystemNotifyBus> _posterBus = _world.bus().busFor(_poster);
  std::shared_ptr<SystemNotifyBus> _otherBus = _world.bus().busFor(_other);
  std::string _deliveries;
};

// Of a post its poster's delivery is the first.
TEST_F(InMemoryBusTest, DeliveriesAreLostDoubledOrLate) {
  using Fault = InMemoryBus::Fault;
  _world.bus().disturb(Fault::lost, 1);
  EXPECT_EQ(deliveriesAfterPosts(1), "other ");
  _world.bus().disturb(Fault::doubled, 1);
  EXPECT_EQ(deliveriesAfterPosts(1).size(), std::string("own own other ").size());
  _world.bus().disturb(Fault::late, 3);
  EXPECT_EQ(deliveriesAfterPosts(2), "other ");
  _world.bus().endDisturbance();
  EXPECT_EQ(takeDeliveries().size(), std::string("own other own ").size());
  EXPECT_EQ(takeDeliveries(), "");
}

TEST_F(InMemoryBusTest, PostsDoNotMergeIntoOneThatIsLostOrLate) {
  _world.bus().setCoalescesPostsOfOthers(true);
  for (const auto fault : {InMemoryBus::Fault::lost, InMemoryBus::Fault::late}) {
    _world.bus().disturb(fault, 2);
    EXPECT_EQ(deliveriesAfterPosts(1), "");
    EXPECT_EQ(deliveriesAfterPosts(1).size(), std::string("own other ").size());
  }
}

}  // namespace
}  // namespace pellor
