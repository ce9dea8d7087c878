// How a save finds out which persons changed since the last one.
#pragma once

#include <atomic>
#include <cstdint>
#include <limits>

namespace pellor {

/// The counts of one process: `process.local<PLPersonChanges>()`. Any thread.
struct PLPersonChanges {
  /// How often persons were marked as needing a save. A save that reads the same number as the save before it need not
  /// look at any person: a mark first sets the person's flag and then counts (release); who reads the count (acquire)
  /// before it takes the flags finds the flag of every mark that was counted.
  std::atomic<std::uint64_t> marks{0};  // counted by whoever sets a flag: main, metadata and save queues
  /// How often what is persisted of persons became something else, marked or not.
  std::atomic<std::uint64_t> changes{0};  // counted by whoever changed something: main and metadata queues
};

/// The number of a person's last change among all changes of the process. Whoever keeps something that was made of the
/// person reads `PLPersonChanges::changes` first (acquire), then makes it: it holds as long as the person's number is
/// not larger. Several threads may be changing one person.
class PLChangeNumber {
 public:
  static constexpr std::uint64_t Changing = std::numeric_limits<std::uint64_t>::max();

  /// The number; `Changing` while a change is under way.
  std::uint64_t number() const {
    const std::uint64_t state = _state.load(std::memory_order_acquire);
    return state >= kOneChange ? Changing : state;
  }

  /// Before what is persisted becomes something else; a change that is queued begins when it is queued. Who reads the
  /// new count finds the change under way.
  void begin(PLPersonChanges& changes) {
    _state.fetch_add(kOneChange, std::memory_order_acq_rel);
    changes.changes.fetch_add(1, std::memory_order_acq_rel);
  }
  /// After it has. Counted while it still reads as under way: who reads the new count never finds the old number.
  void end(PLPersonChanges& changes) {
    const std::uint64_t number = 1 + changes.changes.fetch_add(1, std::memory_order_acq_rel);
    std::uint64_t state = _state.load(std::memory_order_relaxed);
    std::uint64_t ended = 0;
    do {
      const std::uint64_t others = (state / kOneChange - 1) * kOneChange;
      ended = others + (state % kOneChange < number ? number : state % kOneChange);
    } while (!_state.compare_exchange_weak(state, ended, std::memory_order_acq_rel, std::memory_order_relaxed));
  }

 private:
  static constexpr std::uint64_t kOneChange = std::uint64_t{1} << 40U;

  // How many changes are under way, and below that the number of the last one that ended.
  std::atomic<std::uint64_t> _state{0};  // changed by whoever changes the person
};

}  // namespace pellor
