// Runs a process in real time until something has happened.
#pragma once

#include <algorithm>
#include <chrono>
#include <semaphore>

#include "runtime/Process.h"

namespace pellor {

/// Drives the main queue of a process of this thread.
class RealTime {
 public:
  explicit RealTime(Process& process) : _process(process) {
    _process.mainQueue().setWakeHandler([this] { _work.release(); });
  }
  ~RealTime() { _process.mainQueue().setWakeHandler(nullptr); }
  RealTime(const RealTime&) = delete;
  RealTime& operator=(const RealTime&) = delete;

  /// Whether it came to hold. Only a failing test waits for the whole limit.
  template <class Condition>
  bool runUntil(Condition condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
      if (std::chrono::steady_clock::now() > end) return false;
      if (_process.mainQueue().drain()) continue;
      if (!condition()) (void)_work.try_acquire_until(end);
    }
    return true;
  }

 private:
  Process& _process;
  std::counting_semaphore<> _work{0};
};

}  // namespace pellor
