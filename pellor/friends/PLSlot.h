// The content of a slot, and the numbers of slots.
#pragma once

#include <cstdint>
#include <limits>
#include <memory>

namespace pellor {

class PLPerson;

/// What stands in a slot: a person or `EmptySlot`.
using Slot = std::shared_ptr<PLPerson>;

/// What stands in an unoccupied slot. Operations that return a person give this null for it.
inline const Slot EmptySlot{};

/// The value that stands for no position.
inline constexpr std::int64_t NotFound = std::numeric_limits<std::int64_t>::max();

/// The index, in the list of all slots, of a position in a group. All are numbered from 0; the result may wrap.
constexpr std::uint64_t slotIndex(std::uint64_t groupIndex, std::uint64_t groupSize, std::uint64_t position) {
  return groupIndex * groupSize + position;
}

}  // namespace pellor
