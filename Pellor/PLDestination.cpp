#include "Pellor/PLDestination.h"

#include <algorithm>

#include "platform/Platform.h"

namespace pellor {
namespace {

constexpr std::string_view PhoneScheme = "tel:";
constexpr std::string_view EmailScheme = "mailto:";
// The form in which the identity service compares numbers.
constexpr std::uint32_t ComparableNumberOption = 1;

bool contains(std::string_view text, std::string_view part) { return text.find(part) != std::string_view::npos; }

const Platform& platform() { return platformOf(Process::current()); }

// Nearly every text is decided by its ASCII characters; the platform is asked about the others alone.
bool containsDecimalDigit(std::string_view text) {
  if (std::ranges::any_of(text, [](char c) { return c >= '0' && c <= '9'; })) return true;
  if (std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; })) return false;
  return platform().text->containsDecimalDigit(text);
}

void addSanitized(DestinationSet& sanitized, const std::string& destination) {
  if (plMessageDestinationType(destination) == PLMessageDestinationTypeUnknown) return;
  auto canonical = plMessageCanonicalRawAddress(destination);
  require(canonical.has_value(), "an identity service that has an identifier for every phone number");
  sanitized.insert(std::move(*canonical));
}

DestinationSet sanitizedStrings(const auto& destinations) {
  DestinationSet sanitized;
  for (const std::string& destination : destinations) addSanitized(sanitized, destination);
  return sanitized;
}

}  // namespace

PLMessageDestinationType plMessageDestinationType(std::string_view destination) {
  if (contains(destination, "@") || contains(destination, EmailScheme)) return PLMessageDestinationTypeEmail;
  if (contains(destination, PhoneScheme)) return PLMessageDestinationTypePhoneNumber;
  if (containsDecimalDigit(destination)) return PLMessageDestinationTypePhoneNumber;
  return PLMessageDestinationTypeUnknown;
}

bool plMessageIsRelayIdentifier(std::string_view destination) {
  return contains(destination, PhoneScheme) || contains(destination, EmailScheme);
}

bool plMessageIsRawAddress(std::string_view destination) {
  return !plMessageIsRelayIdentifier(destination) &&
         plMessageDestinationType(destination) != PLMessageDestinationTypeUnknown;
}

std::optional<std::string> plMessageRelayIdentifier(std::string_view destination) {
  if (plMessageIsRelayIdentifier(destination)) return std::string(destination);
  switch (plMessageDestinationType(destination)) {
    case PLMessageDestinationTypeEmail:
      return platform().reachability->identifierForEmailAddress(destination);
    case PLMessageDestinationTypePhoneNumber:
      return platform().reachability->identifierForPhoneNumber(destination);
    case PLMessageDestinationTypeUnknown:
      break;
  }
  return std::nullopt;
}

std::string plMessageRawAddress(std::string_view destination) {
  if (plMessageIsRawAddress(destination)) return std::string(destination);
  return platform().reachability->rawAddressForDestination(destination);
}

std::optional<std::string> plMessageCanonicalRawAddress(std::string_view destination) {
  std::string rawAddress = plMessageRawAddress(destination);
  if (plMessageDestinationType(destination) != PLMessageDestinationTypePhoneNumber) return rawAddress;
  auto identifier =
      platform().reachability->identifierForPhoneNumberWithOptions(rawAddress, std::nullopt, ComparableNumberOption);
  if (!identifier) return std::nullopt;
  return plMessageRawAddress(*identifier);
}

DestinationSet plSanitizedDestinationSet(std::span<const Value> values) {
  DestinationSet sanitized;
  for (const Value& value : values) {
    if (const std::string* destination = value.string()) addSanitized(sanitized, *destination);
  }
  return sanitized;
}

DestinationSet plSanitizedDestinationSet(std::span<const std::string> destinations) {
  return sanitizedStrings(destinations);
}

DestinationSet plSanitizedDestinationSet(const DestinationSet& destinations) { return sanitizedStrings(destinations); }

}  // namespace pellor
