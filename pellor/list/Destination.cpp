#include "pellor/list/Destination.h"

#include "pellor/friends/PLDestination.h"

namespace pellor {

DestinationKind destinationKind(std::string_view text) {
  switch (plMessageDestinationType(text)) {
    case PLMessageDestinationTypePhoneNumber:
      return DestinationKind::phoneNumber;
    case PLMessageDestinationTypeEmail:
      return DestinationKind::emailAddress;
    case PLMessageDestinationTypeUnknown:
      break;
  }
  return DestinationKind::neither;
}

std::string rawDestination(std::string_view text) { return plMessageRawAddress(text); }

std::optional<std::string> canonicalDestination(std::string_view text) { return plMessageCanonicalRawAddress(text); }

}  // namespace pellor
