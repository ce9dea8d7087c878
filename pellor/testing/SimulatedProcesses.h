// Processes of one simulated scheduler, each with what a test gives it.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <utility>

#include "pellor/runtime/Process.h"
#include "pellor/testing/SimulatedScheduler.h"

namespace pellor {

/// Processes that are numbered from 0 and made when they are first asked for, with `Services` each. What the suites of
/// `contract/` want of a factory whose services wait: `process` and `runUntil`. One thread.
template <class Services>
class SimulatedProcesses {
 public:
  using Make = std::function<std::unique_ptr<Services>(Process& process)>;

  /// `make` makes the services of a process, on its main queue. They end before their process does.
  explicit SimulatedProcesses(Make make) : _make(std::move(make)) {}

  Process& process(int number = 0) { return programAt(number).process; }
  Services& services(int number = 0) { return *programAt(number).services; }
  /// The number that the next process gets which was not asked for yet.
  int count() const { return static_cast<int>(_programs.size()); }

  /// Runs all processes until the condition holds, for at most ten seconds of virtual time. Returns whether it holds.
  bool runUntil(const std::function<bool()>& condition) { return _scheduler->runUntil(condition, 10); }

 private:
  struct Program {
    Program(const std::shared_ptr<Scheduler>& scheduler, const Make& make)
        : process(scheduler, nullptr), services(make(process)) {}
    Process process;
    const std::unique_ptr<Services> services;
  };

  Program& programAt(int number) {
    while (count() <= number) _programs.emplace_back(_scheduler, _make);
    return *std::next(_programs.begin(), number);
  }

  const Make _make;
  const std::shared_ptr<SimulatedScheduler> _scheduler = std::make_shared<SimulatedScheduler>(1);
  std::list<Program> _programs;
};

}  // namespace pellor
