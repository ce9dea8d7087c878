#include "pellor/runtime/WallClock.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace pellor {

namespace {
using std::chrono::steady_clock;
using std::chrono::system_clock;
constexpr double LongestWait = 365.0 * 86400;
}  // namespace

double wallClockNow() {
  const std::chrono::seconds zero(static_cast<std::int64_t>(SecondsFrom1970To2001));
  return std::chrono::duration<double>(system_clock::now().time_since_epoch() - zero).count();
}

steady_clock::time_point steadyTimeAfter(double seconds) {
  const double bounded = std::min(seconds, LongestWait);
  // Rounded up: a wait that ends a moment too early would be followed by another one.
  return steady_clock::now() + std::chrono::microseconds(static_cast<std::int64_t>(std::ceil(bounded * 1e6)) + 1);
}

}  // namespace pellor
