#include "tests/pellor/SeededTest.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

// Null where no sanitizer is linked in.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" void __sanitizer_set_death_callback(void (*)()) __attribute__((weak));

namespace pellor {
namespace {

const bool IsSanitized = __sanitizer_set_death_callback != nullptr;

std::optional<std::uint64_t> numberInEnvironment(const char* name) {
  const char* text = std::getenv(name);
  if (!text) return std::nullopt;
  return std::strtoull(text, nullptr, 10);
}

/// The command that runs the present seed alone.
std::string replayCommand;

void printReplayCommand() { std::fprintf(stderr, "%s\n", replayCommand.c_str()); }

void printReplayCommandOfSignal(int number) {
  printReplayCommand();
  std::signal(number, SIG_DFL);
}

/// A seed that ends the program, by a broken contract or invariant, prints its command as well.
void printReplayCommandAtDeath() {
  std::signal(SIGABRT, printReplayCommandOfSignal);
  if (IsSanitized) return __sanitizer_set_death_callback(printReplayCommand);
  std::signal(SIGSEGV, printReplayCommandOfSignal);
}

void setReplayCommand(std::uint64_t seed) {
  const auto program = std::filesystem::read_symlink("/proc/self/exe");
  const auto& test = *::testing::UnitTest::GetInstance()->current_test_info();
  replayCommand = "PELLOR_SEED=" + std::to_string(seed) + " " + program.string() +
                  " --gtest_filter=" + test.test_suite_name() + "." + test.name();
}

}  // namespace

std::uint64_t SeededTest::countOf(const char* variable, std::uint64_t usual, std::uint64_t sanitized) {
  return numberInEnvironment(variable).value_or(IsSanitized ? sanitized : usual);
}

void SeededTest::forEachSeed(std::uint64_t count, const std::function<void(std::uint64_t)>& run) {
  printReplayCommandAtDeath();
  const auto runSeed = [&](std::uint64_t seed) {
    setReplayCommand(seed);
    SCOPED_TRACE(replayCommand);
    run(seed);
  };
  if (const auto only = numberInEnvironment("PELLOR_SEED")) return runSeed(*only);
  if (const auto minutes = numberInEnvironment("PELLOR_SEED_MINUTES")) return runForMinutes(*minutes, runSeed);
  const std::uint64_t ownCount = (count + PartCount - 1) / PartCount;
  const std::uint64_t first = GetParam() * ownCount;
  for (std::uint64_t seed = first; seed < first + ownCount && !HasFailure(); ++seed) runSeed(seed);
}

// What a test does is simulated and takes no time of its own: only how many seeds there are depends on the machine.
void SeededTest::runForMinutes(std::uint64_t minutes, const std::function<void(std::uint64_t)>& run) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(minutes);
  const std::uint64_t first = numberInEnvironment("PELLOR_FIRST_SEED").value_or(0) + (GetParam() << 24U);
  std::uint64_t seed = first;
  while (std::chrono::steady_clock::now() < end && !HasFailure()) run(seed++);
  const auto& test = *::testing::UnitTest::GetInstance()->current_test_info();
  std::printf("%s: %llu seeds from %llu on\n", test.name(), static_cast<unsigned long long>(seed - first),
              static_cast<unsigned long long>(first));
}

}  // namespace pellor
