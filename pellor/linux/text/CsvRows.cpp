#include "pellor/linux/text/CsvRows.h"

#include <algorithm>
#include <array>
#include <utility>

namespace pellor {

namespace {

constexpr std::array Separators = {',', ';', '\t'};

bool endsLine(char c) { return c == '\n' || c == '\r'; }

char separatorOf(std::string_view text) {
  std::array<std::size_t, Separators.size()> counts{};
  bool isQuoted = false;
  for (const char c : text) {
    if (c == '"') isQuoted = !isQuoted;
    if (isQuoted) continue;
    if (endsLine(c)) break;
    const auto found = std::ranges::find(Separators, c);
    if (found != Separators.end()) ++counts[static_cast<std::size_t>(found - Separators.begin())];
  }
  return Separators[static_cast<std::size_t>(std::ranges::max_element(counts) - counts.begin())];
}

}  // namespace

CsvRows::CsvRows(std::string_view text) : _text(text) {
  while (!isAtEnd() && endsLine(here())) passEndOfLine();
  _separator = separatorOf(_text.substr(_at));
}

std::optional<CsvRow> CsvRows::next() {
  while (!isAtEnd() && endsLine(here())) passEndOfLine();
  if (isAtEnd()) return std::nullopt;
  CsvRow row{_line, {}};
  while (true) {
    row.fields.push_back(field(row));
    if (isAtEnd() || here() != _separator) break;
    ++_at;
  }
  if (!isAtEnd()) passEndOfLine();
  return row;
}

void CsvRows::passEndOfLine() {
  const bool isPair = _text.substr(_at, 2) == "\r\n";
  _at += isPair ? 2 : 1;
  ++_line;
}

// What stands behind the closing mark belongs to the field: nothing is lost of a table that is written badly.
std::string CsvRows::field(CsvRow& row) {
  std::string value;
  if (!isAtEnd() && here() == '"') value = quotedField(row);
  while (!isAtEnd() && here() != _separator && !endsLine(here())) value += _text[_at++];
  return value;
}

std::string CsvRows::quotedField(CsvRow& row) {
  std::string value;
  for (++_at; !isAtEnd();) {
    if (endsLine(here())) {
      passEndOfLine();
      value += '\n';
    } else if (here() != '"') {
      value += _text[_at++];
    } else if (_text.substr(_at, 2) == "\"\"") {
      value += '"';
      _at += 2;
    } else {
      ++_at;
      return value;
    }
  }
  row.isCut = true;
  return value;
}

}  // namespace pellor
