// All that exists once a process.
#pragma once

#include <cstddef>
#include <memory>

#include "pellor/runtime/LocalObjects.h"
#include "pellor/runtime/Log.h"
#include "pellor/runtime/MainQueue.h"
#include "pellor/runtime/NotificationCenter.h"
#include "pellor/runtime/TaskContext.h"

namespace pellor {

class Scheduler;
class Strand;

/// Something whose unfinished business `Process::settle` waits for. Main queue.
class SettleParticipant {
 public:
  virtual ~SettleParticipant() = default;
  /// Whether nothing is deferred: no save waits to be tried, no own post waits for its delivery.
  virtual bool isSettled() const = 0;
  /// Whether every change that was made is written.
  virtual bool isWritten() const = 0;
  /// Called when a settle begins, and each time that nothing is queued: asks for what is due and was not asked for. May
  /// queue tasks.
  virtual void prepareToSettle() {}
  /// Called once at the end of each settle, before it returns. Must not queue tasks.
  virtual void didSettle() {}
};

/// The root object of a program that uses the library: main queue, scheduler, clock, notification centre, log, and one
/// object of any further type for the layers above (`local`). A program makes one at its start, on the thread that is
/// to be the main thread, and destroys it last. Tests make several, which may share one simulated scheduler.
///
/// A task, a timer and an object belong to the process that made them. The current process is that of the thread's
/// innermost running task or `Scope`, else the only one there is; anything else is a fatal error.
class Process {
 public:
  /// A process with its own worker pool and the system's clock. `sink` null: the log goes nowhere.
  explicit Process(std::shared_ptr<LogSink> sink = nullptr);
  /// A process on a given scheduler, which may serve several.
  Process(std::shared_ptr<Scheduler> scheduler, std::shared_ptr<LogSink> sink);
  /// Settles (for at most 5 seconds, or 30 while other processes keep changing what it has to write), stops and joins.
  /// What is still queued then is dropped unrun.
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  /// The current process. Any thread.
  static Process& current();
  /// Whether there is a current process. Any thread.
  static bool hasCurrent();

  /// Makes a process the calling thread's current one while the scope lives.
  class Scope {
   public:
    explicit Scope(Process& process) : _context(process, nullptr, TaskContext::Kind::scope) {}

   private:
    TaskContext _context;
  };

  /// Absolute time in seconds since 2001-01-01T00:00:00Z: what the wall clock showed when the scheduler was made, and
  /// steady from there, whatever is done to the wall clock. For waits and measures, not for times that people see. Any
  /// thread.
  double now() const;

  MainQueue& mainQueue();
  NotificationCenter& notificationCenter();
  Scheduler& scheduler();
  const std::shared_ptr<LogSink>& logSink() const;

  /// Ends the program, in every build, unless the caller runs on the main queue. `operation` is named in the error.
  void requireMainQueue(std::string_view operation) const;

  /// The one T of this process, default-constructed on first use under a one-time guard and destroyed with the process,
  /// last made first, with the process as the current one. A T that is asked for after its destruction, by the
  /// destructor of another, is made anew. Any thread.
  template <class T>
  T& local() {
    static const std::size_t key = LocalObjects::newKey();
    if (void* made = _locals.find(key)) return *static_cast<T*>(made);
    return *static_cast<T*>(makeLocal(key, [] { return std::shared_ptr<void>(std::make_shared<T>()); }));
  }

  /// Runs the main queue until no task of any queue, no deferred save and no own post is outstanding, for at most
  /// `limit` seconds; true when that state was reached and all writes succeeded. What a program calls before it exits
  /// with success. Main queue; may be called from a task.
  bool settle(double limit);
  void addSettleParticipant(SettleParticipant& participant);
  void removeSettleParticipant(SettleParticipant& participant);

  /// Ends at once, without settling: queued tasks are dropped unrun, as when the process is killed. Main thread,
  /// outside of the tasks of this process. For tests.
  void abandon();

  // For queues: tasks that are queued or running, of which `settle` waits for the last. Any thread.
  void taskQueued();
  void taskEnded();
  /// Registers a queue that was just made, to be closed with the process. Any thread.
  void queueMade(const std::shared_ptr<Strand>& queue);

 private:
  void* makeLocal(std::size_t key, LocalObjects::Make make);

  class State;
  std::unique_ptr<State> _state;
  LocalObjects _locals;
};

}  // namespace pellor
