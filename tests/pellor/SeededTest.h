// Tests that run over many seeds, split into parts for ctest to run side by side. A failure prints the command that
// runs its seed alone.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>

namespace pellor {

/// Instantiate with `::testing::Range(std::uint64_t{0}, SeededTest::PartCount)`.
class SeededTest : public ::testing::TestWithParam<std::uint64_t> {
 public:
  static constexpr std::uint64_t PartCount = 20;

 protected:
  /// How many seeds: PELLOR_SEEDS in the environment, else `usual`, or `sanitized` where a sanitizer is linked in.
  static std::uint64_t seedCount(std::uint64_t usual, std::uint64_t sanitized) {
    return countOf("PELLOR_SEEDS", usual, sanitized);
  }
  /// The same of another variable.
  static std::uint64_t countOf(const char* variable, std::uint64_t usual, std::uint64_t sanitized);
  /// Runs this part's seeds of `count` in all, or the one of PELLOR_SEED, until one fails. PELLOR_SEED_MINUTES, a
  /// number of minutes for each part of each test, stands in place of a count: then as many run as there is time for,
  /// from PELLOR_FIRST_SEED on (usually 0, so that a change meets the seeds that the last one met), and how many is
  /// printed.
  void forEachSeed(std::uint64_t count, const std::function<void(std::uint64_t)>& run);

 private:
  void runForMinutes(std::uint64_t minutes, const std::function<void(std::uint64_t)>& run);
};

}  // namespace pellor
