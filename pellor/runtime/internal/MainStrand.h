// The main queue.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <vector>

#include "pellor/runtime/MainQueue.h"
#include "pellor/runtime/Strand.h"
#include "pellor/runtime/TaskContext.h"
#include "pellor/runtime/Timer.h"

namespace pellor {

class MainStrand final : public MainQueue, public Strand {
 public:
  /// Belongs to the calling thread.
  MainStrand(Process& process, std::shared_ptr<Scheduler> scheduler);

  void async(Task task) override;
  bool isCurrent() const override;
  void asyncAfter(double delay, Task task) override;
  void run() override;
  void stop() override;
  bool drain() override;
  std::optional<double> nextDeadline() const override;
  void setWakeHandler(std::function<void()> handler) override;

  bool runNext() noexcept override;
  void close(std::vector<Task>& dropped) override;
  Deadline setDeadline(std::weak_ptr<TimerState> timer, std::uint64_t generation, double time) override;
  void clearDeadline(Deadline deadline) override;

  /// Whether the calling thread is the one that made the process.
  bool isOwnerThread() const { return TaskContext::thread() == _ownerThread; }
  /// Queues the handlers of the timers that are due.
  void fireDueTimers();
  /// Runs a due timer or a task; without one waits for either, for a nudge or for `until`.
  void runNextOrWait(double until);
  /// Ends the wait that is under way, or the next one. Any thread.
  void nudge();

 private:
  using WakeHandler = std::shared_ptr<const std::function<void()>>;

  void wake(const WakeHandler& handler);
  Task takeFirst() PELLOR_EXCLUDES(_mutex);
  Task waitForFirst(double until) PELLOR_EXCLUDES(_mutex);
  bool waitForWork(double until) PELLOR_REQUIRES(_mutex);
  Task takeFromBatch();
  Task refillBatch(Task task) PELLOR_REQUIRES(_mutex);
  bool runTaken(Task task) noexcept PELLOR_EXCLUDES(_mutex);
  bool hasWork() const PELLOR_REQUIRES(_mutex) { return !_tasks.empty() || _isNudged; }
  bool takeStop();
  std::uint64_t queuedCount() const;

  const void* const _ownerThread = TaskContext::thread();
  // The owner thread's.
  bool _isInRun = false;
  std::deque<Task> _batch;         // taken out of _tasks all at once, so that a burst of posts meets the lock once
  std::uint64_t _begunCount = 0;   // tasks ever begun; the next one has the number after it
  std::uint64_t _lookedCount = 0;  // tasks that were queued when the timers were last looked at
  std::list<std::shared_ptr<Timer>> _delayed;  // each until it has fired

  std::atomic<bool> _isStopRequested = false;  // set on any thread, cleared by the owner
  mutable Mutex _mutex;
  Condition _work;
  std::deque<Task> _tasks PELLOR_GUARDED_BY(_mutex);
  std::uint64_t _queuedCount PELLOR_GUARDED_BY(_mutex) = 0;  // tasks ever queued; the last in _tasks has this number
  DeadlineList _deadlines PELLOR_GUARDED_BY(_mutex);
  WakeHandler _wakeHandler PELLOR_GUARDED_BY(_mutex);
  bool _hasTurn PELLOR_GUARDED_BY(_mutex) = false;  // whether a task waits, here or in the batch
  bool _isNudged PELLOR_GUARDED_BY(_mutex) = false;
};

}  // namespace pellor
