// Destinations: strings through which a person is reached.
//
// A destination is a raw address (a phone number as somebody typed it, a bare e-mail address) or an identifier, which
// is the raw address behind "tel:" or "mailto:". Destinations are stored, indexed and compared in their canonical raw
// form alone, so that one person reached through differently written numbers is one person.
//
// All operations are pure functions of their input and of the platform's answers, and run on any thread that has a
// current process.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/runtime/Value.h"

namespace pellor {

/// Destinations in their one order.
using DestinationSet = std::set<std::string>;

enum PLMessageDestinationType : std::int64_t {
  PLMessageDestinationTypeUnknown = 0,      ///< neither of the others
  PLMessageDestinationTypePhoneNumber = 1,  ///< a phone number, raw or behind "tel:"
  PLMessageDestinationTypeEmail = 2,        ///< an e-mail address, raw or behind "mailto:"
};

/// What kind of destination the text is. "@" wins over everything, then "mailto:", then "tel:"; any other text with a
/// decimal digit of any script is a phone number, words included. All are looked for anywhere in the text.
PLMessageDestinationType plMessageDestinationType(std::string_view destination);

/// Whether the text holds "tel:" or "mailto:", wherever it stands.
bool plMessageIsRelayIdentifier(std::string_view destination);

/// Whether the text is a phone number or an e-mail address that holds neither scheme.
bool plMessageIsRawAddress(std::string_view destination);

/// The identifier of the destination: itself when it is one, else what the identity service makes of the address.
/// Absent for a text of unknown type and when the service cannot make one.
std::optional<std::string> plMessageRelayIdentifier(std::string_view destination);

/// The destination itself when it is a raw address, else what the identity service finds behind the scheme;
/// a text of unknown type is its own.
std::string plMessageRawAddress(std::string_view destination);

/// The one spelling under which a destination is stored and compared. Phone numbers take the identity service's
/// normalised form; everything else is the raw address unchanged, letter case included. Absent for a phone number that
/// the service has no identifier for.
std::optional<std::string> plMessageCanonicalRawAddress(std::string_view destination);

/// The canonical raw form of a phone number or an e-mail address, seen in `destination` where that is its own form at
/// first sight, else in `room`. Absent for a text of unknown type, and for a phone number without one.
std::optional<std::string_view> plSanitizedDestination(std::string_view destination, std::string& room);

/// The canonical raw forms of the members that are phone numbers or e-mail addresses. Equal forms merge; members that
/// are no strings or of unknown type are left out; the result may be empty. The identity service must have an
/// identifier for every phone number: a missing one ends the program.
DestinationSet plSanitizedDestinationSet(std::span<const Value> values);
DestinationSet plSanitizedDestinationSet(std::span<const std::string> destinations);
DestinationSet plSanitizedDestinationSet(const DestinationSet& destinations);

}  // namespace pellor
