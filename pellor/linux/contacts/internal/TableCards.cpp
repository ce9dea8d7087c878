#include "pellor/linux/contacts/internal/TableCards.h"

#include <algorithm>
#include <map>
#include <optional>
#include <utility>

#include "pellor/linux/contacts/internal/TableColumns.h"
#include "pellor/linux/text/CardText.h"
#include "pellor/linux/text/CsvRows.h"

namespace pellor {

namespace {

using Kind = ColumnKind;
using Columns = std::vector<std::optional<ContactColumn>>;

Columns columnsOf(const CsvRow& row) {
  Columns columns;
  for (const std::string& name : row.fields) columns.push_back(contactColumn(name));
  return columns;
}

// One exporter puts several values into one field.
std::vector<std::string> valuesIn(std::string_view field) {
  constexpr std::string_view separator = ":::";
  std::vector<std::string> values;
  while (true) {
    const std::size_t end = field.find(separator);
    std::string value = cleanCardText(field.substr(0, end));
    if (!value.empty()) values.push_back(std::move(value));
    if (end == std::string_view::npos) return values;
    field.remove_prefix(end + separator.size());
  }
}

std::string escaped(std::string_view text) {
  std::string result;
  for (const char c : text) {
    if (c == '\n') {
      result += "\\n";
      continue;
    }
    if (c == '\\' || c == ',' || c == ';') result += '\\';
    if (static_cast<unsigned char>(c) >= 0x20 && c != 0x7F) result += c;
  }
  return result;
}

bool isContinuationByte(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// Lines have at most 75 bytes, and no character is divided.
std::string folded(std::string_view line) {
  std::string result;
  std::size_t limit = 75;
  while (line.size() > limit) {
    std::size_t end = limit;
    while (end > 1 && isContinuationByte(line[end])) --end;
    result += std::string(line.substr(0, end)) + "\r\n ";
    line.remove_prefix(end);
    limit = 74;
  }
  return result + std::string(line) + "\r\n";
}

/// Of one row.
class RowCard {
 public:
  RowCard(const Columns& columns, const CsvRow& row) : _columns(columns), _row(row) {}

  OfferedCard card() {
    OfferedCard card{0, _row.line, {}, {}, problemOfRow()};
    if (!card.problem.empty()) return card;
    readFields();
    card.name = formattedName();
    if (card.name.empty() && _values.empty())
      card.problem = "the row has neither a name nor a number or address";
    else
      card.text = text(card.name);
    return card;
  }

 private:
  struct Value {
    std::string_view property;
    Kind typeKind;
    std::size_t number;
    std::string types;
    std::string text;
  };

  std::string problemOfRow() const {
    if (_row.isCut) return "its quotation mark is not closed, so that the rest of the file belongs to it";
    const auto isFilled = [](const std::string& field) { return !cleanCardText(field).empty(); };
    const std::size_t count = std::min(_columns.size(), _row.fields.size());
    if (std::any_of(_row.fields.begin() + static_cast<std::ptrdiff_t>(count), _row.fields.end(), isFilled))
      return "the row has more fields than the first one";
    return {};
  }

  void readFields() {
    for (std::size_t index = 0; index < std::min(_columns.size(), _row.fields.size()); ++index) {
      if (_columns[index]) read(*_columns[index], _row.fields[index]);
    }
    for (Value& value : _values) {
      const auto types = _types.find({value.typeKind, value.number});
      if (types != _types.end()) value.types = types->second;
    }
    // Addresses come behind numbers, whatever the order of the columns.
    std::ranges::stable_partition(_values, [](const Value& value) { return value.property == "TEL"; });
  }

  void read(const ContactColumn& column, const std::string& field) {
    if (column.kind == Kind::email || column.kind == Kind::phone) {
      const bool isPhone = column.kind == Kind::phone;
      for (std::string& text : valuesIn(field))
        _values.push_back({isPhone ? "TEL" : "EMAIL", isPhone ? Kind::phoneType : Kind::emailType, column.number,
                           std::string(column.types), std::move(text)});
      return;
    }
    if (column.kind == Kind::emailType || column.kind == Kind::phoneType) return readType(column, field);
    std::string text = column.kind == Kind::note ? field : cleanCardText(field);
    std::string& known = _texts[column.kind];
    if (known.empty()) known = std::move(text);
  }

  // A star marks the value that is preferred.
  void readType(const ContactColumn& column, std::string_view field) {
    std::string types(cardTypeOf(field));
    if (cleanCardText(field).starts_with('*')) types += types.empty() ? "pref" : ",pref";
    if (!types.empty()) _types[{column.kind, column.number}] = types;
  }

  std::string textOf(Kind kind) const {
    const auto found = _texts.find(kind);
    return found == _texts.end() ? std::string() : found->second;
  }

  bool hasNameParts() const { return !textOf(Kind::givenName).empty() || !textOf(Kind::familyName).empty(); }

  // A card has to have one; what else it may be called by comes last.
  std::string formattedName() const {
    std::string name = textOf(Kind::fullName);
    if (name.empty() && hasNameParts()) {
      for (const Kind kind :
           {Kind::namePrefix, Kind::givenName, Kind::additionalNames, Kind::familyName, Kind::nameSuffix}) {
        const std::string part = textOf(kind);
        if (!part.empty()) name += (name.empty() ? "" : " ") + part;
      }
    }
    for (const Kind kind : {Kind::nickname, Kind::organization, Kind::additionalNames}) {
      if (name.empty()) name = textOf(kind);
    }
    return name;
  }

  std::string nameParts() const {
    std::string parts;
    for (const Kind kind :
         {Kind::familyName, Kind::givenName, Kind::additionalNames, Kind::namePrefix, Kind::nameSuffix})
      parts += (kind == Kind::familyName ? "" : ";") + escaped(textOf(kind));
    return parts;
  }

  static std::string parameters(const Value& value) {
    std::string types;
    bool isPreferred = false;
    for (const std::string& type : splitCardText(value.types, ",")) {
      isPreferred |= type == "pref";
      if (type != "pref") types += (types.empty() ? "" : ",") + type;
    }
    return (types.empty() ? "" : ";TYPE=" + types) + (isPreferred ? ";PREF=1" : "");
  }

  std::string text(const std::string& name) const {
    std::string text = "BEGIN:VCARD\r\nVERSION:4.0\r\n" + folded("FN:" + escaped(name));
    const auto add = [&text](const char* property, const std::string& value) {
      if (!value.empty()) text += folded(std::string(property) + ":" + escaped(value));
    };
    if (hasNameParts()) text += folded("N:" + nameParts());
    add("NICKNAME", textOf(Kind::nickname));
    add("ORG", textOf(Kind::organization));
    for (const Value& value : _values)
      text += folded(std::string(value.property) + parameters(value) + ":" + escaped(value.text));
    add("NOTE", textOf(Kind::note));
    return text + "END:VCARD\r\n";
  }

  const Columns& _columns;
  const CsvRow& _row;
  std::map<Kind, std::string> _texts;
  std::map<std::pair<Kind, std::size_t>, std::string> _types;
  std::vector<Value> _values;
};

}  // namespace

bool isContactTable(std::string_view text) {
  const auto row = CsvRows(text).next();
  if (!row) return false;
  // One of these words alone may head a table of anything.
  return std::ranges::count_if(columnsOf(*row), [](const auto& column) { return column.has_value(); }) > 1;
}

std::vector<OfferedCard> tableCards(std::string_view text) {
  CsvRows rows(text);
  const auto head = rows.next();
  if (!head) return {};
  const Columns columns = columnsOf(*head);
  std::vector<OfferedCard> cards;
  while (const auto row = rows.next()) cards.push_back(RowCard(columns, *row).card());
  return cards;
}

}  // namespace pellor
