#include "pellor/runtime/DeadlineList.h"

#include <utility>

#include "pellor/runtime/internal/TimerState.h"

namespace pellor {

Deadline DeadlineList::add(TimerShot shot, double time) {
  const Deadline deadline{time, _nextOrder++};
  _shots.emplace(deadline, std::move(shot));
  return deadline;
}

void DeadlineList::removeAllOf(const Process& process) {
  std::erase_if(_shots, [&](const auto& entry) { return entry.second.process == &process; });
}

std::optional<double> DeadlineList::earliest() const {
  if (_shots.empty()) return std::nullopt;
  return _shots.begin()->first.time;
}

std::vector<TimerShot> DeadlineList::takeDue(double now) {
  std::vector<TimerShot> due;
  while (!_shots.empty() && _shots.begin()->first.time <= now) {
    due.push_back(std::move(_shots.begin()->second));
    _shots.erase(_shots.begin());
  }
  return due;
}

void fireAll(const std::vector<TimerShot>& shots) {
  for (const TimerShot& shot : shots) {
    if (const auto timer = shot.timer.lock()) timer->becomeDue(shot.generation);
  }
}

}  // namespace pellor
