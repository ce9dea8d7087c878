// Runs a test under the threaded and under the simulated scheduler.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

#include "pellor/runtime/Process.h"
#include "pellor/runtime/internal/ThreadedScheduler.h"
#include "pellor/testing/SimulatedScheduler.h"

namespace pellor {

enum class SchedulerKind { threaded, simulated };

inline std::shared_ptr<Scheduler> makeScheduler(SchedulerKind kind, std::uint64_t seed = 1) {
  if (kind == SchedulerKind::threaded) return std::make_shared<ThreadedScheduler>();
  return std::make_shared<SimulatedScheduler>(seed);
}

/// A limit that only a test that hangs reaches.
constexpr double LongTime = 60;

class BothSchedulers : public testing::TestWithParam<SchedulerKind> {
 protected:
  bool settle() { return process->settle(LongTime); }
  bool isThreaded() const { return GetParam() == SchedulerKind::threaded; }

  std::shared_ptr<Scheduler> scheduler = makeScheduler(GetParam());
  std::unique_ptr<Process> process = std::make_unique<Process>(scheduler, nullptr);
};

inline std::string schedulerName(const testing::TestParamInfo<SchedulerKind>& info) {
  return info.param == SchedulerKind::threaded ? "threaded" : "simulated";
}

inline auto bothSchedulers() { return testing::Values(SchedulerKind::threaded, SchedulerKind::simulated); }

}  // namespace pellor
