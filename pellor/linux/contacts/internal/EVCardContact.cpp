#include "pellor/linux/contacts/internal/EVCardContact.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <map>
#include <string_view>

#include "pellor/linux/contacts/internal/CardBounds.h"
#include "pellor/linux/contacts/internal/CardPhoto.h"
#include "pellor/linux/contacts/internal/EVCardLibrary.h"
#include "pellor/linux/text/CardPieces.h"
#include "pellor/linux/text/CardText.h"
#include "pellor/linux/text/TextLimits.h"

namespace pellor {

namespace {

using Properties = std::vector<CardProperty>;

constexpr std::string_view TelephoneScheme = "tel:";
constexpr std::string_view MailScheme = "mailto:";

// Of which there may be as many as a card has lines.
constexpr std::size_t MostWarnings = 10;

/// What is too long in a card.
struct Excess {
  std::size_t cutNames = 0;
  std::size_t leftOut = 0;  ///< numbers and addresses
};

std::optional<std::string> nonEmpty(std::string text) {
  if (text.empty()) return std::nullopt;
  return text;
}

std::string valueAt(const CardProperty& property, std::size_t index) {
  return index < property.values.size() ? cleanCardText(property.values[index]) : std::string();
}

// The parser also splits texts that are no lists, such as an identifier or a URI with a semicolon.
std::string wholeValue(const CardProperty& property) {
  std::string whole;
  for (std::size_t index = 0; index < property.values.size(); ++index)
    whole += (index ? ";" : "") + property.values[index];
  return cleanCardText(whole);
}

/// The first property of that name with a value. A card of version 2.1 may hold another one inside (AGENT), whose
/// properties follow its BEGIN.
const CardProperty* firstProperty(const Properties& properties, std::string_view name) {
  for (const CardProperty& property : properties) {
    if (property.name == name && !wholeValue(property).empty()) return &property;
  }
  return nullptr;
}

std::optional<std::string> firstText(const Properties& properties, std::string_view name) {
  const CardProperty* property = firstProperty(properties, name);
  return property ? nonEmpty(wholeValue(*property)) : std::nullopt;
}

// "Philip,Paul" are two additional names.
std::string listAsWords(std::string list) {
  std::replace(list.begin(), list.end(), ',', ' ');
  return list;
}

void readNameParts(const Properties& properties, ContactCard& card) {
  const CardProperty* name = firstProperty(properties, "N");
  if (!name) return;
  card.familyName = nonEmpty(valueAt(*name, 0));
  card.givenName = nonEmpty(valueAt(*name, 1));
  card.additionalNames = nonEmpty(listAsWords(valueAt(*name, 2)));
  card.namePrefix = nonEmpty(valueAt(*name, 3));
  card.nameSuffix = nonEmpty(valueAt(*name, 4));
}

// Version 4 leaves N out as it likes. Initials need the parts: the last word is taken for the family name, whatever the
// order; the formatted name itself stays what is shown.
void deriveNameParts(ContactCard& card) {
  if (card.familyName || card.givenName || !card.formattedName || card.kind != CardKind::person) return;
  card.nameIsDerived = true;
  const std::size_t space = card.formattedName->rfind(' ');
  if (space == std::string::npos) {
    card.givenName = card.formattedName;
    return;
  }
  card.givenName = nonEmpty(cleanCardText(card.formattedName->substr(0, space)));
  card.familyName = card.formattedName->substr(space + 1);
}

CardKind kindOf(const Properties& properties, const ContactCard& card) {
  const std::string kind = lowerCased(firstText(properties, "KIND").value_or(std::string()));
  if (kind == "org" || kind == "organization") return CardKind::organization;
  // How one address book marks a list of addresses.
  if (lowerCased(firstText(properties, "X-EVOLUTION-LIST").value_or(std::string())) == "true") return CardKind::other;
  if (kind == "group" || kind == "location" || kind == "application" || kind == "device") return CardKind::other;
  const bool hasNameParts = card.familyName || card.givenName;
  const bool hasPersonsName = card.formattedName && card.formattedName != card.organization;
  if (card.organization && !hasNameParts && !hasPersonsName) return CardKind::organization;
  return CardKind::person;
}

std::string labelOf(const CardProperty& property) {
  for (const std::string& types : property.parameterValues("TYPE")) {
    for (const std::string& type : splitCardText(lowerCased(types), ",")) {
      if (type != "pref" && type != "voice" && type != "internet" && type != "text") return type;
    }
  }
  return {};
}

bool startsWithScheme(const std::string& text, std::string_view scheme) {
  return lowerCased(text.substr(0, scheme.size())) == scheme;
}

// A TEL that is the address of something else ("sip:") is no phone number.
std::string phoneOf(const CardProperty& property) {
  const std::string text = wholeValue(property);
  if (startsWithScheme(text, TelephoneScheme)) return cleanCardText(text.substr(TelephoneScheme.size()));
  const std::vector<std::string> types = property.parameterValues("VALUE");
  const bool isOtherUri =
      std::any_of(types.begin(), types.end(), [](const std::string& type) { return lowerCased(type) == "uri"; });
  return isOtherUri ? std::string() : text;
}

std::string emailOf(const CardProperty& property) {
  const std::string text = wholeValue(property);
  return startsWithScheme(text, MailScheme) ? cleanCardText(text.substr(MailScheme.size())) : text;
}

int positiveNumber(const std::string& text) {
  int number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return std::max(number, 0);
}

// Versions before 4 mark one value, version 4 ranks them from 1 to 100.
int rankOf(const CardProperty& property) {
  constexpr int first = 1, unranked = 101;
  for (const std::string& types : property.parameterValues("TYPE")) {
    for (const std::string& type : splitCardText(lowerCased(types), ",")) {
      if (type == "pref") return first;
    }
  }
  for (const std::string& rank : property.parameterValues("PREF")) {
    const int number = positiveNumber(rank);
    if (number >= first && number < unranked) return number;
  }
  return unranked;
}

// The preferred ones first, else in the order of the card.
std::vector<CardValue> cardValues(const Properties& properties, std::string_view name,
                                  std::string (*valueOf)(const CardProperty&), Excess& excess) {
  std::multimap<int, CardValue> ranked;
  for (const CardProperty& property : properties) {
    if (property.name != name) continue;
    std::string value = valueOf(property);
    const bool isTooLong = isTooLongForDestination(value);
    if (isTooLong) ++excess.leftOut;
    if (!value.empty() && !isTooLong) ranked.insert({rankOf(property), {labelOf(property), std::move(value)}});
  }
  std::vector<CardValue> values;
  for (auto& [rank, value] : ranked) values.push_back(std::move(value));
  return values;
}

bool saysTrue(const CardProperty& property) { return lowerCased(valueAt(property, 0)) == "true"; }

void readFavoriteMarks(const Properties& properties, ContactCard& card) {
  for (const CardProperty& property : properties) {
    const bool ordered = property.name == "X-QTPROJECT-FAVORITE";
    if ((!ordered && property.name != "X-FOLKS-FAVOURITE") || !saysTrue(property)) continue;
    card.isFavorite = true;
    if (ordered) card.favoriteOrder = positiveNumber(valueAt(property, 1));
  }
}

std::vector<std::string> namedCards(const Properties& properties, std::string_view name) {
  std::vector<std::string> cards;
  for (const CardProperty& property : properties) {
    if (property.name != name) continue;
    for (const std::string& value : property.values) {
      for (std::string& card : splitCardText(cleanCardText(value), ",")) cards.push_back(std::move(card));
    }
  }
  return cards;
}

// The parser unescapes before it could split, so that only the text still tells "A,B" from "A\,B".
std::optional<std::string> firstNickname(const Properties& properties, const std::string& text) {
  std::optional<std::string> names = firstText(properties, "NICKNAME");
  if (!names || hasEscapedComma(text, "NICKNAME")) return names;
  const std::vector<std::string> parts = splitCardText(*names, ",");
  return parts.empty() ? std::nullopt : std::optional(parts.front());
}

void cutNames(ContactCard& card, Excess& excess) {
  for (auto* name : {&card.givenName, &card.familyName, &card.additionalNames, &card.namePrefix, &card.nameSuffix,
                     &card.formattedName, &card.nickname, &card.organization}) {
    if (!*name) continue;
    const std::size_t size = nameWithinLimit(**name).size();
    if (size == (*name)->size()) continue;
    (*name)->resize(size);
    ++excess.cutNames;
  }
}

ContactCard contactCard(const Properties& properties, const std::string& text, Excess& excess) {
  ContactCard card;
  card.uid = firstText(properties, "UID");
  card.formattedName = firstText(properties, "FN");
  card.nickname = firstNickname(properties, text);
  card.note = firstText(properties, "NOTE");
  if (const CardProperty* organization = firstProperty(properties, "ORG"))
    card.organization = nonEmpty(valueAt(*organization, 0));
  readNameParts(properties, card);
  cutNames(card, excess);
  card.kind = kindOf(properties, card);
  deriveNameParts(card);
  card.phones = cardValues(properties, "TEL", phoneOf, excess);
  card.emails = cardValues(properties, "EMAIL", emailOf, excess);
  readFavoriteMarks(properties, card);
  card.links = namedCards(properties, "X-FOLKS-CONTACTS-IDS");
  card.antiLinks = namedCards(properties, "X-FOLKS-ANTI-LINKS");
  return card;
}

std::string counted(std::size_t count, const char* one, const char* many) {
  return std::to_string(count) + (count == 1 ? one : many);
}

std::string remarkOf(const Excess& excess) {
  std::string text = "holds texts that are too long: ";
  if (excess.cutNames > 0) text += counted(excess.cutNames, " name is cut", " names are cut");
  if (excess.cutNames > 0 && excess.leftOut > 0) text += ", ";
  if (excess.leftOut > 0)
    text += counted(excess.leftOut, " number or address is left out", " numbers and addresses are left out");
  return text;
}

}  // namespace

CardReading readContactCard(std::string_view text) {
  CardReading reading;
  const CardPieces pieces = cardPieces(text);
  reading.problem = pieces.pieces.empty() ? "it is empty" : pieces.pieces.front().problem;
  if (!reading.problem.empty()) return reading;
  // Where a soft line break stands before an escape the parser keeps it.
  const BoundedCard bounded = boundedCard(withoutSoftBreaks(asUtf8Card(pieces.pieces.front().text)));
  ParsedCard parsed = parseCard(bounded.text);
  Excess excess{0, bounded.leftOut};
  reading.card = contactCard(parsed.properties, bounded.text, excess);
  reading.card->hasPhoto = hasPhoto(pieces.pieces.front().text);
  reading.remarks = std::move(parsed.warnings);
  reading.remarks.resize(std::min(reading.remarks.size(), MostWarnings));
  if (excess.cutNames + excess.leftOut > 0) reading.remarks.push_back(remarkOf(excess));
  return reading;
}

}  // namespace pellor
