#include "pellor/linux/text/CardPieces.h"

#include <unicode/unistr.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <utility>

#include "pellor/linux/text/CardText.h"

namespace pellor {

namespace {

constexpr std::string_view Utf8Mark = "\xEF\xBB\xBF";
constexpr std::string_view LittleEndianMark = "\xFF\xFE";
constexpr std::string_view BigEndianMark = "\xFE\xFF";
constexpr std::string_view Begin = "begin:vcard";
constexpr std::string_view End = "end:vcard";
constexpr char16_t ReplacementUnit = 0xFFFD;

// Units that are no half of a pair become replacement characters, and so does half a unit at the end.
std::string fromUtf16(std::string_view bytes, bool isLittleEndian) {
  icu::UnicodeString text;
  for (std::size_t at = 0; at + 1 < bytes.size(); at += 2) {
    const auto first = static_cast<unsigned char>(bytes[at]), second = static_cast<unsigned char>(bytes[at + 1]);
    text.append(static_cast<char16_t>(isLittleEndian ? first | second << 8 : first << 8 | second));
  }
  if (bytes.size() % 2 != 0) text.append(ReplacementUnit);
  std::string result;
  text.toUTF8String(result);
  return result;
}

char lowerCasedByte(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

/// Whether the text begins as a card does, in units of two bytes.
bool beginsInUtf16(std::string_view bytes, bool isLittleEndian) {
  if (bytes.size() < 2 * Begin.size()) return false;
  for (std::size_t index = 0; index < Begin.size(); ++index) {
    const char low = bytes[2 * index + (isLittleEndian ? 0 : 1)], high = bytes[2 * index + (isLittleEndian ? 1 : 0)];
    if (high != 0 || lowerCasedByte(low) != Begin[index]) return false;
  }
  return true;
}

bool isSame(std::string_view text, std::string_view lowerCase) {
  return std::ranges::equal(text, lowerCase, {}, [](char c) { return lowerCasedByte(c); });
}

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

std::string_view withoutBlanksAtEnd(std::string_view line) {
  while (!line.empty() && isBlank(line.back())) line.remove_suffix(1);
  return line;
}

bool isLine(std::string_view line, std::string_view wanted) { return isSame(withoutBlanksAtEnd(line), wanted); }

/// Whether lines end with a carriage return alone, as the first line of a card tells.
bool endsLinesWithReturns(std::string_view text) {
  constexpr std::string_view card = "vcard";
  for (std::size_t at = text.find('\r'); at != std::string_view::npos; at = text.find('\r', at + 1)) {
    const bool isBare = at + 1 < text.size() && text[at + 1] != '\n' && text[at + 1] != '\r';
    if (isBare && at >= Begin.size() && isSame(text.substr(at - card.size(), card.size()), card)) return true;
  }
  return false;
}

/// Of the digits that quoted-printable text has, in capital letters.
std::optional<char> byteOfHex(std::string_view digits) {
  constexpr std::string_view all = "0123456789ABCDEF";
  if (digits.size() < 2) return std::nullopt;
  const std::size_t high = all.find(digits[0]), low = all.find(digits[1]);
  if (high == std::string_view::npos || low == std::string_view::npos) return std::nullopt;
  return static_cast<char>(high * 16 + low);
}

std::string withLineFeeds(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t at = 0; at < text.size(); ++at) {
    const bool isPair = text[at] == '\r' && at + 1 < text.size() && text[at + 1] == '\n';
    if (!isPair) result += text[at] == '\r' ? '\n' : text[at];
  }
  return result;
}

class Splitter {
 public:
  explicit Splitter(std::string_view text) : _text(text) {}

  CardPieces split() {
    std::size_t start = 0;
    while (start < _text.size()) {
      const std::size_t end = std::min(_text.find('\n', start), _text.size());
      take(start, _text.substr(start, end - start));
      start = std::min(end + 1, _text.size());
    }
    _result.isCut = _depth > 0;
    if (_isOpen) close(_text.size(), _depth > 0 ? "it has no END:VCARD" : "it has no BEGIN:VCARD");
    return std::move(_result);
  }

