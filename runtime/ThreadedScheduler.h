// The scheduler of programs: a small worker pool and the system's clock.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <list>
#include <memory>
#include <mutex>
#include <thread>

#include "runtime/Scheduler.h"

namespace pellor {

/// Workers are started when there is work for them, at least two, and end with the last process. One idle worker, the
/// timekeeper, waits for the earliest deadline; the others wait for work alone. Nothing to do means no wake-up.
/// Processes that share one are made and ended by one thread.
class ThreadedScheduler final : public Scheduler {
 public:
  ThreadedScheduler();
  ~ThreadedScheduler() override;

  double now() const override;
  void attach(const std::shared_ptr<MainStrand>& mainQueue) override;
  void detach(const Process& process) override;
  void submit(std::shared_ptr<Strand> strand) override;
  /// Nothing to do: the main queue wakes its own thread.
  void submitMain(std::shared_ptr<MainStrand>) override {}
  Deadline setDeadline(TimerShot shot, double time) override;
  void clearDeadline(Deadline deadline) override;
  void serve(MainStrand& mainQueue, double until) override;

 private:
  struct Worker {
    std::thread thread;
    const Process* served = nullptr;
  };
  using Lock = std::unique_lock<std::mutex>;

  void startWorker();
  void work(Worker& worker);
  void runReady(Worker& worker, Lock& lock);
  void keepTime(Lock& lock);
  bool isServing(const Process& process) const;
  void joinWorkers();

  const std::size_t _maximumWorkers;

  std::mutex _mutex;
  std::condition_variable _work;   // wakes idle workers
  std::condition_variable _clock;  // wakes the timekeeper
  std::condition_variable _ended;  // tells `detach` that a turn has ended
  // Guarded by _mutex.
  std::deque<std::shared_ptr<Strand>> _ready;
  DeadlineList _deadlines;
  std::list<Worker> _workers;
  std::size_t _idleWorkers = 0;  // without the timekeeper
  bool _hasTimekeeper = false;
  bool _isStopping = false;
  std::size_t _attached = 0;
  std::size_t _detaching = 0;
};

}  // namespace pellor
