#include "runtime/MainStrand.h"

#include <cmath>
#include <limits>
#include <utility>

#include "runtime/Fatal.h"
#include "runtime/Process.h"
#include "runtime/Scheduler.h"
#include "runtime/WallClock.h"

namespace pellor {

MainStrand::MainStrand(Process& process, std::shared_ptr<Scheduler> scheduler)
    : MainQueue(process, "main"), Strand(process, std::move(scheduler)) {}

bool MainStrand::isCurrent() const {
  if (!isOwnerThread()) return false;
  const Frame* innermost = Frame::innermost();
  if (innermost && &innermost->process() != owner()) return false;
  const Queue* queue = Frame::innermostQueue();
  return !queue || queue == this;
}

void MainStrand::async(Task task) {
  require(task != nullptr, "a task to queue");
  WakeHandler handler;
  bool asksForTurn = false;
  {
    const MutexLock lock(_mutex);
    if (isClosed()) return;
    process().taskQueued();
    if (_tasks.empty()) handler = _wakeHandler;
    _tasks.push_back(std::move(task));
    ++_queuedCount;
    asksForTurn = !std::exchange(_hasTurn, true);
  }
  wake(handler);
  if (asksForTurn) scheduler().submitMain({shared_from_this(), this});
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

bool MainStrand::runNext() noexcept {
  Task task;
  bool asksForTurn = false;
  {
    const MutexLock lock(_mutex);
    _hasTurn = false;
    if (_tasks.empty()) return false;
    task = std::move(_tasks.front());
    _tasks.pop_front();
    // The next turn is asked for before the task runs: the task may itself serve this queue.
    asksForTurn = _hasTurn = !_tasks.empty();
  }
  if (asksForTurn) scheduler().submitMain({shared_from_this(), this});
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
  {
    const MutexLock lock(_mutex);
    _isStopRequested = true;
  }
  nudge();
}

bool MainStrand::takeStop() {
  const MutexLock lock(_mutex);
  return std::exchange(_isStopRequested, false);
}

bool MainStrand::drain() {
  process().requireMainQueue("MainQueue::drain");
  fireDueTimers();
  const MutexLock lock(_mutex);
  const std::uint64_t end = _queuedCount;
  // Counted by number: a drain within one of the tasks takes tasks of this one.
  while (!_tasks.empty() && _queuedCount - _tasks.size() < end) {
    const MutexUnlock released(_mutex);
    runNext();
  }
  const auto deadline = _deadlines.earliest();
  return !_tasks.empty() || (deadline && *deadline <= now());
}

void MainStrand::fireDueTimers() {
  std::vector<TimerShot> due;
  {
    const MutexLock lock(_mutex);
    if (!_deadlines.earliest()) return;
    due = _deadlines.takeDue(now());
  }
  fireAll(due);
}

void MainStrand::runNextOrWait(double until) {
  fireDueTimers();
  if (!runNext()) waitForWork(until);
}

void MainStrand::waitForWork(double until) {
  const MutexLock lock(_mutex);
  const double end = std::min(until, _deadlines.earliest().value_or(until));
  if (std::isinf(end)) {
    while (!hasWork()) _work.wait(_mutex);
  } else {
    const auto latest = wallClockTime(end);
    while (!hasWork() && _work.waitUntil(_mutex, latest)) {
    }
  }
  _isNudged = false;
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
    if (!_tasks.empty()) called = _wakeHandler;
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
  dropped.insert(dropped.end(), std::move_iterator(_tasks.begin()), std::move_iterator(_tasks.end()));
  _tasks.clear();
  _deadlines.clear();
}

}  // namespace pellor
