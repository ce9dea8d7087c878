// Runs a block on request, but not more often than it should.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "pellor/runtime/Queue.h"
#include "pellor/runtime/Timer.h"

namespace pellor {

/// A block with a least distance between its runs. A request that comes later than `delay` after the last run starts
/// the block at once; an earlier one is deferred by a timer of a full `delay`, and requests until then join it. So a
/// burst of requests costs two runs, and the last request is always followed by one.
class PLDelayedOperation : public std::enable_shared_from_this<PLDelayedOperation> {
  struct Passkey {};

 public:
  /// `initWithQueue:delay:block:`. `queue` is the queue of all requests and runs, one that runs a task at a time;
  /// `delay` is in seconds, 0 or more. The first request runs at once. The block is held until `invalidate`, and may
  /// hold its owner only weakly if the owner holds this. With the last reference a deferred run ends, a queued one
  /// still happens. Any thread.
  static std::shared_ptr<PLDelayedOperation> initWithQueueDelayBlock(std::shared_ptr<Queue> queue, double delay,
                                                                     Task block);
  PLDelayedOperation(Passkey, std::shared_ptr<Queue> queue, double delay, Task block);
  PLDelayedOperation(const PLDelayedOperation&) = delete;
  PLDelayedOperation& operator=(const PLDelayedOperation&) = delete;

  /// Requests a run. The block never runs inside the call. On the queue; a call from anywhere else ends the program.
  void execute();

  /// Stops for good and drops the block on the queue: a deferred run never happens, one that was queued before still
  /// does. Not to be asked to execute again. Any thread.
  void invalidate();

 private:
  void _timerDidFire();
  void _queue_executeBlock();
  void _queue_updateLastExecution() PELLOR_REQUIRES(*_queue);

  // Set before the object is shared. After `invalidate` the timer is a cancelled one, which can be set no more: taking
  // the handle away would race with a request that sets it.
  const std::shared_ptr<Queue> _queue;
  const double _delay;  // seconds
  std::shared_ptr<Timer> _timerSource;

  // 1 while a deferred run waits for the timer. A timer that fires and a request that arms it may meet around a
  // cancellation, so it only ever changes by compare-and-swap. Written on the queue.
  std::atomic<std::int32_t> _blockEnqueued{0};

  Task _block PELLOR_GUARDED_BY(*_queue);  // null after invalidation
  // The absolute time at which the block was last started, or queued to start.
  double _lastExecution PELLOR_GUARDED_BY(*_queue) = 0;
};

}  // namespace pellor
