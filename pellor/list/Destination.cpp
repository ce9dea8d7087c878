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

// The case of an address may matter to its server; for finding it does not.
std::optional<std::string> comparableDestination(std::string_view text) {
  const DestinationKind kind = destinationKind(text);
  if (kind == DestinationKind::neither) return std::nullopt;
  auto canonical = canonicalDestination(text);
  if (!canonical || kind == DestinationKind::phoneNumber) return canonical;
  for (char& letter : *canonical)
    if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
  return canonical;
}

}  // namespace pellor
