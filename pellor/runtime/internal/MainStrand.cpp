#include "pellor/runtime/internal/MainStrand.h"

#include <cmath>
#include <limits>
#include <utility>

#include "pellor/runtime/Fatal.h"
#include "pellor/runtime/Process.h"
#include "pellor/runtime/Scheduler.h"
#include "pellor/runtime/WallClock.h"

namespace pellor {

MainStrand::MainStrand(Process& process, std::shared_ptr<Scheduler> scheduler)
    : MainQueue(process, "main"), Strand(process, std::move(scheduler), QualityOfService::defaultQuality) {}

bool MainStrand::isCurrent() const {
  if (!isOwnerThread()) return false;
  const TaskContext* innermost = TaskContext::innermost();
  if (innermost && &innermost->process() != owner()) return false;
  const Queue* queue = TaskContext::innermostQueue();
  return !queue || queue == this;
}

void MainStrand::async(Task task) {
  require(task != nullptr, "a task to queue");
  WakeHandler handler;
  {
    const MutexLock lock(_mutex);
    if (isClosed()) return;
    process().taskQueued();
    _tasks.push_back(std::move(task));
    ++_queuedCount;
    // While there are tasks its thread does not wait.
    if (std::exchange(_hasTurn, true)) return;
    handler = _wakeHandler;
  }
  wake(handler);
  scheduler().submitMain(*this);
}

void MainStrand::asyncAfter(double delay, Task task) {
  process().requireMainQueue("MainQueue::asyncAfter");
  const auto place = _delayed.emplace(_delayed.end());
  *place = Timer::after(*this, delay, [this, place, task = std::move(task)] {
    task();
    _delayed.erase(place);
  });
}

void MainStrand::wake(const WakeHandler& handler) {
  _work.notifyOne();
  if (handler) (*handler)();
}

void MainStrand::nudge() {
  {
    const MutexLock lock(_mutex);
    _isNudged = true;
  }
  _work.notifyOne();
}

bool MainStrand::runNext() noexcept { return runTaken(takeFirst()); }

Task MainStrand::takeFirst() {
  Task task = takeFromBatch();
  if (!_batch.empty()) return task;
  const MutexLock lock(_mutex);
  return refillBatch(std::move(task));
}

Task MainStrand::takeFromBatch() {
  if (_batch.empty()) return nullptr;
  Task task = std::move(_batch.front());
  _batch.pop_front();
  return task;
}

/// Takes all queued tasks into the empty batch. Returns `task`, or the first of those in place of none.
Task MainStrand::refillBatch(Task task) {
  _batch.swap(_tasks);
  if (!task) task = takeFromBatch();
  _hasTurn = !_batch.empty();
  return task;
}

bool MainStrand::runTaken(Task task) noexcept {
  if (!task) return false;
  ++_begunCount;
  // The next turn is asked for before the task runs: the task may itself serve this queue.
  if (!_batch.empty()) scheduler().submitMain(*this);
  runTask(*this, std::move(task));
  process().taskEnded();
  return true;
}

void MainStrand::run() {
  process().requireMainQueue("MainQueue::run");
  require(!std::exchange(_isInRun, true), "MainQueue::run to be called outside of itself");
  while (!takeStop()) scheduler().serve(*this, std::numeric_limits<double>::infinity());
  _isInRun = false;
}

void MainStrand::stop() {
  _isStopRequested = true;
  nudge();
}

bool MainStrand::takeStop() { return _isStopRequested && _isStopRequested.exchange(false); }

bool MainStrand::drain() {
  process().requireMainQueue("MainQueue::drain");
  fireDueTimers();
  const std::uint64_t end = queuedCount();
  // Counted by number: a drain within one of the tasks takes tasks of this one.
  while (_begunCount < end && runNext()) {
  }
  const MutexLock lock(_mutex);
  const auto deadline = _deadlines.earliest();
  return _hasTurn || (deadline && *deadline <= now());
}

void MainStrand::fireDueTimers() {
  std::vector<TimerShot> due;
  {
    const MutexLock lock(_mutex);
    _lookedCount = _queuedCount;
    if (!_deadlines.earliest()) return;
    due = _deadlines.takeDue(now());
  }
  fireAll(due);
}

std::uint64_t MainStrand::queuedCount() const {
  const MutexLock lock(_mutex);
  return _queuedCount;
}

void MainStrand::runNextOrWait(double until) {
  // Once a round, not once a task: what was queued before the timers were looked at comes before their handlers anyway.
  if (_begunCount >= _lookedCount) fireDueTimers();
  runTaken(waitForFirst(until));
}

/// The first task once there is one; none after a nudge, a timer's time or `until`.
Task MainStrand::waitForFirst(double until) {
  if (!_batch.empty()) return takeFirst();
  const MutexLock lock(_mutex);
  if (_tasks.empty() && !waitForWork(until)) return nullptr;
  return refillBatch(nullptr);
}

/// Whether it was a task that ended the wait.
bool MainStrand::waitForWork(double until) {
  const double end = std::min(until, _deadlines.earliest().value_or(until));
  if (std::isinf(end)) {
    while (!hasWork()) _work.wait(_mutex);
  } else {
    const auto latest = steadyTimeAfter(end - now());
    while (!hasWork() && _work.waitUntil(_mutex, latest)) {
    }
  }
  return !std::exchange(_isNudged, false) && !_tasks.empty();
}

std::optional<double> MainStrand::nextDeadline() const {
  const MutexLock lock(_mutex);
  return _deadlines.earliest();
}

void MainStrand::setWakeHandler(std::function<void()> handler) {
  WakeHandler replaced;  // destroyed outside the lock
  WakeHandler called;
  {
    const MutexLock lock(_mutex);
    replaced = std::exchange(_wakeHandler,
                             handler ? std::make_shared<const std::function<void()>>(std::move(handler)) : nullptr);
    if (_hasTurn) called = _wakeHandler;
  }
  if (called) (*called)();
}

Deadline MainStrand::setDeadline(std::weak_ptr<TimerState> timer, std::uint64_t generation, double time) {
  WakeHandler handler;
  Deadline deadline;
  {
    const MutexLock lock(_mutex);
    if (isClosed()) return {};
    deadline = _deadlines.add({std::move(timer), generation, owner()}, time);
    if (!_deadlines.isFirst(deadline)) return deadline;
    handler = _wakeHandler;
    _isNudged = true;
  }
  wake(handler);
  return deadline;
}

void MainStrand::clearDeadline(Deadline deadline) {
  const MutexLock lock(_mutex);
  _deadlines.remove(deadline);
}

void MainStrand::close(std::vector<Task>& dropped) {
  const MutexLock lock(_mutex);
  markClosed();
  // A delayed task is destroyed like one that was queued, outside of the lock.
  for (auto& timer : std::exchange(_delayed, {})) {
    process().taskQueued();
    dropped.emplace_back([timer = std::move(timer)] {});
  }
  for (auto* tasks : {&_batch, &_tasks}) {
    dropped.insert(dropped.end(), std::move_iterator(tasks->begin()), std::move_iterator(tasks->end()));
    tasks->clear();
  }
  _hasTurn = false;
  _deadlines.clear();
}

}  // namespace pellor
