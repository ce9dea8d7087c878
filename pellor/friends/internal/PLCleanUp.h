// Which friends a clean-up takes out of the list.
#pragma once

#include <cstdint>
#include <vector>

namespace pellor {

class PLSlotList;

/// The slots of friends whose record a friend in a lower slot has already, ascending; logs each. Main queue.
std::vector<std::uint64_t> plRepeatedFriends(const PLSlotList& friends);

/// The slots of friends without a destination, ascending; logs each. Main queue.
std::vector<std::uint64_t> plDestinationlessFriends(const PLSlotList& friends);

}  // namespace pellor
