// The system's clock in the library's seconds.
#pragma once

#include <chrono>

namespace pellor {

/// Seconds since 2001-01-01T00:00:00Z.
double wallClockNow();

/// The moment from which `wallClockNow` is at least `time`. Times more than a year ahead give a year from now: whoever
/// waits looks again.
std::chrono::system_clock::time_point wallClockTime(double time);

}  // namespace pellor
