// The yardstick for a form that is known already.
#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

#include "bench/Friends.h"

namespace pellor::bench {

/// Times hits in a memo of the canonical forms of some numbers, each given as a string of its own.
inline void timeMemoHits(benchmark::State& state) {
  constexpr std::size_t count = 240;
  std::vector<std::string> texts;
  std::unordered_map<std::string, std::string> memo;
  for (std::size_t number = 0; number < count; ++number) {
    texts.push_back(personAt(number).phones.front());
    memo.emplace(texts.back(), texts.back());
  }
  std::size_t next = 0;
  for (auto _ : state) {
    std::string form = memo.find(texts[next])->second;
    benchmark::DoNotOptimize(form);
    if (++next == count) next = 0;
  }
}

}  // namespace pellor::bench
