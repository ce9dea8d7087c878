// One-shot timers.
#pragma once

#include <memory>

#include "pellor/runtime/Queue.h"

namespace pellor {

class TimerState;

/// Fires a handler on a queue once for each time that was set. The fired timer is a task on its queue. A timer that has
/// not been set costs nothing. Dropping the handle cancels it.
class Timer {
 public:
  /// A timer with no firing time. `handler` runs on `queue`, never inside a call.
  static std::shared_ptr<Timer> make(Queue& queue, Task handler);

  /// A timer that fires once, `delay` seconds from now.
  static std::shared_ptr<Timer> after(Queue& queue, double delay, Task handler);

  explicit Timer(std::shared_ptr<TimerState> state);
  ~Timer();
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  /// Sets the firing time, in seconds of absolute time (see Process::now), in place of one that was set before. A time
  /// that has passed fires as soon as the queue is free. On the queue or before the handle is shared. After `cancel`
  /// nothing happens.
  void fireAt(double time);

  /// Whether a firing is still to come: set, not fired, not cancelled. Any thread.
  bool isValid() const;

  /// Ends the timer for good and drops the handler. Any thread; after a cancel on its own queue it never fires.
  void cancel();

 private:
  std::shared_ptr<TimerState> _state;
};

}  // namespace pellor
