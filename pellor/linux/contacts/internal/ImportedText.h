// The text of a card that is copied into the contacts folder.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace pellor {

/// What is compared of a UID: programs write it with and without "urn:uuid:" in front.
std::string_view comparedUid(std::string_view uid);

/// A UID for a card that has none: the same one for the same names and values.
std::string uidMadeOf(std::int64_t valueHash);

/// The card with a UID as one of its first properties, before any other one.
std::string withUid(std::string_view card, std::string_view uid);

/// A hash of the card's lines but REV and PRODID, which exporters write anew each time.
std::int64_t comparedTextHash(std::string_view card);

}  // namespace pellor
