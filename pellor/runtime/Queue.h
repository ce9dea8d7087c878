// Queues of tasks: serial, concurrent, and what they have in common.
//
// Ordering: tasks of one serial queue run one at a time in the order in which they were queued, and each happens before
// the next. On a concurrent queue adjacent reads may run side by side, a barrier runs alone, and no read overtakes a
// barrier that was queued before it. A queue is no thread: its tasks run on a small worker pool. Queue and strand are
// two sides of one object: callers see the queue, and give it tasks; the scheduler sees the strand (Strand.h), and
// gives it turns. In a simulation one seed decides which ready task of which queue runs next. A queue carries a quality
// of service, by which waiting tasks get a free worker; a running task is never interrupted. A save that blocks keeps
// one worker of at least two.
#pragma once

#include <concepts>
#include <functional>
#include <memory>
#include <string>

#include "pellor/runtime/SourceLocation.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

class Process;

using Task = std::function<void()>;

/// Which waiting tasks get a free worker first: default ones before those of utility, which wait behind default ones
/// for at most 50 ms. A simulation does not rank: there the seed alone decides.
enum class QualityOfService {
  defaultQuality,  ///< tasks that a user or another queue may be waiting for
  utility,         ///< work that takes longer, such as saves
};

/// What every queue can do. A queue belongs to the process that made it; its tasks run with that process as the current
/// one. Handles are shared; dropping the last one does not drop tasks that are queued.
///
/// A queue can guard members (PELLOR_GUARDED_BY): then they are used in its tasks alone.
class PELLOR_CAPABILITY("queue") Queue : public std::enable_shared_from_this<Queue> {
 public:
  virtual ~Queue() = default;
  Queue(const Queue&) = delete;
  Queue& operator=(const Queue&) = delete;

  /// Queues `task` and returns; it never runs inside the call, on no thread, not even when the queue is empty. Any
  /// thread. After the process has stopped the task is dropped unrun.
  virtual void async(Task task) = 0;

  /// Whether the caller runs on this queue: inside one of its tasks, and not inside a task of another queue within it.
  virtual bool isCurrent() const = 0;

  /// Ends the program, in every build, unless the caller runs on this queue and nothing else does meanwhile: on a
  /// concurrent queue, unless it is a barrier. Members that the queue guards may be read and written from here on.
  void requireCurrent(SourceLocation caller = SourceLocation::current()) const PELLOR_ASSERTS();

  Process& process() const { return _process; }
  const std::string& label() const { return _label; }

 protected:
  Queue(Process& process, std::string label);

  /// Whether the caller runs on this queue and no other task of it runs beside.
  virtual bool isCurrentAlone() const { return isCurrent(); }

 private:
  Process& _process;
  std::string _label;
};

/// One task at a time, in order. The thread is given back after each task.
class SerialQueue : public Queue {
 public:
  /// A queue of the current process.
  static std::shared_ptr<SerialQueue> make(std::string label,
                                           QualityOfService qualityOfService = QualityOfService::defaultQuality);

 protected:
  using Queue::Queue;
};

/// Readers side by side, writers alone. For state in memory: no task blocks on input or output.
class ConcurrentQueue : public Queue {
 public:
  /// A queue of the current process.
  static std::shared_ptr<ConcurrentQueue> make(std::string label,
                                               QualityOfService qualityOfService = QualityOfService::defaultQuality);

  /// Queues a task that runs alone: after every task that was queued before it, and before every one that is queued
  /// after it. Such a task takes no lock, waits on no queue and calls no platform service. Any thread.
  virtual void asyncBarrier(Task task) = 0;

  /// Runs `read` as a reader and returns after it. With nothing queued it runs on the calling thread at once; else the
  /// caller itself runs the earlier tasks that nobody has started and waits only for those that run already, so it
  /// needs no free worker. Fatal from a task of this same queue. Any other thread.
  template <std::invocable Read>
  void sync(const Read& read) PELLOR_EXCLUDES(this) {
    // By reference, which a std::function holds without memory of its own.
    syncRead(std::cref(read));
  }

  /// Ends the program, in every build, unless the caller runs on this queue. Members that the queue guards may be read
  /// from here on.
  void requireReader(SourceLocation caller = SourceLocation::current()) const PELLOR_ASSERTS_READER();

 protected:
  using Queue::Queue;

 private:
  virtual void syncRead(const std::function<void()>& read) = 0;
};

}  // namespace pellor
