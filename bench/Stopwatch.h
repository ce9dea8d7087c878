// What is timed, when getting there is not.
#pragma once

#include <benchmark/benchmark.h>

#include <chrono>

namespace pellor::bench {

class Stopwatch {
 public:
  using Clock = std::chrono::steady_clock;

  double seconds() const { return std::chrono::duration<double>(Clock::now() - _begin).count(); }

 private:
  const Clock::time_point _begin = Clock::now();
};

/// Times `work` as one iteration of a benchmark with manual time.
template <class Work>
void time(benchmark::State& state, Work work) {
  const Stopwatch watch;
  work();
  state.SetIterationTime(watch.seconds());
}

}  // namespace pellor::bench
