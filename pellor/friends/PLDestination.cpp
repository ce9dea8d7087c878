#include "pellor/friends/PLDestination.h"

#include <algorithm>
#include <cstring>

#include "pellor/platform/Platform.h"

namespace pellor {
namespace {

constexpr std::string_view PhoneScheme = "tel:";
constexpr std::string_view EmailScheme = "mailto:";

// Which of the two characters a text holds without which it is a plain number or a name.
struct Marks {
  bool at = false;
  bool colon = false;

  void look(std::uint64_t eightCharacters) {
    at |= holds(eightCharacters, '@');
    colon |= holds(eightCharacters, ':');
  }

 private:
  // Taking 1 from each byte borrows from its highest bit where the byte is 0, which is where it is the character.
  static bool holds(std::uint64_t eightCharacters, char character) {
    constexpr std::uint64_t ones = 0x0101010101010101;
    const std::uint64_t difference = eightCharacters ^ ones * static_cast<unsigned char>(character);
    return ((difference - ones) & ~difference & ones << 7) != 0;
  }
};

// A load asks this of every friend's destinations, so it takes eight characters at a time; the last eight may overlap
// those before them.
Marks marksOf(std::string_view text) {
  Marks marks;
  std::uint64_t characters = 0;
  constexpr std::size_t size = sizeof characters;
  if (text.size() < size) {
    for (const char character : text) characters = characters << 8 | static_cast<unsigned char>(character);
    marks.look(characters);
    return marks;
  }
  const char* const last = text.data() + text.size() - size;
  for (const char* next = text.data();; next = std::min(next + size, last)) {
    std::memcpy(&characters, next, size);
    marks.look(characters);
    if (next == last) return marks;
  }
}

bool contains(std::string_view text, std::string_view part) { return text.find(part) != std::string_view::npos; }

const Platform& platform() { return platformOf(Process::current()); }

// Nearly every text is decided by its ASCII characters; the platform is asked about the others alone.
bool containsDecimalDigit(std::string_view text) {
  if (std::ranges::any_of(text, [](char c) { return c >= '0' && c <= '9'; })) return true;
  if (std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; })) return false;
  return platform().text->containsDecimalDigit(text);
}

struct DestinationKind {
  PLMessageDestinationType type;
  bool isIdentifier;
};

DestinationKind kindOf(std::string_view destination) {
  const Marks marks = marksOf(destination);
  const bool holdsEmailScheme = marks.colon && contains(destination, EmailScheme);
  const bool holdsPhoneScheme = marks.colon && contains(destination, PhoneScheme);
  const bool isIdentifier = holdsEmailScheme || holdsPhoneScheme;
  if (marks.at || holdsEmailScheme) return {PLMessageDestinationTypeEmail, isIdentifier};
  const bool isNumber = holdsPhoneScheme || containsDecimalDigit(destination);
  return {isNumber ? PLMessageDestinationTypePhoneNumber : PLMessageDestinationTypeUnknown, isIdentifier};
}

bool isRawAddress(DestinationKind kind) { return !kind.isIdentifier && kind.type != PLMessageDestinationTypeUnknown; }

std::string rawAddress(std::string_view destination, DestinationKind kind) {
  if (isRawAddress(kind)) return std::string(destination);
  return platform().reachability->rawAddressForDestination(destination);
}

// A number that holds no scheme, as nearly all, is not copied on its way.
std::optional<std::string> canonicalRawAddress(std::string_view destination, DestinationKind kind) {
  if (kind.type != PLMessageDestinationTypePhoneNumber) return rawAddress(destination, kind);
  ReachabilityService& service = *platform().reachability;
  if (!kind.isIdentifier) return service.comparableNumber(destination);
  return service.comparableNumber(service.rawAddressForDestination(destination));
}

void addSanitized(DestinationSet& sanitized, std::string_view destination) {
  const DestinationKind kind = kindOf(destination);
  if (kind.type == PLMessageDestinationTypeUnknown) return;
  auto canonical = canonicalRawAddress(destination, kind);
  require(canonical.has_value(), "an identity service that has an identifier for every phone number");
  // Most sets are sanitised already: each member goes behind the one before it.
  sanitized.insert(sanitized.end(), std::move(*canonical));
}

DestinationSet sanitizedStrings(const auto& destinations) {
  DestinationSet sanitized;
  for (const std::string& destination : destinations) addSanitized(sanitized, destination);
  return sanitized;
}

}  // namespace

PLMessageDestinationType plMessageDestinationType(std::string_view destination) { return kindOf(destination).type; }

bool plMessageIsRelayIdentifier(std::string_view destination) {
  return contains(destination, PhoneScheme) || contains(destination, EmailScheme);
}

bool plMessageIsRawAddress(std::string_view destination) { return isRawAddress(kindOf(destination)); }

std::optional<std::string> plMessageRelayIdentifier(std::string_view destination) {
  const DestinationKind kind = kindOf(destination);
  if (kind.isIdentifier) return std::string(destination);
  switch (kind.type) {
    case PLMessageDestinationTypeEmail:
      return platform().reachability->identifierForEmailAddress(destination);
    case PLMessageDestinationTypePhoneNumber:
      return platform().reachability->identifierForPhoneNumber(destination);
    case PLMessageDestinationTypeUnknown:
      break;
  }
  return std::nullopt;
}

std::string plMessageRawAddress(std::string_view destination) { return rawAddress(destination, kindOf(destination)); }

std::optional<std::string> plMessageCanonicalRawAddress(std::string_view destination) {
  return canonicalRawAddress(destination, kindOf(destination));
}

std::optional<std::string_view> plSanitizedDestination(std::string_view destination, std::string& room) {
  const DestinationKind kind = kindOf(destination);
  if (kind.type == PLMessageDestinationTypeUnknown) return std::nullopt;
  if (kind.type == PLMessageDestinationTypeEmail && isRawAddress(kind)) return destination;
  auto canonical = canonicalRawAddress(destination, kind);
  if (!canonical) return std::nullopt;
  room = *std::move(canonical);
  return room;
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
