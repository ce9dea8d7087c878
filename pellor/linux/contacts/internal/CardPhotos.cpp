#include "pellor/linux/contacts/internal/CardPhotos.h"

#include <utility>

#include "pellor/linux/contacts/internal/CardPhoto.h"
#include "pellor/linux/text/CardPieces.h"
#include "pellor/linux/text/CardText.h"

namespace pellor {

std::optional<ContactPhoto> CardPhotos::photo(const std::string& file, std::int64_t textHash) {
  try {
    if (!take(file)) return std::nullopt;
  } catch (const CardSourceError&) {
    return std::nullopt;
  }
  const auto card = _file->cards.find(textHash);
  return card == _file->cards.end() ? std::nullopt : photoOfCard(card->second);
}

bool CardPhotos::take(const std::string& file) {
  const auto signature = _source->signature(file);
  if (!signature) return false;
  if (_file && _file->name == file && signature->isKnown() && _file->signature == *signature) return true;
  _file.reset();
  CardContent content = _source->read(file);
  if (!content.text) return false;
  auto read = std::make_unique<File>();
  read->name = file;
  read->signature = content.signature;
  read->text = asCardLines(std::move(*content.text));
  for (const CardPiece& piece : cardPieces(read->text).pieces) read->cards.emplace(contentHash(piece.text), piece.text);
  _file = std::move(read);
  return true;
}

}  // namespace pellor
