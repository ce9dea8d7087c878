// What we did to base, as a three-way merge sees it.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "pellor/friends/internal/PLMergeInput.h"
#include "pellor/friends/internal/PLMergePages.h"
#include "pellor/friends/internal/PLMergeSlots.h"

namespace pellor {

struct PLMergeEdits {
  struct SlotPair {
    std::uint64_t ours;
    std::uint64_t base;
  };

  std::vector<std::uint64_t> removed;               ///< slots of base, ascending
  std::vector<std::uint64_t> removedAutomatically;  ///< slots of base, ascending
  std::vector<SlotPair> moved;                      ///< to another place; in the order of ours
  std::vector<SlotPair> changed;                    ///< whose elements differ; in the order of ours
  std::vector<std::uint64_t> added;                 ///< slots of ours, ascending
  /// Chunks of ours in which some friend does not stand in the slot of the same index in base.
  PLFriendOrigins origins;
};

/// Looks only at chunks of ours that are not those of base, that `input.ourFriends` names, or whose pages are others.
PLMergeEdits ourEdits(const PLMergeInput& input, const PLMergeSlots& base, const PLMergeSlots& ours,
                      const PLOurPages& pages);

}  // namespace pellor
