#include "pellor/linux/contacts/internal/OfferedCards.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "pellor/linux/contacts/internal/CardFile.h"
#include "pellor/linux/contacts/internal/TableCards.h"
#include "pellor/linux/text/CardPieces.h"
#include "pellor/linux/text/CardText.h"

namespace pellor {

namespace {

OfferedCard unusableFile(std::string problem) { return {0, 0, {}, {}, std::move(problem)}; }

std::string withNetworkLineEnds(std::string_view text) {
  std::string result;
  result.reserve(text.size() + text.size() / 32);
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '\n' && (at == 0 || text[at - 1] != '\r')) result += '\r';
    result += text[at];
  }
  if (!result.ends_with("\r\n")) result += "\r\n";
  return result;
}

OfferedCard offeredCard(const CardPiece& piece, std::size_t number) {
  OfferedCard card{number, 0, nameInBrokenCard(piece.text), {}, piece.problem};
  if (piece.text.size() > CardSizeLimit) card.problem = "it is too large for a card";
  if (card.problem.empty()) card.text = withNetworkLineEnds(asUtf8Card(piece.text));
  return card;
}

}  // namespace

std::vector<OfferedCard> offeredCards(std::string bytes) {
  const std::string text = asCardLines(std::move(bytes));
  const bool isText = text.find('\0') == std::string::npos;
  if (isText && isContactTable(text)) return tableCards(asUtf8Card(text));
  const CardPieces pieces = cardPieces(text);
  if (pieces.pieces.empty()) return {unusableFile("the file is empty")};
  const auto isNoCard = [](const CardPiece& piece) { return piece.problem == "it has no BEGIN:VCARD"; };
  if (std::ranges::all_of(pieces.pieces, isNoCard))
    return {unusableFile("the file holds neither a vCard nor a table with columns of contacts")};
  std::vector<OfferedCard> cards;
  cards.reserve(pieces.pieces.size());
  for (const CardPiece& piece : pieces.pieces) cards.push_back(offeredCard(piece, cards.size() + 1));
  return cards;
}

}  // namespace pellor
