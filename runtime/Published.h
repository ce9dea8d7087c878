// An immutable object that one thread replaces and others read.
#pragma once

#include <atomic>
#include <memory>
#include <utility>

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
    Hold hold(_busy);
    return _value;
  }

  void store(std::shared_ptr<const T> value) {
    Hold hold(_busy);
    // The previous version is destroyed by the caller's `value`, after the hold has ended.
    _value.swap(value);
    hold.end();
  }

 private:
  class Hold {
   public:
    explicit Hold(std::atomic_flag& flag) : _flag(&flag) {
      while (_flag->test_and_set(std::memory_order_acquire)) _flag->wait(true, std::memory_order_relaxed);
    }
    ~Hold() { end(); }
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;
    void end() {
      if (!_flag) return;
      _flag->clear(std::memory_order_release);
      _flag->notify_one();
      _flag = nullptr;
    }

   private:
    std::atomic_flag* _flag;
  };

  mutable std::atomic_flag _busy;
  std::shared_ptr<const T> _value;
};

}  // namespace pellor
