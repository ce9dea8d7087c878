// Attempts that are made again after pauses that grow.
#pragma once

#include <memory>
#include <utility>

#include "pellor/runtime/BackOff.h"
#include "pellor/runtime/Queue.h"
#include "pellor/runtime/Timer.h"

namespace pellor {

/// The next attempt after one that failed. On its queue.
class PLRetryTimer {
 public:
  /// Attempts are tasks of the queue, which outlives this object. `jitter` as for `BackOff`.
  PLRetryTimer(Queue& queue, const BackOff::Pauses& pauses, Scheduler* jitter = nullptr)
      : _queue(queue), _pauses(pauses, jitter) {}

  /// Makes `attempt` after the next pause, in place of one that waits.
  void retry(Task attempt) { _timer = Timer::after(_queue, _pauses.next(), std::move(attempt)); }
  bool isWaiting() const { return _timer && _timer->isValid(); }
  /// After a success: the next pause is the first again. An attempt that waits is still made.
  void reset() { _pauses.reset(); }
  /// An attempt that waits is not made.
  void cancel() { _timer = nullptr; }

 private:
  Queue& _queue;
  BackOff _pauses;
  std::shared_ptr<Timer> _timer;
};

}  // namespace pellor
