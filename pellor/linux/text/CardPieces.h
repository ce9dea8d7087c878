// The text of a file of cards, and where each card of it begins and ends.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace pellor {

/// The bytes of a file of cards without a byte order mark, UTF-16 (also without that mark) as UTF-8, and with line
/// feeds at the ends of lines where these were carriage returns alone. All other texts stay as they are, byte for byte.
std::string asCardLines(std::string bytes);

/// A card of a text, or what should have been one.
struct CardPiece {
  std::string_view text;  ///< from BEGIN:VCARD to END:VCARD, as far as these are there
  std::string problem;    ///< why it is no card; empty when it is one
};

struct CardPieces {
  std::vector<CardPiece> pieces;  ///< as they follow one another; a card inside another one (AGENT) is part of that one
  bool isCut = false;             ///< whether the text ends inside the last card
};

/// The text has to outlive the result. Linear time.
CardPieces cardPieces(std::string_view text);

/// The first value of that property as it stands in the text, or what is on its first line; empty without one. For a
/// text that cannot be parsed.
std::string rawCardValue(std::string_view card, std::string_view property);

/// The formatted name on its first line, for people to find a card that cannot be parsed; quoted-printable is decoded
/// where UTF-8 comes of it. Empty without one.
std::string nameInBrokenCard(std::string_view card);

}  // namespace pellor
