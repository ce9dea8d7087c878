#include "pellor/friends/PLDelayedOperation.h"

#include <cmath>

#include "pellor/runtime/Process.h"

namespace pellor {
namespace {

// The timer counts whole billionths of a second.
double inWholeNanoseconds(double seconds) { return std::trunc(seconds * 1e9) / 1e9; }

}  // namespace

PLDelayedOperation::PLDelayedOperation(Passkey, std::shared_ptr<Queue> queue, double delay, Task block)
    : _queue(std::move(queue)), _delay(delay), _block(std::move(block)) {}

std::shared_ptr<PLDelayedOperation> PLDelayedOperation::initWithQueueDelayBlock(std::shared_ptr<Queue> queue,
                                                                                double delay, Task block) {
  auto operation = std::make_shared<PLDelayedOperation>(Passkey{}, std::move(queue), delay, std::move(block));
  // The operation owns the timer, so the timer's handler must not own the operation.
  operation->_timerSource = Timer::make(*operation->_queue, [weak = std::weak_ptr(operation)] {
    if (auto self = weak.lock()) self->_timerDidFire();
  });
  return operation;
}

void PLDelayedOperation::execute() {
  _queue->requireCurrent();
  const double dueTime = _lastExecution + _delay;
  const double now = _queue->process().now();
  // A clock that was never set may show a time before 0.
  const bool isFirst = _lastExecution == 0;
  if (isFirst || now > dueTime) {
    // Stamped now, so that requests before the queued run count from this one.
    _lastExecution = now;
    _queue->async([self = shared_from_this()] { self->_queue_executeBlock(); });
    return;
  }
  std::int32_t idle = 0;
  if (!_blockEnqueued.compare_exchange_strong(idle, 1)) return;
  // A full delay from here, not the rest of the one that runs.
  _timerSource->fireAt(now + inWholeNanoseconds(_delay));
}

void PLDelayedOperation::_timerDidFire() {
  std::int32_t deferred = 1;
  if (_blockEnqueued.compare_exchange_strong(deferred, 0)) _queue_executeBlock();
}

void PLDelayedOperation::invalidate() {
  _timerSource->cancel();
  // On the queue, so that a run that is under way there finishes with its block.
  _queue->async([self = shared_from_this()] {
    self->_queue->requireCurrent();
    self->_block = nullptr;
  });
}

void PLDelayedOperation::_queue_executeBlock() {
  _queue->requireCurrent();
  _queue_updateLastExecution();
  if (_block) _block();
}

void PLDelayedOperation::_queue_updateLastExecution() { _lastExecution = _queue->process().now(); }

}  // namespace pellor
