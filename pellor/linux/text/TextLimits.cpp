#include "pellor/linux/text/TextLimits.h"

#include "pellor/linux/text/IcuText.h"

namespace pellor {
namespace {

bool beginsCharacter(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; }

// Where the code point after that many others begins; the text's end when there are no more. Bytes that belong to no
// code point count with the one before them.
std::size_t offsetOfCodePoint(std::string_view text, std::size_t index) {
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (beginsCharacter(text[at]) && index-- == 0) return at;
  }
  return text.size();
}

bool isLongerThan(std::string_view text, std::size_t limit) { return offsetOfCodePoint(text, limit) < text.size(); }

}  // namespace

std::string_view nameWithinLimit(std::string_view name) {
  if (name.size() <= LongestName) return name;
  // A code point has four bytes at most; text that is no UTF-8 has nothing to be cut at.
  const std::string_view beginning = name.substr(0, 4 * (LongestName + 1));
  const std::size_t limit = offsetOfCodePoint(beginning, LongestName);
  if (limit == name.size()) return name;
  // The code point behind the limit says whether a character ends there.
  const std::size_t end = characterEndWithin(beginning.substr(0, offsetOfCodePoint(beginning, LongestName + 1)), limit);
  const std::string_view cut = name.substr(0, end == 0 ? limit : end);
  return cut.substr(0, cut.find_last_not_of(' ') + 1);
}

bool isTooLongForNumber(std::string_view text) { return isLongerThan(text, LongestNumber); }

bool isTooLongForDestination(std::string_view text) {
  if (!isTooLongForNumber(text)) return false;
  return text.find('@') == std::string_view::npos || isLongerThan(text, LongestAddress);
}

}  // namespace pellor