 private:
  void take(std::size_t start, std::string_view line) {
    if (_depth == 0) return takeOutside(start, line);
    if (isLine(line, Begin)) {
      // Version 2.1 writes the card of somebody's agent below this property.
      if (cardPropertyName(_previous) == "agent") {
        ++_depth;
      } else {
        close(start, "it has no END:VCARD");
        open(start, 1);
      }
    } else if (isLine(line, End) && --_depth == 0) {
      close(start + line.size(), {});
    }
    _previous = line;
  }

  void takeOutside(std::size_t start, std::string_view line) {
    if (line.starts_with(Utf8Mark)) {  // files were put together to one
      start += Utf8Mark.size();
      line.remove_prefix(Utf8Mark.size());
    }
    if (isLine(line, Begin)) {
      if (_isOpen) close(start, "it has no BEGIN:VCARD");
      return open(start, 1);
    }
    if (!_isOpen && !withoutBlanksAtEnd(line).empty()) open(start, 0);
    if (isLine(line, End)) close(start + line.size(), "it has no BEGIN:VCARD");
  }

  void open(std::size_t start, std::size_t depth) {
    _isOpen = true;
    _start = start;
    _depth = depth;
  }

  void close(std::size_t end, std::string problem) {
    CardPiece piece{withoutBlanksAtEnd(_text.substr(_start, end - _start)), std::move(problem)};
    if (piece.problem.empty() && piece.text.find('\0') != std::string_view::npos)
      piece.problem = "it holds a zero byte";
    _result.pieces.push_back(std::move(piece));
    _isOpen = false;
    _depth = 0;
  }

  const std::string_view _text;
  CardPieces _result;
  std::string_view _previous;
  std::size_t _start = 0;
  std::size_t _depth = 0;  // cards inside one another; 0 outside of all
  bool _isOpen = false;    // a card, or lines that are none
};

}  // namespace

std::string asCardLines(std::string bytes) {
  for (const bool isLittleEndian : {true, false}) {
    const std::string_view mark = isLittleEndian ? LittleEndianMark : BigEndianMark;
    const bool isMarked = bytes.starts_with(mark);
    if (isMarked || beginsInUtf16(bytes, isLittleEndian))
      bytes = fromUtf16(std::string_view(bytes).substr(isMarked ? mark.size() : 0), isLittleEndian);
  }
  if (bytes.starts_with(Utf8Mark)) bytes.erase(0, Utf8Mark.size());
  return endsLinesWithReturns(bytes) ? withLineFeeds(bytes) : bytes;
}

CardPieces cardPieces(std::string_view text) { return Splitter(text).split(); }

std::string nameInBrokenCard(std::string_view card) {
  const std::string name = rawCardValue(card, "fn");
  if (name.find('=') == std::string::npos) return name;
  std::string decoded;
  for (std::size_t at = 0; at < name.size(); ++at) {
    const auto byte = name[at] == '=' ? byteOfHex(std::string_view(name).substr(at + 1, 2)) : std::nullopt;
    decoded += byte.value_or(name[at]);
    if (byte) at += 2;
  }
  decoded = cleanCardText(decoded);
  return isUtf8(decoded) ? decoded : name;
}

std::string rawCardValue(std::string_view card, std::string_view property) {
  while (!card.empty()) {
    const std::size_t end = std::min(card.find('\n'), card.size());
    const std::string_view line = card.substr(0, end);
    card.remove_prefix(std::min(end + 1, card.size()));
    const bool isCandidate = line.size() > property.size() && line.size() < 1024;
    if (!isCandidate || cardPropertyName(line) != property) continue;
    const std::string_view value = line.substr(std::min(line.find(':'), line.size() - 1) + 1);
    std::string text = cleanCardText(value);
    if (isUtf8(text)) return text;
  }
  return {};
}

}  // namespace pellor
