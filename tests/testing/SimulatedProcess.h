// A process of a simulated world, with its services at hand.
#pragma once

#include <functional>
#include <memory>

#include "testing/LogCollector.h"
#include "testing/SimulatedScheduler.h"
#include "testing/SimulatedWorld.h"

namespace pellor {

struct SimulatedProcess {
  SimulatedProcess(SimulatedWorld& world, const std::shared_ptr<Scheduler>& scheduler)
      : process(scheduler, nullptr), platform(world.makePlatform(process)) {}

  /// Runs `work` as this process.
  void run(const std::function<void()>& work) {
    const Process::Scope scope(process);
    work();
  }

  Process process;
  Platform platform;
};

}  // namespace pellor
