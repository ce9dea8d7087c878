// The list that a three-way merge gives, made of the elements of the lists that it was given.
#pragma once

#include <cstdint>
#include <unordered_map>

#include "pellor/friends/internal/PLMergeInput.h"
#include "pellor/friends/internal/PLMergePlaces.h"
#include "pellor/friends/internal/PLMergeSlots.h"

namespace pellor {

struct PLMergeAssembly {
  const PLMergeSlots& theirs;
  const PLMergeSlots& ours;
  const PLMergePlaces& places;
  /// By the slot of theirs: the forms of friends of which we changed fields.
  const std::unordered_map<std::uint64_t, Value>& forms;
  std::uint64_t size;  ///< slots of the list
};

/// Puts list and `theirFriends` into the result. Chunks that are as theirs are theirs; elements are taken over without
/// being made.
void assembleList(const PLMergeAssembly& parts, PLMergeResult& result);

}  // namespace pellor
