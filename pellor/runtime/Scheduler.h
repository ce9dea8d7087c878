// Where queues get their turns and time comes from.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "pellor/runtime/DeadlineList.h"
#include "pellor/runtime/Strand.h"

namespace pellor {

class MainStrand;
class Process;

/// Serves the queues and timers of the processes that are attached to it. Operations without another note: any thread,
/// never called with a lock of a queue held.
class Scheduler : public std::enable_shared_from_this<Scheduler> {
 public:
  Scheduler() = default;
  virtual ~Scheduler() = default;
  Scheduler(const Scheduler&) = delete;
  Scheduler& operator=(const Scheduler&) = delete;

  /// Absolute time in seconds since 2001-01-01T00:00:00Z: what the wall clock showed when the scheduler was made, and
  /// steady from there, whatever is done to the wall clock. For waits and measures, not for times that people see.
  virtual double now() const = 0;

  /// A number of 64 random bits: for names that nobody else has and pauses that nobody else makes. Any thread.
  virtual std::uint64_t randomNumber() = 0;

  /// Begins to serve a process. On its main thread.
  virtual void attach(const std::shared_ptr<MainStrand>& mainQueue) = 0;
  /// Ends it: forgets the turns and deadlines of the process, whose queues are closed already, and returns when none of
  /// its tasks is running any more. On its main thread, in no task of the process.
  virtual void detach(const Process& process) = 0;

  /// Gives a pool queue one turn, at a time of the scheduler's choice.
  virtual void submit(std::shared_ptr<Strand> strand) = 0;
  /// Gives a pool queue one more turn at the end of a turn, as the last thing that `Strand::runNext` asks for: the
  /// thread that took that turn looks for the next one anyway, so that no thread need be woken.
  virtual void submitAgain(std::shared_ptr<Strand> strand) { submit(std::move(strand)); }
  /// Gives a main queue one turn, which only its own thread can take.
  virtual void submitMain(MainStrand& mainQueue) = 0;

  /// Keeps the deadlines of timers on pool queues. A timer that is due is fired even when all queues are busy.
  virtual Deadline setDeadline(TimerShot shot, double time) = 0;
  virtual void clearDeadline(Deadline deadline) = 0;

  /// Serves a main queue from its own thread, which has nothing else to do: runs a task, or waits for one, for a timer,
  /// for `MainStrand::nudge` or for the absolute time `until` (infinite: no limit).
  virtual void serve(MainStrand& mainQueue, double until) = 0;
};

}  // namespace pellor
