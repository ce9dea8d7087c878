#include "pellor/linux/contacts/internal/CardBounds.h"

#include <algorithm>
#include <array>
#include <utility>

#include "pellor/linux/text/CardText.h"

namespace pellor {
namespace {

// In bytes of the card's text, where a character takes up to twelve.
constexpr std::size_t LongestAsItIs = 2048;
constexpr std::size_t LongestParameter = 512;
constexpr std::size_t LongestHeader = 2048;
constexpr std::size_t LongestNameValue = 16 * 1024;
constexpr std::size_t LongestDestinationValue = 4096;
constexpr std::size_t LongestList = 1024;

enum class Treatment { cutParts, cutText, keepText, splitList, destination, drop };

Treatment treatmentOf(std::string_view name) {
  struct Entry {
    std::string_view name;
    Treatment treatment;
  };
  static constexpr std::array entries = {
      Entry{"n", Treatment::cutParts},
      Entry{"org", Treatment::cutParts},
      Entry{"fn", Treatment::cutText},
      Entry{"nickname", Treatment::cutText},
      Entry{"kind", Treatment::cutText},
      Entry{"x-evolution-list", Treatment::cutText},
      Entry{"x-qtproject-favorite", Treatment::cutParts},
      Entry{"x-folks-favourite", Treatment::cutParts},
      Entry{"uid", Treatment::keepText},
      Entry{"note", Treatment::keepText},
      Entry{"x-folks-contacts-ids", Treatment::splitList},
      Entry{"x-folks-anti-links", Treatment::splitList},
      Entry{"tel", Treatment::destination},
      Entry{"email", Treatment::destination},
  };
  const auto found = std::ranges::find(entries, name, &Entry::name);
  return found == entries.end() ? Treatment::drop : found->treatment;
}

/// Takes the first line off a text, with its end.
std::string_view takeLine(std::string_view& text) {
  const std::size_t end = text.find('\n');
  const std::string_view line = text.substr(0, end == std::string_view::npos ? text.size() : end + 1);
  text.remove_prefix(line.size());
  return line;
}

std::string_view withoutLineEnd(std::string_view line) {
  if (line.ends_with('\n')) line.remove_suffix(1);
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

// Where the value begins: behind the first colon that is in no quotes.
std::size_t valueOffset(std::string_view line) {
  bool isQuoted = false;
  for (std::size_t at = 0; at < line.size(); ++at) {
    if (line[at] == '"') isQuoted = !isQuoted;
    if (line[at] == ':' && !isQuoted) return at + 1;
  }
  return line.size();
}

bool isQuotedPrintable(std::string_view line) {
  return lowerCased(line.substr(0, valueOffset(line))).find("quoted-printable") != std::string::npos;
}

/// A property as it stands in the text and, where it is too long, on one line.
struct Property {
  std::string_view text;
  std::string line;
};

// A line that begins with a blank goes on with the one before it; in quoted-printable one that follows a "=" does.
Property takeProperty(std::string_view& rest) {
  const std::string_view whole = rest;
  const std::string_view first = withoutLineEnd(takeLine(rest));
  std::string line(first);
  const bool isQuoted = isQuotedPrintable(first);
  while (!rest.empty()) {
    const bool isSoftBreak = isQuoted && line.ends_with('=');
    const bool isFolded = rest.front() == ' ' || rest.front() == '\t';
    if (!isSoftBreak && !isFolded) break;
    if (isSoftBreak) line.pop_back();
    const std::string_view next = withoutLineEnd(takeLine(rest));
    line += isSoftBreak ? next : next.substr(1);
  }
  return {whole.substr(0, whole.size() - rest.size()), std::move(line)};
}

// The name without its group, and the parameters that are short enough.
std::string boundedHeader(std::string_view header) {
  std::string result = cardPropertyName(header);
  bool isQuoted = false;
  std::size_t start = header.find(';');
  for (std::size_t at = std::min(start, header.size()); at < header.size(); start = at) {
    do {
      if (header[at] == '"') isQuoted = !isQuoted;
      ++at;
    } while (at < header.size() && (header[at] != ';' || isQuoted));
    const std::string_view parameter = header.substr(start, at - start);
    const bool fits = parameter.size() <= LongestParameter && result.size() + parameter.size() <= LongestHeader;
    if (fits) result += parameter;
  }
  return result;
}

// Not in the middle of a character, however it is written: a byte behind another one, "=C3", "\;".
std::string_view cut(std::string_view value, std::size_t limit) {
  value.remove_prefix(std::min(value.find_first_not_of(" \t"), value.size()));
  if (value.size() <= limit) return value;
  std::size_t end = limit;
  while (end > limit - 4 && (static_cast<unsigned char>(value[end]) & 0xC0) == 0x80) --end;
  if (value[end - 1] == '=') --end;
  if (value[end - 2] == '=') end -= 2;
  const std::size_t escapes = end - 1 - std::min(value.find_last_not_of('\\', end - 1), end - 1);
  return value.substr(0, end - escapes % 2);
}

// Calls `visit` with each part that ends with an unescaped separator, or with the text.
template <class Visit>
void forEachPart(std::string_view value, std::string_view separators, Visit visit) {
  std::size_t start = 0;
  for (std::size_t at = 0; at < value.size(); ++at) {
    if (value[at] == '\\') {
      ++at;
    } else if (separators.find(value[at]) != std::string_view::npos) {
      visit(value.substr(start, at - start));
      start = at + 1;
    }
  }
  visit(value.substr(start));
}

std::string cutParts(std::string_view value) {
  constexpr std::size_t mostParts = 5;
  std::string result;
  std::size_t count = 0;
  forEachPart(value, ";", [&](std::string_view part) {
    if (count++ < mostParts) result.append(count == 1 ? "" : ";").append(cut(part, LongestNameValue));
  });
  return result;
}

// The parser would split the text at each of its semicolons.
std::string unsplit(std::string_view value) {
  std::string result;
  forEachPart(value, ";", [&](std::string_view part) {
    if (part.data() != value.data()) result += "\\;";
    result += part;
  });
  return result;
}

std::string asLists(const std::string& header, std::string_view value) {
  std::string result;
  std::string list;
  const auto endList = [&] {
    if (!list.empty()) result += header + ":" + std::exchange(list, {}) + "\r\n";
  };
  forEachPart(value, ";,", [&](std::string_view part) {
    if (list.size() + part.size() > LongestList) endList();
    list.append(list.empty() ? "" : ",").append(part);
  });
  endList();
  return result;
}

void appendBounded(BoundedCard& card, std::string_view line) {
  const std::size_t start = valueOffset(line);
  const std::string_view value = line.substr(start);
  const std::string header = boundedHeader(line.substr(0, value.empty() ? start : start - 1));
  const Treatment treatment = treatmentOf(cardPropertyName(header));
  const auto append = [&](std::string_view text) { card.text.append(header).append(":").append(text).append("\r\n"); };
  switch (treatment) {
    case Treatment::cutParts:
      return append(cutParts(value));
    case Treatment::cutText:
      return append(unsplit(cut(value, LongestNameValue)));
    case Treatment::keepText:
      return append(unsplit(value));
    case Treatment::splitList:
      card.text += asLists(header, value);
      return;
    case Treatment::destination:
      if (value.size() <= LongestDestinationValue) return append(value);
      ++card.leftOut;
      return;
    case Treatment::drop:
      return;
  }
}

}  // namespace

BoundedCard boundedCard(std::string_view text) {
  BoundedCard card;
  while (!text.empty()) {
    const Property property = takeProperty(text);
    if (property.text.size() <= LongestAsItIs) {
      card.text += property.text;
    } else {
      appendBounded(card, property.line);
    }
  }
  return card;
}

}  // namespace pellor
