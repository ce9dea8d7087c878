#include "pellor/friends/internal/PLRefreshHold.h"

#include <algorithm>

#include "pellor/friends/PLBundle.h"
#include "pellor/platform/Platform.h"

namespace pellor {
namespace {

// The wall clock, by which refreshes are held back, may be set meanwhile.
constexpr double LongestPause = 60.0 * 60;
constexpr double ShortestPause = 1;
constexpr const char* Operation = "refreshAgainstAddressBook";

}  // namespace

bool PLRefreshHold::holdsBack() {
  const auto fall = platformOf(_process).addressBook->contactsFall();
  if (!fall) {
    if (isHolding()) _PLGetLogSystem().log(LogFormat("refreshing friends is held back no longer").as(Operation));
    _timer = nullptr;
    return false;
  }
  if (!isHolding()) {
    _PLGetLogSystem().log(
        LogFormat("refreshing friends is held back: only %lu of %lu contacts are there").as(Operation), fall->now,
        fall->before);
  }
  const double pause = std::clamp(fall->secondsLeft, ShortestPause, LongestPause);
  _timer = Timer::after(_process.mainQueue(), pause, _refresh);
  return true;
}

void PLRefreshHold::noteRefresh() { platformOf(_process).addressBook->noteRefresh(); }

}  // namespace pellor
