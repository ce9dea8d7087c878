#include "pellor/runtime/internal/ThreadedScheduler.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <system_error>
#include <utility>
#include <vector>

#include "pellor/runtime/Fatal.h"
#include "pellor/runtime/WallClock.h"
#include "pellor/runtime/internal/MainStrand.h"

namespace pellor {

namespace {

constexpr std::size_t LeastWorkers = 2;
constexpr std::size_t MostWorkers = 4;

// The system is asked how many processors there are, which reads a file, when that makes a difference.
bool mayStart(std::size_t workers) {
  if (workers <= LeastWorkers) return true;
  static const std::size_t processors = std::thread::hardware_concurrency();
  return workers <= std::min(processors, MostWorkers);
}

}  // namespace

ThreadedScheduler::ThreadedScheduler(const std::function<double()>& wallClock, SteadyClock steadyClock)
    : _startTime(wallClock()), _steadyClock(std::move(steadyClock)), _start(_steadyClock()) {}

ThreadedScheduler::~ThreadedScheduler() { joinWorkers(); }

double ThreadedScheduler::now() const {
  return _startTime + std::chrono::duration<double>(_steadyClock() - _start).count();
}

// To make a source anew asks the processor what it can do, which is slow in a virtual machine.
std::uint64_t ThreadedScheduler::randomNumber() {
  thread_local std::random_device source;
  return (std::uint64_t{source()} << 32U) | source();
}

void ThreadedScheduler::attach(const std::shared_ptr<MainStrand>&) {
  const MutexLock lock(_mutex);
  ++_attached;
}

void ThreadedScheduler::detach(const Process& process) {
  std::vector<std::shared_ptr<Strand>> forgotten;  // destroyed outside the lock
  MutexLock lock(_mutex);
  ++_detaching;
  while (isServing(process)) _ended.wait(_mutex);
  --_detaching;
  forgotten = _ready.takeAllOf(process);
  _deadlines.removeAllOf(process);
  const bool isLast = --_attached == 0;
  lock.unlock();
  if (isLast) joinWorkers();
}

bool ThreadedScheduler::isServing(const Process& process) const {
  return std::ranges::any_of(_workers, [&](const Worker& worker) { return worker.served == &process; });
}

void ThreadedScheduler::joinWorkers() {
  std::list<Worker> ending;
  {
    const MutexLock lock(_mutex);
    _isStopping = true;
    ending.swap(_workers);
  }
  _work.notifyAll();
  _clock.notifyAll();
  for (Worker& worker : ending) worker.thread.join();
  const MutexLock lock(_mutex);
  _isStopping = false;
}

void ThreadedScheduler::submit(std::shared_ptr<Strand> strand) {
  Condition* sleeper = nullptr;
  {
    const MutexLock lock(_mutex);
    _ready.add(std::move(strand), now());
    sleeper = sleeperForLastTurn();
  }
  // Without the lock, which the worker needs as soon as it wakes.
  if (sleeper) sleeper->notifyOne();
}

void ThreadedScheduler::submitAgain(std::shared_ptr<Strand> strand) {
  const MutexLock lock(_mutex);
  _ready.add(std::move(strand), now());
}

/// Where the worker sleeps that is to take the turn that was added last, if one does; else a new one may be started.
Condition* ThreadedScheduler::sleeperForLastTurn() {
  // Idle workers that were notified for earlier turns still count as idle until they wake.
  if (_ready.size() <= _idleWorkers) return &_work;
  const std::size_t waiting = _idleWorkers + (_hasTimekeeper ? 1 : 0);
  if (_ready.size() > waiting && mayStart(_workers.size() + 1)) startWorker();
  return _hasTimekeeper ? &_clock : nullptr;
}

Deadline ThreadedScheduler::setDeadline(TimerShot shot, double time) {
  const MutexLock lock(_mutex);
  const Deadline deadline = _deadlines.add(std::move(shot), time);
  if (!_deadlines.isFirst(deadline)) return deadline;
  if (_hasTimekeeper) {
    _clock.notifyOne();
  } else {
    callTimekeeper();
  }
  return deadline;
}

void ThreadedScheduler::callTimekeeper() {
  if (_idleWorkers > 0) {
    _work.notifyOne();
  } else if (mayStart(_workers.size() + 1)) {
    startWorker();
  }
}

void ThreadedScheduler::clearDeadline(Deadline deadline) {
  const MutexLock lock(_mutex);
  _deadlines.remove(deadline);
}

void ThreadedScheduler::serve(MainStrand& mainQueue, double until) { mainQueue.runNextOrWait(until); }

void ThreadedScheduler::startWorker() {
  Worker& worker = _workers.emplace_back();
  try {
    worker.thread = std::thread([this, &worker] { work(worker); });
  } catch (const std::system_error&) {
    // The workers that run already take the turn when they come to it.
    _workers.pop_back();
    require(!_workers.empty(), "that the system can start a thread for the worker pool");
  }
}

void ThreadedScheduler::work(Worker& worker) {
  const MutexLock lock(_mutex);
  while (!_isStopping) {
    if (!_hasTimekeeper && fireDue()) continue;
    if (!_ready.isEmpty()) {
      runReady(worker);
    } else if (!_hasTimekeeper && _deadlines.earliest()) {
      keepTime();
    } else {
      ++_idleWorkers;
      _work.wait(_mutex);
      --_idleWorkers;
    }
  }
}

void ThreadedScheduler::runReady(Worker& worker) {
  auto strand = _ready.take(now());
  // The turn may take longer than the deadlines allow.
  if (!_hasTimekeeper && _deadlines.earliest()) callTimekeeper();
  worker.served = strand->owner();
  {
    const MutexUnlock released(_mutex);
    strand->runNext();
    strand.reset();
  }
  worker.served = nullptr;
  if (_detaching > 0) _ended.notifyAll();
}

void ThreadedScheduler::keepTime() {
  const double earliest = *_deadlines.earliest();
  _hasTimekeeper = true;
  if (std::isinf(earliest)) {
    _clock.wait(_mutex);
  } else if (earliest > now()) {
    _clock.waitUntil(_mutex, steadyTimeAfter(earliest - now()));
  }
  _hasTimekeeper = false;
}

/// Whether anything was due; then the lock was given up meanwhile.
bool ThreadedScheduler::fireDue() {
  if (!_deadlines.earliest()) return false;
  const auto due = _deadlines.takeDue(now());
  if (due.empty()) return false;
  const MutexUnlock released(_mutex);
  fireAll(due);
  return true;
}

}  // namespace pellor
