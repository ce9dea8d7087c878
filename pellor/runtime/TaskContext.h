// What the calling thread is doing: the running tasks and the scopes that it is inside of.
#pragma once

namespace pellor {

class Process;
class Queue;

/// One entry of the calling thread's stack of contexts. Lives on the stack; the innermost one decides the current
/// process.
class TaskContext {
 public:
  /// A `read` is run for its caller and is not counted among the tasks of the process.
  enum class Kind { scope, task, read };

  /// `queue` null: a scope.
  TaskContext(Process& process, const Queue* queue, Kind kind)
      : _process(process), _queue(queue), _kind(kind), _outer(_current) {
    _current = this;
  }
  ~TaskContext() { _current = _outer; }
  TaskContext(const TaskContext&) = delete;
  TaskContext& operator=(const TaskContext&) = delete;

  Process& process() const { return _process; }

  /// The calling thread's innermost context; null outside of all.
  static const TaskContext* innermost() { return _current; }
  /// The queue of the thread's innermost task; null when no task is running on the thread.
  static const Queue* innermostQueue() {
    const TaskContext* context = _current;
    while (context && context->_kind == Kind::scope) context = context->_outer;
    return context ? context->_queue : nullptr;
  }
  /// Whether any task of `queue`, however deep, is running on the calling thread.
  static bool isInside(const Queue& queue);
  /// What tells the calling thread from all others that live.
  static const void* thread() { return &_current; }
  /// How many counted tasks of `process` are running on the calling thread.
  static long taskCount(const Process& process);

 private:
  Process& _process;
  const Queue* _queue;
  Kind _kind;
  const TaskContext* _outer;

  // Here, not in the source file: every operation of the library asks on which queue it is.
  static constinit inline thread_local const TaskContext* _current = nullptr;
};

}  // namespace pellor
