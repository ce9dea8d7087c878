// The armed timers of a main queue or of a pool, by their times.
#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace pellor {

class Process;
class TimerState;

/// The place of a timer in a list: timers of equal times come in the order in which they were set.
struct Deadline {
  double time = 0;
  std::uint64_t order = 0;
  friend auto operator<=>(const Deadline&, const Deadline&) = default;
};

/// One setting of a timer. A timer that was set again or cancelled since then ignores the shot.
struct TimerShot {
  std::weak_ptr<TimerState> timer;
  std::uint64_t generation = 0;
  const Process* process = nullptr;
};

/// Guarded by its owner's lock.
class DeadlineList {
 public:
  Deadline add(TimerShot shot, double time);
  void remove(Deadline deadline) { _shots.erase(deadline); }
  void removeAllOf(const Process& process);
  void clear() { _shots.clear(); }

  bool isFirst(Deadline deadline) const { return !_shots.empty() && _shots.begin()->first == deadline; }
  /// The earliest time; absent when the list is empty.
  std::optional<double> earliest() const;
  /// Takes what is due at `now` out of the list, in order. Fire it with `fireAll`, outside the lock.
  std::vector<TimerShot> takeDue(double now);

 private:
  std::map<Deadline, TimerShot> _shots;
  std::uint64_t _nextOrder = 0;
};

/// Queues the handlers of the timers that still wait for these shots. Called without a lock.
void fireAll(const std::vector<TimerShot>& shots);

}  // namespace pellor
