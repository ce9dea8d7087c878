// Whether a friend can receive messages, and who said so.
#pragma once

#include <optional>
#include <set>
#include <string>

#include "pellor/platform/ReachabilityService.h"

namespace pellor {

/// What is known of one friend: for each number and address what the messaging service last said, to this program or to
/// another one, perhaps long ago.
struct Reachability {
  DestinationStatus status = DestinationStatus::unspecified;  ///< the best one of the numbers and addresses
  std::optional<StatusAnswer> answer = {};                    ///< the one that decided; absent where none was kept
  std::set<std::string> reachable = {};  ///< the numbers and addresses that can receive messages, in canonical form
  friend bool operator==(const Reachability&, const Reachability&) = default;
};

}  // namespace pellor
