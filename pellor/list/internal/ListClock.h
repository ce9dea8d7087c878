// The time by which a list keeps what it keeps for a while.
#pragma once

#include <functional>

#include "pellor/runtime/WallClock.h"

namespace pellor {

/// One a process, by `Process::local`. A test puts its own in its place. Main queue.
struct ListClock {
  /// The wall clock, in seconds since 1970-01-01T00:00:00Z.
  std::function<double()> now = [] { return wallClockNow() + SecondsFrom1970To2001; };
};

}  // namespace pellor
