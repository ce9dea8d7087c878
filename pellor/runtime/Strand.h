// The inner side of a queue: what a scheduler, a timer and a process see of it.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "pellor/runtime/DeadlineList.h"
#include "pellor/runtime/Queue.h"

namespace pellor {

class Scheduler;

/// Every queue is also a strand. A queue asks its scheduler for a turn by submitting itself, and has at most one turn
/// outstanding; in its turn it runs at most one task.
class Strand {
 public:
  /// A strand keeps its scheduler, so that a queue or a timer may be dropped after its process.
  Strand(const Process& owner, std::shared_ptr<Scheduler> scheduler, QualityOfService qualityOfService);
  virtual ~Strand();
  Strand(const Strand&) = delete;
  Strand& operator=(const Strand&) = delete;

  /// Takes the turn that was asked for: runs the next task, if it may start. Returns whether one ran. No exception
  /// leaves a task.
  virtual bool runNext() noexcept = 0;

  /// Takes no more tasks; appends those that have not started to `dropped`, for the caller to destroy and count off.
  virtual void close(std::vector<Task>& dropped) = 0;

  /// Adds to, and removes from, the list of the deadlines that this queue's timers wait in. Any thread.
  virtual Deadline setDeadline(std::weak_ptr<TimerState> timer, std::uint64_t generation, double time);
  virtual void clearDeadline(Deadline deadline);

  double now() const;
  /// Only for comparison: the process may be gone.
  const Process* owner() const { return _owner; }
  Scheduler& scheduler() const { return *_scheduler; }
  QualityOfService qualityOfService() const { return _qualityOfService; }

 protected:
  /// The strand that `queue` is, with its share of the ownership.
  template <class ConcreteQueue>
  static std::shared_ptr<Strand> asStrand(ConcreteQueue& queue) {
    return {queue.shared_from_this(), static_cast<Strand*>(&queue)};
  }

  /// Whether tasks and deadlines are refused.
  bool isClosed() const { return _isClosed.load(std::memory_order_relaxed); }
  void markClosed() { _isClosed.store(true, std::memory_order_relaxed); }

  /// Runs a task and destroys it, with its queue and process as the current ones.
  static void runTask(const Queue& queue, Task&& task);

 private:
  const Process* _owner;
  std::shared_ptr<Scheduler> _scheduler;
  const QualityOfService _qualityOfService;
  std::atomic<bool> _isClosed = false;  // set once, by `close`, with the lock that guards the tasks; read on any thread
};

}  // namespace pellor
