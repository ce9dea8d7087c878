// Attempts that are made again, without what makes them.
#include "pellor/friends/internal/PLRetryTimer.h"

#include "tests/pellor/OneProcess.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RetryTimerTest : public OneProcess {
 protected:
  void retry(const std::string& name) {
    timer.retry([this, name] { attempts.push_back(name); });
  }
  std::vector<std::string> attemptsWithin(double seconds) {
    scheduler->advance(seconds);
    return std::exchange(attempts, {});
  }

  std::vector<std::string> attempts;
  PLRetryTimer timer{process.mainQueue(), {.first = 1, .longest = 4}};
};

TEST_F(RetryTimerTest, OneAttemptWaitsAtATimeAndEachWaitsLongerUntilOneSucceeds) {
  retry("first");
  EXPECT_TRUE(timer.isWaiting());
  EXPECT_THAT(attemptsWithin(1), ElementsAre("first"));
  EXPECT_FALSE(timer.isWaiting());
  EXPECT_THAT(attemptsWithin(60), IsEmpty()) << "an attempt that does not ask for another one was the last";

  retry("replaced");
  retry("second");
  EXPECT_THAT(attemptsWithin(3.9), IsEmpty()) << "the one that was replaced counts as a failure too";
  EXPECT_THAT(attemptsWithin(0.2), ElementsAre("second"));

  timer.reset();
  retry("after a success");
  EXPECT_THAT(attemptsWithin(1), ElementsAre("after a success"));

  retry("still made");
  timer.reset();
  EXPECT_THAT(attemptsWithin(2), ElementsAre("still made"));

  retry("cancelled");
  timer.cancel();
  EXPECT_FALSE(timer.isWaiting());
  EXPECT_THAT(attemptsWithin(60), IsEmpty());
}

}  // namespace
}  // namespace pellor
