#include "pellor/linux/contacts/internal/ImportedText.h"

#include <algorithm>
#include <vector>

#include "pellor/linux/files/internal/NettleDigest.h"
#include "pellor/linux/text/CardText.h"

namespace pellor {

namespace {

constexpr std::string_view UuidScheme = "urn:uuid:";
constexpr std::string_view LineEnd = "\r\n";

/// The first line, with its end.
std::string_view firstLine(std::string_view text) {
  return text.substr(0, std::min(text.find('\n'), text.size() - 1) + 1);
}

}  // namespace

std::string_view comparedUid(std::string_view uid) {
  const bool hasScheme = lowerCased(uid.substr(0, UuidScheme.size())) == UuidScheme;
  return hasScheme ? uid.substr(UuidScheme.size()) : uid;
}

std::string uidMadeOf(std::int64_t valueHash) {
  const std::string text = "contact " + std::to_string(valueHash);
  auto digest = NettleDigest().sha1(std::vector<std::uint8_t>(text.begin(), text.end()));
  digest[6] = static_cast<std::uint8_t>((digest[6] & 0x0FU) | 0x80U);  // version 8: made by a rule of one's own
  digest[8] = static_cast<std::uint8_t>((digest[8] & 0x3FU) | 0x80U);
  std::string uid(UuidScheme);
  for (std::size_t index = 0; index < 16; ++index) {
    constexpr std::string_view digits = "0123456789abcdef";
    if (index == 4 || index == 6 || index == 8 || index == 10) uid += '-';
    uid += digits[digest[index] >> 4U];
    uid += digits[digest[index] & 0x0FU];
  }
  return uid;
}

std::string withUid(std::string_view card, std::string_view uid) {
  std::size_t place = firstLine(card).size();
  // Version 4 wants VERSION to come first.
  if (cardPropertyName(firstLine(card.substr(place))) == "version") place += firstLine(card.substr(place)).size();
  std::string text(card.substr(0, place));
  text += "UID:";
  text += uid;
  text += LineEnd;
  text += card.substr(place);
  return text;
}

std::int64_t comparedTextHash(std::string_view card) {
  std::string compared;
  bool isLeftOut = false;
  while (!card.empty()) {
    const std::string_view line = firstLine(card);
    card.remove_prefix(line.size());
    const bool isContinuation = line.starts_with(' ') || line.starts_with('\t');
    if (!isContinuation) {
      const std::string name = cardPropertyName(line);
      isLeftOut = name == "rev" || name == "prodid";
    }
    if (!isLeftOut) compared += line;
  }
  return contentHash(compared);
}

}  // namespace pellor
