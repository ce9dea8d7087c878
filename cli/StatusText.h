// Statuses of destinations, for the user.
#pragma once

#include <string>

#include "pellor/platform/ReachabilityService.h"

namespace pellor::cli {

/// One character: "+" can receive messages, "-" cannot, "?" not known.
std::string statusMark(DestinationStatus status);

/// The status in words.
std::string statusText(DestinationStatus status);

}  // namespace pellor::cli
