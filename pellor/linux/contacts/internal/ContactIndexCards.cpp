#include "pellor/linux/contacts/internal/ContactIndexCards.h"

#include <optional>

namespace pellor {

namespace {

// The texts of cards have no control characters, so these two cannot be part of one.
constexpr char EntrySeparator = '\x1E';
constexpr char PartSeparator = '\x1F';

std::string joined(const std::vector<std::string>& texts) {
  std::string result;
  for (const std::string& text : texts) result += text + EntrySeparator;
  return result;
}

std::string joined(const std::vector<CardValue>& values) {
  std::string result;
  for (const CardValue& value : values) result += value.label + PartSeparator + value.value + EntrySeparator;
  return result;
}

std::vector<CardValue> valuesOfColumn(const std::string& text) {
  std::vector<CardValue> values;
  for (const std::string& entry : namesOfColumn(text)) {
    const std::size_t separator = entry.find(PartSeparator);
    values.push_back({entry.substr(0, separator), entry.substr(separator + 1)});
  }
  return values;
}

std::optional<std::string> optionalText(const SQLiteStatement& row, int column) {
  std::string text = row.text(column);
  if (text.empty()) return std::nullopt;
  return text;
}

}  // namespace

std::vector<std::string> namesOfColumn(const std::string& text) {
  std::vector<std::string> names;
  std::size_t start = 0;
  for (std::size_t end = text.find(EntrySeparator); end != std::string::npos; end = text.find(EntrySeparator, start)) {
    names.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return names;
}

ContactCard cardOfRow(const SQLiteStatement& row, int column) {
  ContactCard card;
  card.kind = static_cast<CardKind>(row.integer(column++));
  for (auto* text : {&card.givenName, &card.familyName, &card.additionalNames, &card.namePrefix, &card.nameSuffix,
                     &card.formattedName, &card.nickname, &card.organization, &card.note})
    *text = optionalText(row, column++);
  card.nameIsDerived = row.integer(column++) != 0;
  card.phones = valuesOfColumn(row.text(column++));
  card.emails = valuesOfColumn(row.text(column++));
  card.isFavorite = row.integer(column++) != 0;
  card.favoriteOrder = static_cast<int>(row.integer(column++));
  card.links = namesOfColumn(row.text(column++));
  card.antiLinks = namesOfColumn(row.text(column++));
  card.hasPhoto = row.integer(column++) != 0;
  return card;
}

std::string contactColumns() { return "cards.id, guid, link, " + std::string(CardColumns); }

IndexedContact contactOfRow(const SQLiteStatement& row) {
  IndexedContact contact;
  contact.recordID = static_cast<std::int32_t>(row.integer(0));
  contact.guid = row.text(1);
  contact.linkID = static_cast<std::int32_t>(row.integer(2));
  contact.card = cardOfRow(row, 3);
  return contact;
}

CardBinding::CardBinding(const ContactCard& card)
    : _card(card),
      _phones(joined(card.phones)),
      _emails(joined(card.emails)),
      _links(joined(card.links)),
      _antiLinks(joined(card.antiLinks)) {}

int CardBinding::bindTo(SQLiteStatement& statement, int parameter) const {
  statement.bind(parameter++, static_cast<std::int64_t>(_card.kind));
  for (const auto* text :
       {&_card.givenName, &_card.familyName, &_card.additionalNames, &_card.namePrefix, &_card.nameSuffix,
        &_card.formattedName, &_card.nickname, &_card.organization, &_card.note}) {
    if (*text) statement.bind(parameter, std::string_view(**text));
    ++parameter;
  }
  statement.bind(parameter++, std::int64_t{_card.nameIsDerived});
  statement.bind(parameter++, std::string_view(_phones));
  statement.bind(parameter++, std::string_view(_emails));
  statement.bind(parameter++, std::int64_t{_card.isFavorite});
  statement.bind(parameter++, std::int64_t{_card.favoriteOrder});
  statement.bind(parameter++, std::string_view(_links));
  statement.bind(parameter++, std::string_view(_antiLinks));
  statement.bind(parameter++, std::int64_t{_card.hasPhoto});
  return parameter;
}

}  // namespace pellor
