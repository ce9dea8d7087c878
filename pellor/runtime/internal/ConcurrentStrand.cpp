#include "pellor/runtime/internal/ConcurrentStrand.h"

#include <utility>

#include "pellor/runtime/Fatal.h"
#include "pellor/runtime/Process.h"
#include "pellor/runtime/Scheduler.h"
#include "pellor/runtime/TaskContext.h"

namespace pellor {

ConcurrentStrand::ConcurrentStrand(Process& process, std::shared_ptr<Scheduler> scheduler, std::string label,
                                   QualityOfService qualityOfService)
    : ConcurrentQueue(process, std::move(label)), Strand(process, std::move(scheduler), qualityOfService) {}

bool ConcurrentStrand::isCurrent() const { return TaskContext::innermostQueue() == this; }

/// A task of the queue may look without the lock: no barrier begins or ends beside a read, nor beside another barrier.
bool ConcurrentStrand::isCurrentAlone() const { return isCurrent() && _isBarrierRunning; }

void ConcurrentStrand::async(Task task) { append({.task = std::move(task)}); }

void ConcurrentStrand::asyncBarrier(Task task) { append({.task = std::move(task), .isBarrier = true}); }

void ConcurrentStrand::append(Entry entry) {
  require(entry.task != nullptr, "a task to queue");
  HandOn next;
  {
    const MutexLock lock(_mutex);
    if (isClosed()) return;
    process().taskQueued();
    _entries.push_back(std::move(entry));
    next = takeHandOn();
  }
  handOn(next);
}

void ConcurrentStrand::syncRead(const std::function<void()>& read) {
  if (TaskContext::isInside(*this)) fatal("a synchronous read from outside the tasks of queue " + label());
  enterInTurn(&read);
  {
    const TaskContext context(process(), this, TaskContext::Kind::read);
    read();
  }
  finish(false, TurnAfter::askedFor);
}

void ConcurrentStrand::enterInTurn(const void* waiter) {
  HandOn next;
  {
    const MutexLock lock(_mutex);
    if (!_entries.empty() || _isBarrierRunning) waitForPlace(waiter);
    ++_readers;
    next = takeHandOn();
  }
  handOn(next);
}

/// Takes a place behind the queued entries and returns once it is the first that may start. Until then the caller runs
/// the entries before it that have not been started.
void ConcurrentStrand::waitForPlace(const void* waiter) {
  _entries.push_back({.task = nullptr, .waiter = waiter});
  ++_waiters;
  while (_entries.front().waiter != waiter || !canStartFirst()) {
    if (_entries.front().waiter || !canStartFirst()) {
      _changed.wait(_mutex);
    } else {
      Entry entry = startFirst();
      const HandOn next = takeHandOn();
      const MutexUnlock released(_mutex);
      run(std::move(entry), next, TurnAfter::askedFor);
    }
  }
  --_waiters;
  _entries.pop_front();
}

bool ConcurrentStrand::canStartFirst() const {
  return !_isBarrierRunning && (!_entries.front().isBarrier || _readers == 0);
}

bool ConcurrentStrand::needsTurn() const {
  return !_hasTurn && !_entries.empty() && !_entries.front().waiter && canStartFirst();
}

ConcurrentStrand::Entry ConcurrentStrand::startFirst() {
  Entry entry = std::move(_entries.front());
  _entries.pop_front();
  if (entry.isBarrier) {
    _isBarrierRunning = true;
  } else {
    ++_readers;
  }
  return entry;
}

bool ConcurrentStrand::runNext() noexcept {
  Entry entry;
  HandOn next;
  {
    const MutexLock lock(_mutex);
    _hasTurn = false;
    // A waiter may have taken the entry that the turn was asked for.
    if (_entries.empty() || _entries.front().waiter || !canStartFirst()) return false;
    entry = startFirst();
    next = takeHandOn();
  }
  run(std::move(entry), next, TurnAfter::inThisThread);
  return true;
}

void ConcurrentStrand::run(Entry entry, HandOn before, TurnAfter turn) {
  handOn(before);
  runTask(*this, std::move(entry.task));
  finish(entry.isBarrier, turn);
  process().taskEnded();
}

void ConcurrentStrand::finish(bool isBarrier, TurnAfter turn) {
  HandOn next;
  {
    const MutexLock lock(_mutex);
    if (isBarrier) {
      _isBarrierRunning = false;
    } else {
      --_readers;
    }
    next = takeHandOn();
  }
  handOn(next, turn);
}

/// Called in each hold of the lock that changed something, as its last step.
ConcurrentStrand::HandOn ConcurrentStrand::takeHandOn() {
  const HandOn next{.wakesWaiters = _waiters > 0, .asksForTurn = needsTurn()};
  if (next.asksForTurn) _hasTurn = true;
  return next;
}

void ConcurrentStrand::handOn(HandOn handOn, TurnAfter turn) {
  if (handOn.wakesWaiters) _changed.notifyAll();
  if (!handOn.asksForTurn) return;
  turn == TurnAfter::inThisThread ? scheduler().submitAgain(asStrand(*this)) : scheduler().submit(asStrand(*this));
}

void ConcurrentStrand::close(std::vector<Task>& dropped) {
  HandOn next;
  {
    const MutexLock lock(_mutex);
    markClosed();
    for (Entry& entry : _entries) {
      if (entry.task) dropped.push_back(std::move(entry.task));
    }
    std::erase_if(_entries, [](const Entry& entry) { return !entry.waiter; });
    next = takeHandOn();
  }
  handOn(next);
}

}  // namespace pellor
