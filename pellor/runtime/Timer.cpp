#include "pellor/runtime/Timer.h"

#include <utility>

#include "pellor/runtime/Fatal.h"
#include "pellor/runtime/Strand.h"
#include "pellor/runtime/internal/TimerState.h"

namespace pellor {

TimerState::TimerState(std::shared_ptr<Queue> queue, Strand& strand, Task handler)
    : _queue(std::move(queue)), _strand(strand), _handler(std::make_shared<const Task>(std::move(handler))) {}

std::optional<TimerState::Setting> TimerState::beginSetting() {
  const MutexLock lock(_mutex);
  if (!_handler) return std::nullopt;
  _isPending = true;
  return Setting{++_generation, std::exchange(_deadline, std::nullopt)};
}

void TimerState::fireAt(double time) {
  const auto setting = beginSetting();
  if (!setting) return;
  if (setting->replaced) _strand.clearDeadline(*setting->replaced);
  // Negated so that a time that is no number counts as passed.
  if (!(time > now())) return becomeDue(setting->generation);
  arm(setting->generation, time);
}

void TimerState::arm(std::uint64_t generation, double time) {
  const Deadline deadline = _strand.setDeadline(weak_from_this(), generation, time);
  {
    const MutexLock lock(_mutex);
    if (_generation == generation) {
      _deadline = deadline;
      return;
    }
  }
  // Cancelled meanwhile by another thread, which could not know the deadline yet.
  _strand.clearDeadline(deadline);
}

double TimerState::now() const { return _strand.now(); }

bool TimerState::isValid() const {
  const MutexLock lock(_mutex);
  return _isPending;
}

void TimerState::cancel() {
  // The handler is destroyed at the end, outside the lock: its captures may call back.
  std::shared_ptr<const Task> handler;
  std::optional<Deadline> deadline;
  {
    const MutexLock lock(_mutex);
    ++_generation;
    _isPending = false;
    handler = std::move(_handler);
    deadline = std::exchange(_deadline, std::nullopt);
  }
  if (deadline) _strand.clearDeadline(*deadline);
}

void TimerState::becomeDue(std::uint64_t generation) {
  {
    const MutexLock lock(_mutex);
    if (generation != _generation) return;
    _deadline.reset();
  }
  _queue->async([self = shared_from_this(), generation] { self->fire(generation); });
}

void TimerState::fire(std::uint64_t generation) {
  std::shared_ptr<const Task> handler;
  {
    const MutexLock lock(_mutex);
    if (generation != _generation) return;
    _isPending = false;
    handler = _handler;
  }
  (*handler)();
}

std::shared_ptr<Timer> Timer::make(Queue& queue, Task handler) {
  auto* strand = dynamic_cast<Strand*>(&queue);
  require(strand != nullptr, "a queue of this library for a timer");
  require(handler != nullptr, "a timer with a handler");
  return std::make_shared<Timer>(std::make_shared<TimerState>(queue.shared_from_this(), *strand, std::move(handler)));
}

std::shared_ptr<Timer> Timer::after(Queue& queue, double delay, Task handler) {
  auto timer = make(queue, std::move(handler));
  timer->fireAt(timer->_state->now() + delay);
  return timer;
}

Timer::Timer(std::shared_ptr<TimerState> state) : _state(std::move(state)) {}

Timer::~Timer() { _state->cancel(); }

void Timer::fireAt(double time) { _state->fireAt(time); }

bool Timer::isValid() const { return _state->isValid(); }

void Timer::cancel() { _state->cancel(); }

}  // namespace pellor
