// Several processes of one thread, for tests of what they do to each other.
#pragma once

#include <algorithm>
#include <chrono>
#include <list>
#include <semaphore>

#include "pellor/runtime/Process.h"

namespace pellor {

/// Processes of the test's thread, served in turn. Their adapters are destroyed before.
class ServedProcesses {
 public:
  ~ServedProcesses() {
    for (Process& process : _processes) process.mainQueue().setWakeHandler(nullptr);
  }

  Process& at(int number) {
    while (_processes.size() <= static_cast<std::size_t>(number)) {
      _processes.emplace_back().mainQueue().setWakeHandler([this] { _work.release(); });
    }
    return *std::next(_processes.begin(), number);
  }

  /// False after a long time.
  template <class Condition>
  bool runUntil(Condition condition) {
    // Only a failing test waits that long.
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (std::chrono::steady_clock::now() < end) {
      bool isMore = false;
      for (Process& process : _processes) {
        const Process::Scope scope(process);
        isMore = process.mainQueue().drain() || isMore;
      }
      if (condition()) return true;
      if (!isMore) waitForWork(end);
    }
    return false;
  }

 private:
  /// Until a main queue has something to do or a timer of one is due.
  void waitForWork(std::chrono::steady_clock::time_point end) {
    double wait = std::chrono::duration<double>(end - std::chrono::steady_clock::now()).count();
    for (Process& process : _processes) {
      const auto deadline = process.mainQueue().nextDeadline();
      if (deadline) wait = std::min(wait, *deadline - process.now());
    }
    (void)_work.try_acquire_for(std::chrono::duration<double>(wait));
  }

  std::counting_semaphore<> _work{0};
  std::list<Process> _processes;
};

}  // namespace pellor
