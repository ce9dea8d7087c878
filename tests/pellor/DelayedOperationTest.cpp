#include "pellor/friends/PLDelayedOperation.h"

#include "tests/pellor/OneProcess.h"

namespace pellor {
namespace {

using testing::ElementsAre;

class DelayedOperation : public OneProcess {
 protected:
  /// Seconds count from here.
  void make(double delay) {
    start = process.now();
    runs.clear();
    operation = PLDelayedOperation::initWithQueueDelayBlock(
        queue, delay, [this, held = token] { runs.push_back(process.now() - start); });
  }
  /// Asks at those seconds, in ascending order, and lets time pass until `end`.
  void requestAt(const std::vector<double>& seconds, double end) {
    for (const double second : seconds) {
      passUntil(second);
      request();
    }
    passUntil(end);
  }
  void request() {
    queue->async([this] {
      const auto before = runs.size();
      operation->execute();
      EXPECT_EQ(runs.size(), before) << "never inside the call";
    });
    settle();
  }
  void passUntil(double second) { scheduler->advance(start + second - process.now()); }

  std::shared_ptr<SerialQueue> queue = SerialQueue::make("operation");
  std::shared_ptr<int> token = std::make_shared<int>();
  std::shared_ptr<PLDelayedOperation> operation;
  double start = 0;
  std::vector<double> runs;
};

TEST_F(DelayedOperation, SpacesRuns) {
  const struct {
    const char* story;
    double delay;
    std::vector<double> requests;
    std::vector<double> runs;
  } cases[] = {
      {"the first runs at once, whatever the delay", 1e6, {0}, {0}},
      {"an early one waits a full delay from its request", 5, {0, 1}, {0, 6}},
      {"others join the one that waits, which does not move", 5, {0, 1, 3, 5}, {0, 6}},
      {"exactly at the due time is still early", 5, {0, 5}, {0, 10}},
      {"after the due time it runs at once", 5, {0, 5.5}, {0, 5.5}},
      {"one on time does not take the place of one that waits", 5, {0, 4, 6}, {0, 6, 9}},
      {"a deferred run counts for the next", 5, {0, 1, 7}, {0, 6, 12}},
      {"without delay the same instant waits for a timer of no time", 0, {0, 0, 2}, {0, 0, 2}},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.story);
    make(one.delay);
    requestAt(one.requests, 100);
    EXPECT_THAT(runs, testing::Pointwise(testing::DoubleNear(1e-6), one.runs));
  }
}

TEST_F(DelayedOperation, InvalidatedOneRunsNoMore) {
  make(5);
  requestAt({0, 1}, 2);
  operation->invalidate();
  const std::weak_ptr<int> block = std::exchange(token, nullptr);
  EXPECT_FALSE(block.expired()) << "dropped on the queue";
  passUntil(100);
  EXPECT_TRUE(block.expired());
  EXPECT_THAT(runs, ElementsAre(0));
}

}  // namespace
}  // namespace pellor
