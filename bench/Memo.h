// The yardstick for a form that is known already.
#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

#include "bench/Friends.h"

namespace pellor::bench {

/// Some numbers in canonical form.
inline std::vector<std::string> canonicalNumbers() {
  std::vector<std::string> numbers;
  for (std::size_t number = 0; number < 240; ++number) numbers.push_back(personAt(number).phones.front());
  return numbers;
}

/// Hits in a memo of their forms.
inline void memoHit(benchmark::State& state) {
  const std::vector<std::string> numbers = canonicalNumbers();
  std::unordered_map<std::string, std::string> memo;
  for (const std::string& number : numbers) memo.emplace(number, number);
  std::size_t next = 0;
  for (auto _ : state) {
    std::string form = memo.find(numbers[next])->second;
    benchmark::DoNotOptimize(form);
    if (++next == numbers.size()) next = 0;
  }
}

}  // namespace pellor::bench
