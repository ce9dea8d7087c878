#include "Pellor/PLDestinationStatus.h"

#include <algorithm>

namespace pellor {

DestinationStatus betterDestinationStatus(DestinationStatus left, DestinationStatus right) {
  using enum DestinationStatus;
  if (left == valid || right == valid) return valid;
  const auto [smaller, larger] = std::minmax(left, right);
  return smaller == unknown && larger == invalid ? unknown : larger;
}

std::string destinationStatusName(DestinationStatus status) {
  switch (status) {
    case DestinationStatus::unspecified:
      return "unspecified";
    case DestinationStatus::unknown:
      return "unknown";
    case DestinationStatus::valid:
      return "valid";
    case DestinationStatus::invalid:
      return "invalid";
  }
  return std::to_string(static_cast<std::int64_t>(status));
}

}  // namespace pellor
