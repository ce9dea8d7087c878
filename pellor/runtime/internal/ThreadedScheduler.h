// The scheduler of programs: a small worker pool and the system's steady clock.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <thread>

#include "pellor/runtime/Scheduler.h"
#include "pellor/runtime/WallClock.h"
#include "pellor/runtime/internal/ReadyStrands.h"

namespace pellor {

/// Workers are started when there is work for them, at least two, and end with the last process. One idle worker, the
/// timekeeper, waits for the earliest deadline; the others wait for work alone. Nothing to do means no wake-up.
/// Processes that share one are made and ended by one thread.
class ThreadedScheduler final : public Scheduler {
 public:
  using SteadyClock = std::function<std::chrono::steady_clock::time_point()>;

  /// `wallClock` gives the time at which `now` begins, in seconds since 2001-01-01T00:00:00Z. `steadyClock` is what
  /// moves it from there, read on any thread.
  explicit ThreadedScheduler(const std::function<double()>& wallClock = wallClockNow,
                             SteadyClock steadyClock = std::chrono::steady_clock::now);
  ~ThreadedScheduler() override;

  double now() const override;
  std::uint64_t randomNumber() override;
  void attach(const std::shared_ptr<MainStrand>& mainQueue) override;
  void detach(const Process& process) override;
  void submit(std::shared_ptr<Strand> strand) override;
  void submitAgain(std::shared_ptr<Strand> strand) override;
  /// Nothing to do: the main queue wakes its own thread.
  void submitMain(MainStrand&) override {}
  Deadline setDeadline(TimerShot shot, double time) override;
  void clearDeadline(Deadline deadline) override;
  void serve(MainStrand& mainQueue, double until) override;

 private:
  struct Worker {
    std::thread thread;
    const Process* served = nullptr;  // guarded by the scheduler's lock
  };

  Condition* sleeperForLastTurn() PELLOR_REQUIRES(_mutex);
  void startWorker() PELLOR_REQUIRES(_mutex);
  void work(Worker& worker);
  void runReady(Worker& worker) PELLOR_REQUIRES(_mutex);
  void callTimekeeper() PELLOR_REQUIRES(_mutex);
  void keepTime() PELLOR_REQUIRES(_mutex);
  bool fireDue() PELLOR_REQUIRES(_mutex);
  bool isServing(const Process& process) const PELLOR_REQUIRES(_mutex);
  void joinWorkers();

  const double _startTime;
  const SteadyClock _steadyClock;
  const std::chrono::steady_clock::time_point _start;
  Mutex _mutex;
  Condition _work;   // wakes idle workers
  Condition _clock;  // wakes the timekeeper
  Condition _ended;  // tells `detach` that a turn has ended
  ReadyStrands _ready PELLOR_GUARDED_BY(_mutex);
  DeadlineList _deadlines PELLOR_GUARDED_BY(_mutex);
  std::list<Worker> _workers PELLOR_GUARDED_BY(_mutex);
  std::size_t _idleWorkers PELLOR_GUARDED_BY(_mutex) = 0;  // without the timekeeper
  bool _hasTimekeeper PELLOR_GUARDED_BY(_mutex) = false;
  bool _isStopping PELLOR_GUARDED_BY(_mutex) = false;
  std::size_t _attached PELLOR_GUARDED_BY(_mutex) = 0;
  std::size_t _detaching PELLOR_GUARDED_BY(_mutex) = 0;
};

}  // namespace pellor
