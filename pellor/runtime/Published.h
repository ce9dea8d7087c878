// A value that one thread replaces and others read.
#pragma once

#include <atomic>
#include <utility>

#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

/// Holds the latest published version of a value that is cheap to copy: a pointer to something immutable, or a handle.
/// `store` happens before every `load` that returns what it stored. Both may be called from any thread; neither waits
/// for more than one copy, so a writer never waits for a reader's work. (The standard library's atomic shared pointer
/// is reported as a race by ThreadSanitizer.)
template <class T>
class Published {
 public:
  Published() = default;
  explicit Published(T value) : _value(std::move(value)) {}
  Published(const Published&) = delete;
  Published& operator=(const Published&) = delete;

  T load() const {
    const MutexLock lock(_busy);
    return _value;
  }

  void store(T value) {
    using std::swap;
    // The previous version is destroyed by the caller's `value`, after the lock.
    const MutexLock lock(_busy);
    swap(_value, value);
  }

  /// The present version, without a copy: for the one thread that stores, until it stores again.
  const T& own() const PELLOR_UNCHECKED { return _value; }

 private:
  /// Held for one copy.
  class Flag {
   public:
    void lock() {
      while (_flag.test_and_set(std::memory_order_acquire)) _flag.wait(true, std::memory_order_relaxed);
    }
    void unlock() {
      _flag.clear(std::memory_order_release);
      _flag.notify_one();
    }

   private:
    std::atomic_flag _flag;  // set and cleared by each load and store, on any thread
  };

  mutable AnnotatedMutex<Flag> _busy;
  T _value PELLOR_GUARDED_BY(_busy){};
};

}  // namespace pellor
