// The system's clocks in the library's seconds.
#pragma once

#include <chrono>

namespace pellor {

/// How far the library's zero is behind that of POSIX.
inline constexpr double SecondsFrom1970To2001 = 978307200;

/// Seconds since 2001-01-01T00:00:00Z, as people see them: the clock may be set at any moment.
double wallClockNow();

/// The moment of the steady clock that is `seconds` from now. More than a year gives a year from now: a waiter looks
/// again.
std::chrono::steady_clock::time_point steadyTimeAfter(double seconds);

}  // namespace pellor
