#include "linux/RecoveryPauses.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

namespace pellor {
namespace {

using std::chrono::steady_clock;

// A hundred of them, which begin short, are 2.8 seconds.
constexpr std::chrono::microseconds LongestPause{40'000}, PauseAfterLoss{500};
constexpr std::chrono::minutes TimeOfShortPauses{1};

// Steady time; written by any thread that waited.
std::atomic<steady_clock::duration> lostUntil{};

}  // namespace

int RecoveryPauses::sleep(sqlite3_vfs*, int microseconds) {
  const bool isLost = steady_clock::now().time_since_epoch() < lostUntil.load();
  const auto pause = std::min(std::chrono::microseconds(microseconds), isLost ? PauseAfterLoss : LongestPause);
  std::this_thread::sleep_for(pause);
  return static_cast<int>(pause.count());
}

void RecoveryPauses::lose() { lostUntil = (steady_clock::now() + TimeOfShortPauses).time_since_epoch(); }

}  // namespace pellor
