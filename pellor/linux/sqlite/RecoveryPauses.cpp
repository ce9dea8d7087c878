#include "pellor/linux/sqlite/RecoveryPauses.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "pellor/linux/files/internal/FileLock.h"

namespace pellor {
namespace {

using std::chrono::microseconds;
using std::chrono::steady_clock;

LockPatience patience{std::chrono::seconds(3)};

// SQLite's hundred pauses begin short: together they are as long as so many that are not.
constexpr int FullPauses = 75;

}  // namespace

int RecoveryPauses::sleep(sqlite3_vfs*, int wanted) {
  const auto wait = std::chrono::duration_cast<microseconds>(patience.endOfWait() - steady_clock::now());
  const auto pause = std::min(microseconds(wanted), wait / FullPauses);
  std::this_thread::sleep_for(pause);
  return static_cast<int>(pause.count());
}

void RecoveryPauses::lose() { patience.lose(); }

}  // namespace pellor
