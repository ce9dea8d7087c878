// How a save finds out which persons changed since the last one.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace pellor {

class PLPerson;

/// The persons that were touched lately, that is, changed or marked as needing a save. A change is a touch before it is
/// counted, and one more after it has ended where another thread may look meanwhile; a mark is a touch after the flag
/// is set. So a reader that finds both counts as they were knows of every change that was counted before, and of every
/// flag.
class PLTouches {
 public:
  /// A touch on the main queue. The person is remembered, not kept.
  void note(const PLPerson& person) {
    const std::uint64_t count = _count.load(std::memory_order_relaxed);
    _persons[count % _persons.size()] = &person;
    _count.store(count + 1, std::memory_order_release);
  }
  /// A touch anywhere else, of somebody. Any thread.
  void noteElsewhere() { _countElsewhere.fetch_add(1, std::memory_order_acq_rel); }

  /// How many there were on the main queue, and elsewhere. Any thread.
  std::uint64_t count() const { return _count.load(std::memory_order_acquire); }
  std::uint64_t countElsewhere() const { return _countElsewhere.load(std::memory_order_acquire); }

  /// Calls `visit` with each person noted after the first `seen` ones, some of which may be gone; false when they are
  /// not all remembered. Main queue.
  template <class Visit>
  bool visitSince(std::uint64_t seen, Visit visit) const {
    const std::uint64_t end = count();
    if (end - seen > _persons.size()) return false;
    for (; seen < end; ++seen) visit(_persons[seen % _persons.size()]);
    return true;
  }

 private:
  static constexpr std::size_t Remembered = 256;
  std::array<const PLPerson*, Remembered> _persons{};  // main queue
  std::atomic<std::uint64_t> _count{0};                // counted on the main queue
  std::atomic<std::uint64_t> _countElsewhere{0};       // counted at touches on other threads
};

/// The counts of one process: `process.local<PLPersonChanges>()`. Any thread.
struct PLPersonChanges {
  /// How often persons were marked as needing a save. A save that reads the number that the save before it read need
  /// not look at any person: a mark first sets the person's flag and then counts (release); a save that reads the count
  /// (acquire) before it takes the flags finds the flag of every mark that was counted.
  std::atomic<std::uint64_t> marks{0};  // counted where a flag is set: main, metadata and save queues
  /// How often persisted fields of persons became something else, marked or not.
  std::atomic<std::uint64_t> changes{0};  // counted at each change: main and metadata queues
  PLTouches touches;
  /// The number of the metadata snapshot that lives; 0: none does.
  std::atomic<std::uint64_t> metadataSnapshot{0};  // set on the main queue, with no task of the metadata queue running
};

/// The number of a person's last change among all changes of the process. Code that keeps something made of the person
/// reads `PLPersonChanges::changes` first (acquire), then makes it: it holds as long as the person's number is not
/// larger. Several threads may be changing one person.
class PLChangeNumber {
 public:
  static constexpr std::uint64_t Changing = std::numeric_limits<std::uint64_t>::max();

  /// The number; `Changing` while a change is under way.
  std::uint64_t number() const {
    const std::uint64_t state = _state.load(std::memory_order_acquire);
    return state >= OneChange ? Changing : state;
  }

  /// Before a persisted field becomes something else; a change that is queued begins when it is queued. A reader of the
  /// new count finds the change under way.
  void begin(PLPersonChanges& changes) {
    _state.fetch_add(OneChange, std::memory_order_acq_rel);
    changes.changes.fetch_add(1, std::memory_order_acq_rel);
  }
  /// After it has. Counted while it still reads as under way: a reader of the new count never finds the old number.
  void end(PLPersonChanges& changes) {
    const std::uint64_t number = 1 + changes.changes.fetch_add(1, std::memory_order_acq_rel);
    std::uint64_t state = _state.load(std::memory_order_relaxed);
    std::uint64_t ended = 0;
    do {
      const std::uint64_t others = (state / OneChange - 1) * OneChange;
      ended = others + (state % OneChange < number ? number : state % OneChange);
    } while (!_state.compare_exchange_weak(state, ended, std::memory_order_acq_rel, std::memory_order_relaxed));
  }

 private:
  static constexpr std::uint64_t OneChange = std::uint64_t{1} << 40U;

  // How many changes are under way, and below that the number of the last one that ended.
  std::atomic<std::uint64_t> _state{0};  // changed at the begin and end of each change, on any thread
};

}  // namespace pellor
