// How reachable a friend is, by the statuses of its destinations.
#pragma once

#include <string>
#include <unordered_map>

#include "pellor/friends/PLDestination.h"
#include "pellor/platform/ReachabilityService.h"
#include "pellor/runtime/Value.h"

namespace pellor {

/// The better of two statuses: valid, then unknown, then invalid, then unspecified. That unknown beats invalid is an
/// exception to the order of the numbers: a friend with a destination that may work is not written off. Any thread.
DestinationStatus betterDestinationStatus(DestinationStatus left, DestinationStatus right);

/// "unspecified", "unknown", "valid" or "invalid"; the number itself when it stands for none of them. Any thread.
std::string destinationStatusName(DestinationStatus status);

/// The statuses as numbers, for lines of the log and notifications. Any thread.
Dictionary destinationStatusNumbers(const DestinationStatuses& statuses);

/// What is known of destinations, by their canonical forms. Other forms are unknown to it. Main queue.
class PLDestinationStatusCache {
 public:
  /// Takes these statuses over; those of other destinations stay as they were.
  void update(const DestinationStatuses& statuses);

  /// Unspecified for a destination that no update has named.
  DestinationStatus status(const std::string& destination) const;
  /// Whether any destination at all is valid.
  bool hasValid() const;
  /// Those of `destinations` that are valid.
  DestinationSet validAmong(const DestinationSet& destinations) const;
  /// Whether any of `destinations` is valid.
  bool hasValidAmong(const DestinationSet& destinations) const;

 private:
  bool isValid(const std::string& destination) const { return status(destination) == DestinationStatus::valid; }

  std::unordered_map<std::string, DestinationStatus> _statuses;
};

}  // namespace pellor
