#include "cli/StatusText.h"

namespace pellor::cli {

std::string statusMark(DestinationStatus status) {
  if (status == DestinationStatus::valid) return "+";
  return status == DestinationStatus::invalid ? "-" : "?";
}

std::string statusText(DestinationStatus status) {
  switch (status) {
    case DestinationStatus::valid:
      return "reachable";
    case DestinationStatus::invalid:
      return "not reachable";
    case DestinationStatus::unknown:
      return "unknown";
    case DestinationStatus::unspecified:
      break;
  }
  return "not asked yet";
}

}  // namespace pellor::cli
