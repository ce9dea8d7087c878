#include "runtime/ConcurrentStrand.h"

#include <utility>

#include "runtime/Fatal.h"
#include "runtime/Frame.h"
#include "runtime/Process.h"
#include "runtime/Scheduler.h"

namespace pellor {

ConcurrentStrand::ConcurrentStrand(Process& process, std::shared_ptr<Scheduler> scheduler, std::string label)
    : ConcurrentQueue(process, std::move(label)), Strand(process, std::move(scheduler)) {}

bool ConcurrentStrand::isCurrent() const { return Frame::innermostQueue() == this; }

void ConcurrentStrand::async(Task task) { append({.task = std::move(task)}); }

void ConcurrentStrand::asyncBarrier(Task task) { append({.task = std::move(task), .isBarrier = true}); }

void ConcurrentStrand::append(Entry entry) {
  require(entry.task != nullptr, "a task to queue");
  Lock lock(_mutex);
  if (isClosed()) {
    lock.unlock();  // before the captures of the dropped task are destroyed
    return;
  }
  process().taskQueued();
  _entries.push_back(std::move(entry));
  handOn(lock);
}

void ConcurrentStrand::sync(const std::function<void()>& read) {
  if (Frame::isInside(*this)) fatal("a synchronous read from outside the tasks of queue " + label());
  Lock lock(_mutex);
  if (!_entries.empty() || _isBarrierRunning) waitForPlace(&read, lock);
  ++_readers;
  handOn(lock);
  {
    const Frame frame(process(), this, Frame::Kind::read);
    read();
  }
  lock.lock();
  finish(false, lock);
}

/// Takes a place behind what is queued and returns once it is the first that may start. Until then runs what stands
/// before it and has not been started.
void ConcurrentStrand::waitForPlace(const void* waiter, Lock& lock) {
  _entries.push_back({.task = nullptr, .waiter = waiter});
  ++_waiters;
  while (_entries.front().waiter != waiter || !canStartFirst()) {
    if (_entries.front().waiter || !canStartFirst()) {
      _changed.wait(lock);
    } else {
      run(startFirst(), lock);
      lock.lock();
    }
  }
  --_waiters;
  _entries.pop_front();
}

bool ConcurrentStrand::canStartFirst() const {
  return !_isBarrierRunning && (_readers == 0 || !_entries.front().isBarrier);
}

bool ConcurrentStrand::needsTurn() {
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
  Lock lock(_mutex);
  _hasTurn = false;
  // A waiter may have taken what the turn was asked for.
  if (_entries.empty() || _entries.front().waiter || !canStartFirst()) return false;
  run(startFirst(), lock);
  return true;
}

/// Comes with the lock held, goes without it.
void ConcurrentStrand::run(Entry entry, Lock& lock) {
  handOn(lock);
  runTask(*this, std::move(entry.task));
  lock.lock();
  finish(entry.isBarrier, lock);
  process().taskEnded();
}

void ConcurrentStrand::finish(bool isBarrier, Lock& lock) {
  if (isBarrier) {
    _isBarrierRunning = false;
  } else {
    --_readers;
  }
  handOn(lock);
}

/// After a change of what may start: wakes the waiters, asks for a turn, and releases the lock.
void ConcurrentStrand::handOn(Lock& lock) {
  const bool wakesWaiters = _waiters > 0;
  const bool asksForTurn = needsTurn();
  if (asksForTurn) _hasTurn = true;
  lock.unlock();
  if (wakesWaiters) _changed.notify_all();
  if (asksForTurn) scheduler().submit(asStrand(*this));
}

void ConcurrentStrand::close(std::vector<Task>& dropped) {
  Lock lock(_mutex);
  markClosed();
  for (Entry& entry : _entries) {
    if (entry.task) dropped.push_back(std::move(entry.task));
  }
  std::erase_if(_entries, [](const Entry& entry) { return !entry.waiter; });
  handOn(lock);
}

}  // namespace pellor
