// How reachable a friend is, by the statuses of its destinations.
#pragma once

#include <string>

#include "platform/ReachabilityService.h"

namespace pellor {

/// The better of two statuses: valid, then unknown, then invalid, then unspecified. That unknown beats invalid is an
/// exception to the order of the numbers: a friend of whom one destination may work is not written off. Any thread.
DestinationStatus betterDestinationStatus(DestinationStatus left, DestinationStatus right);

/// "unspecified", "unknown", "valid" or "invalid"; a number that stands for none of them as it is. Any thread.
std::string destinationStatusName(DestinationStatus status);

}  // namespace pellor
