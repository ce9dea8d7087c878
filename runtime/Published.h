// An immutable object that one thread replaces and others read.
#pragma once

#include <atomic>
#include <memory>
#include <utility>

#include "runtime/ThreadSafety.h"

namespace pellor {

/// Holds the latest published version of a T. `store` happens before every `load` that returns what it stored. Both may
/// be called from any thread; neither waits for more than the copy of one pointer, so a writer never waits for a
/// reader's work. (The standard library's atomic shared pointer is reported as a race by ThreadSanitizer.)
template <class T>
class Published {
 public:
  Published() = default;
  explicit Published(std::shared_ptr<const T> value) : _value(std::move(value)) {}
  Published(const Published&) = delete;
  Published& operator=(const Published&) = delete;

  std::shared_ptr<const T> load() const {
    const MutexLock lock(_busy);
    return _value;
  }

  void store(std::shared_ptr<const T> value) {
    // The previous version is destroyed by the caller's `value`, after the lock.
    const MutexLock lock(_busy);
    _value.swap(value);
  }

 private:
  /// Held for the copy of one pointer.
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
    std::atomic_flag _flag;  // set and cleared by whoever loads or stores, on any thread
  };

  mutable AnnotatedMutex<Flag> _busy;
  std::shared_ptr<const T> _value PELLOR_GUARDED_BY(_busy);
};

}  // namespace pellor
