// What guards what, said so that clang checks it (-Wthread-safety): locks, and queues as far as they guard state.
//
// A member names its guard (PELLOR_GUARDED_BY), an operation what its caller holds (PELLOR_REQUIRES). A task of a queue
// begins with the queue's `requireCurrent` (or `requireReader`), which checks at run time what the compiler then takes
// for granted. Macros, because an attribute that other compilers lack cannot be named otherwise; there they are empty.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

#ifdef __clang__
#define PELLOR_THREAD_ATTRIBUTE(...) __attribute__((__VA_ARGS__))
#else
#define PELLOR_THREAD_ATTRIBUTE(...)
#endif

/// On a class: its objects guard members of others. `kind` is named in the compiler's errors.
#define PELLOR_CAPABILITY(kind) PELLOR_THREAD_ATTRIBUTE(capability(kind))
/// On a class: an object holds a guard while it lives.
#define PELLOR_SCOPED_CAPABILITY PELLOR_THREAD_ATTRIBUTE(scoped_lockable)

/// On a member: it is read and written only by code that holds the guard; readers of a concurrent queue may read it
/// too.
#define PELLOR_GUARDED_BY(...) PELLOR_THREAD_ATTRIBUTE(guarded_by(__VA_ARGS__))

/// On an operation: the caller holds the guard, alone or as one of several readers.
#define PELLOR_REQUIRES(...) PELLOR_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define PELLOR_REQUIRES_READER(...) PELLOR_THREAD_ATTRIBUTE(requires_shared_capability(__VA_ARGS__))
/// On an operation: the caller does not hold it.
#define PELLOR_EXCLUDES(...) PELLOR_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))

/// On an operation: it takes the guard, gives it back, or returns only to callers that hold it.
#define PELLOR_ACQUIRES(...) PELLOR_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define PELLOR_RELEASES(...) PELLOR_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define PELLOR_ASSERTS(...) PELLOR_THREAD_ATTRIBUTE(assert_capability(__VA_ARGS__))
#define PELLOR_ASSERTS_READER(...) PELLOR_THREAD_ATTRIBUTE(assert_shared_capability(__VA_ARGS__))

/// On an operation: its body is not checked. A comment says why it is sound.
#define PELLOR_UNCHECKED PELLOR_THREAD_ATTRIBUTE(no_thread_safety_analysis)

namespace pellor {

/// A standard mutex that can guard members.
template <class StandardMutex>
class PELLOR_CAPABILITY("mutex") AnnotatedMutex {
 public:
  void lock() PELLOR_ACQUIRES() { _mutex.lock(); }
  void unlock() PELLOR_RELEASES() { _mutex.unlock(); }
  /// Checks nothing: tells the compiler, where it cannot see that two names are one mutex, that the caller holds it.
  void isHeld() const PELLOR_ASSERTS() {}

 private:
  friend class Condition;
  StandardMutex _mutex;
};

using Mutex = AnnotatedMutex<std::mutex>;
using RecursiveMutex = AnnotatedMutex<std::recursive_mutex>;

/// Holds a mutex while it lives.
template <class StandardMutex>
class PELLOR_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(AnnotatedMutex<StandardMutex>& mutex) PELLOR_ACQUIRES(mutex) : _mutex(&mutex) { mutex.lock(); }
  ~MutexLock() PELLOR_RELEASES() {
    if (_mutex) _mutex->unlock();
  }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  /// Ends the hold early.
  void unlock() PELLOR_RELEASES() { std::exchange(_mutex, nullptr)->unlock(); }

 private:
  AnnotatedMutex<StandardMutex>* _mutex;
};

/// Gives a mutex up while it lives, in the midst of a hold.
class PELLOR_SCOPED_CAPABILITY MutexUnlock {
 public:
  explicit MutexUnlock(Mutex& mutex) PELLOR_RELEASES(mutex) : _mutex(mutex) { mutex.unlock(); }
  ~MutexUnlock() PELLOR_RELEASES() { _mutex.lock(); }
  MutexUnlock(const MutexUnlock&) = delete;
  MutexUnlock& operator=(const MutexUnlock&) = delete;

 private:
  Mutex& _mutex;
};

/// A condition to wait for, on state that a mutex guards. May wake without a reason: look again.
class Condition {
 public:
  void wait(Mutex& mutex) PELLOR_REQUIRES(mutex) {
    std::unique_lock lock(mutex._mutex, std::adopt_lock);
    _condition.wait(lock);
    lock.release();
  }
  /// Not beyond `end`. Whether it returned before.
  bool waitUntil(Mutex& mutex, std::chrono::steady_clock::time_point end) PELLOR_REQUIRES(mutex) {
    std::unique_lock lock(mutex._mutex, std::adopt_lock);
    const auto status = _condition.wait_until(lock, end);
    lock.release();
    return status == std::cv_status::no_timeout;
  }
  void notifyOne() { _condition.notify_one(); }
  void notifyAll() { _condition.notify_all(); }

 private:
  std::condition_variable _condition;
};

/// State of one thread: members that it guards are used by the thread that said `isThisThread` and, before that thread
/// is started, by the thread that makes it.
class PELLOR_CAPABILITY("thread") ThreadRole {
 public:
  /// Checks nothing: says that the caller is that thread.
  void isThisThread() const PELLOR_ASSERTS() {}
};

}  // namespace pellor
