// Which friends a clean-up takes out of the list.
#pragma once

#include <cstdint>
#include <vector>

namespace pellor {

class PLExceptions;
class PLSlotList;

// Friends whom an exception lets stay are not among them. Main queue.

/// The slots of friends whose record a friend in a lower slot has already, ascending; logs each.
std::vector<std::uint64_t> plRepeatedFriends(const PLSlotList& friends, const PLExceptions& exceptions);

/// The slots of friends without a destination, ascending; logs each.
std::vector<std::uint64_t> plDestinationlessFriends(const PLSlotList& friends, const PLExceptions& exceptions);

}  // namespace pellor
