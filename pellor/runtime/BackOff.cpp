#include "pellor/runtime/BackOff.h"

#include <algorithm>
#include <utility>

#include "pellor/runtime/Scheduler.h"

namespace pellor {

BackOff::BackOff(const Pauses& pauses, Scheduler* jitter) : _pauses(pauses), _jitter(jitter), _next(pauses.first) {}

double BackOff::next() {
  const double pause = std::exchange(_next, std::min(_next * _pauses.factor, _pauses.longest));
  if (!_jitter) return pause;
  const double part = static_cast<double>(_jitter->randomNumber() >> 11U) * 0x1p-53;
  return pause * part;
}

void BackOff::reset() { _next = _pauses.first; }

std::chrono::steady_clock::duration steadyDuration(double seconds) {
  return std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::duration<double>(seconds));
}

}  // namespace pellor
