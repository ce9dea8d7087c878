// The friends that two lists of a three-way merge have in common.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <unordered_map>
#include <vector>

#include "pellor/friends/internal/PLMergeSlots.h"

namespace pellor {

/// The form in which the person made of a stored form would be written.
using PLWrittenForm = std::function<Dictionary(const Dictionary&)>;
/// The slot of the other list that is the place of a slot; absent when the other list has no such page.
using PLSlotAtSamePlace = std::function<std::optional<std::uint64_t>(std::uint64_t)>;

/// Which friends of base are which of theirs, one to one. In a chunk that is the same object in both lists each friend
/// is the one in the same slot, without a look.
class PLFriendPairs {
 public:
  struct Pair {
    std::uint64_t base;
    std::uint64_t theirs;
  };

  /// Pairs friends, in this order: with equal GUIDs; with equal blocks; with equal names and a common destination; in
  /// one place, with equal names or equal destinations. Of several that fit the one in the same place, else the k-th in
  /// slot order with the k-th.
  PLFriendPairs(const PLMergeSlots& base, const PLMergeSlots& theirs, const PLWrittenForm& writtenForm,
                const PLSlotAtSamePlace& theirSlotAt);

  /// The slot of theirs of the friend in an occupied slot of base; absent when they removed the friend.
  std::optional<std::uint64_t> theirs(std::uint64_t baseSlot) const;
  /// The pairs outside the chunks that both lists share.
  const std::vector<Pair>& pairs() const { return _pairs; }
  /// The slots of friends of theirs that base has not, ascending.
  const std::vector<std::uint64_t>& additions() const { return _additions; }

 private:
  const PLMergeSlots* _base;
  const PLMergeSlots* _theirs;
  std::vector<Pair> _pairs;
  std::unordered_map<std::uint64_t, std::uint64_t> _theirSlots;
  std::vector<std::uint64_t> _additions;
};

/// Which of the friends that we added are such that they added as well: the GUIDs are equal, or neither has one and the
/// blocks are equal, or the names are and a destination is shared. By the slot of ours the slot of theirs.
std::unordered_map<std::uint64_t, std::uint64_t> addedByBoth(const PLMergeSlots& ours,
                                                             const std::vector<std::uint64_t>& ourAdditions,
                                                             const PLMergeSlots& theirs,
                                                             const std::vector<std::uint64_t>& theirAdditions,
                                                             const PLWrittenForm& writtenForm,
                                                             const PLSlotAtSamePlace& theirSlotAt);

}  // namespace pellor
