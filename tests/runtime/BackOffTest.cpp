#include "pellor/runtime/BackOff.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <set>
#include <vector>

#include "pellor/runtime/Process.h"
#include "pellor/runtime/Timer.h"
#include "pellor/testing/SimulatedScheduler.h"

namespace pellor {
namespace {

class BackOffTest : public testing::Test {
 protected:
  /// When attempts are made, in seconds from now: the first at once, each further one a pause after the one before.
  /// `succeeds` says of an attempt, counted from 0, whether it ends the row of failures.
  std::vector<double> attempts(BackOff& pauses, double duration, const std::function<bool(std::size_t)>& succeeds) {
    const double start = world->now();
    std::vector<double> times;
    std::shared_ptr<Timer> timer;
    const std::function<void()> attempt = [&] {
      if (succeeds(times.size())) pauses.reset();
      times.push_back(world->now() - start);
      timer = Timer::after(process.mainQueue(), pauses.next(), attempt);
    };
    process.mainQueue().async(attempt);
    world->advance(duration);
    timer = nullptr;
    return times;
  }

  std::vector<double> failures(BackOff& pauses, double duration) {
    return attempts(pauses, duration, [](std::size_t) { return false; });
  }

  const std::shared_ptr<SimulatedScheduler> world = std::make_shared<SimulatedScheduler>(7);
  Process process{world, nullptr};
};

TEST_F(BackOffTest, AttemptsComeFartherApartUpToTheLongestPauseAndBeginAnewAfterASuccess) {
  BackOff doubling({.first = 0.25, .longest = 1.5});
  EXPECT_EQ(failures(doubling, 5.5), (std::vector<double>{0, 0.25, 0.75, 1.75, 3.25, 4.75}));

  BackOff tripling({.first = 1, .longest = 60, .factor = 3});
  const auto fourthSucceeds = [](std::size_t attempt) { return attempt == 3; };
  EXPECT_EQ(attempts(tripling, 20, fourthSucceeds), (std::vector<double>{0, 1, 4, 13, 14, 17}));

  BackOff steady({.first = 2, .longest = 2});
  EXPECT_EQ(failures(steady, 7), (std::vector<double>{0, 2, 4, 6}));
}

TEST_F(BackOffTest, AJitteringPauseIsAnyPartOfWhatItWouldBe) {
  BackOff pauses({.first = 1, .longest = 4}, world.get());
  std::set<double> seen;
  bool isBeyondHalf = false, isBelowHalf = false;
  for (int round = 0; round < 50; ++round) {
    pauses.reset();
    for (const double whole : {1.0, 2.0, 4.0, 4.0}) {
      const double pause = pauses.next();
      EXPECT_GE(pause, 0);
      EXPECT_LT(pause, whole);
      (pause > whole / 2 ? isBeyondHalf : isBelowHalf) = true;
      seen.insert(pause);
    }
  }
  EXPECT_EQ(seen.size(), 200U) << "no two alike";
  EXPECT_TRUE(isBeyondHalf && isBelowHalf);
}

}  // namespace
}  // namespace pellor
