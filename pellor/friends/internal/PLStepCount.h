// Tells a save whether what it looked at may be a part of a step.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

#include "pellor/friends/detail/PLPersonChanges.h"

namespace pellor {

/// A moment at which no step was being made.
struct PLStepMoment {
  std::uint64_t steps = 0;    ///< that had been made
  std::uint64_t changes = 0;  ///< of persons (PLPersonChanges::changes), counted before
};

/// Counts the steps of one list. Its invariant: what a save looked at between a moment and a question that is answered
/// by no has each step in whole or not at all. The editing thread waits for nobody.
class PLStepCount {
 public:
  explicit PLStepCount(const PLPersonChanges& changes) : _changes(changes) {}

  // Main queue. Everything that a step publishes and marks lies between its begin and its end.
  void begin() { _count.fetch_add(1, std::memory_order_acq_rel); }
  /// The number of the step.
  std::uint64_t end() { return (_count.fetch_add(1, std::memory_order_acq_rel) + 1) / 2; }
  /// What was begun is no step: saves that looked meanwhile have seen no part of one.
  void cancel() { _count.fetch_sub(1, std::memory_order_acq_rel); }
  /// How many have been made.
  std::uint64_t made() const { return _count.load(std::memory_order_acquire) / 2; }
  bool isMaking() const { return _count.load(std::memory_order_acquire) % 2 == 1; }

  // Any thread.
  /// Absent while a step is being made.
  std::optional<PLStepMoment> moment() const {
    const std::uint64_t changes = _changes.changes.load(std::memory_order_acquire);
    const std::uint64_t count = _count.load(std::memory_order_acquire);
    return count % 2 == 1 ? std::nullopt : std::optional(PLStepMoment{count / 2, changes});
  }
  /// Whether a look at persons since then may have seen a part of a later step: persons changed, and one was begun.
  bool mayHaveSeenPart(const PLStepMoment& since) const {
    return _count.load(std::memory_order_acquire) != 2 * since.steps &&
           _changes.changes.load(std::memory_order_acquire) != since.changes;
  }

 private:
  const PLPersonChanges& _changes;
  std::atomic<std::uint64_t> _count{0};  // two for each step, one while it is being made; counted on the main queue
};

}  // namespace pellor
