// The main queue: the queue of the thread that made the process. It owns no loop; any event loop can drive it.
#pragma once

#include <functional>
#include <optional>

#include "pellor/runtime/Queue.h"

namespace pellor {

/// Managers, groups, indexes, the notification centre and all platform callbacks live here.
///
/// Three ways to drive it, all from the thread that made the process:
///   - a plain program calls `run()`, and `stop()` from any task or thread to leave it;
///   - an event loop sets a wake handler, calls `drain()` when woken and at `nextDeadline()`;
///   - `Process::settle` runs it until the process is at rest.
class MainQueue : public Queue {
 public:
  /// Whether the calling thread is the one that made the process and no task of another queue is running on it.
  bool isCurrent() const override = 0;

  /// Queues `task` once `delay` seconds from now have passed. The queue holds it until then: it cannot be cancelled,
  /// and is dropped unrun with the process. `Process::settle` does not wait for it. On this queue.
  virtual void asyncAfter(double delay, Task task) = 0;

  /// Serves tasks and timers until `stop()`. May not be nested.
  virtual void run() = 0;

  /// Makes `run()` return after the task in progress; a stop before `run()` makes the next run return at once. Any
  /// thread and signal-unsafe: from a signal handler wake the loop by a self-pipe instead.
  virtual void stop() = 0;

  /// Runs the due timers and the tasks that were queued at its entry; what they queue in turn waits for the next call.
  /// May be called from inside a task. Returns whether more is left to run now.
  virtual bool drain() = 0;

  /// When the next timer of this queue is due, in seconds of absolute time (see Process::now); absent without timers.
  virtual std::optional<double> nextDeadline() const = 0;

  /// Sets what is called when work comes to the empty queue or an earlier timer is set; null removes it. The handler is
  /// called without a lock, from any thread, and must only wake the loop. Called at once if work is waiting already.
  virtual void setWakeHandler(std::function<void()> handler) = 0;

 protected:
  using Queue::Queue;
};

}  // namespace pellor
