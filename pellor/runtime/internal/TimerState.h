// The state that a timer's handle, the deadline list and a firing task share.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "pellor/runtime/DeadlineList.h"
#include "pellor/runtime/Queue.h"

namespace pellor {

class Strand;

/// Each setting gets a generation; whatever a setting leaves behind (a place in the deadline list, a queued firing)
/// does nothing once the generation has moved on.
class TimerState : public std::enable_shared_from_this<TimerState> {
 public:
  /// `strand` and `queue` are two sides of one object.
  TimerState(std::shared_ptr<Queue> queue, Strand& strand, Task handler);

  void fireAt(double time);
  bool isValid() const;
  double now() const;
  void cancel();
  /// The time of a setting has come: queues the firing. From the holder of the deadline list, without a lock.
  void becomeDue(std::uint64_t generation);

 private:
  struct Setting {
    std::uint64_t generation;
    std::optional<Deadline> replaced;
  };
  std::optional<Setting> beginSetting();
  void arm(std::uint64_t generation, double time);
  void fire(std::uint64_t generation);

  const std::shared_ptr<Queue> _queue;
  Strand& _strand;

  // Never held while anything else is called.
  mutable Mutex _mutex;
  std::shared_ptr<const Task> _handler PELLOR_GUARDED_BY(_mutex);  // null after cancel
  std::uint64_t _generation PELLOR_GUARDED_BY(_mutex) = 0;
  bool _isPending PELLOR_GUARDED_BY(_mutex) = false;
  std::optional<Deadline> _deadline PELLOR_GUARDED_BY(_mutex);
};

}  // namespace pellor
