#include "pellor/linux/contacts/internal/ContactNames.h"

#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/uscript.h>

#include "pellor/linux/text/TextLimits.h"

namespace pellor {

namespace {

enum class Order { givenFirst, surnameFirst, surnameFirstUnspaced };

// The first character speaks for the text.
bool isEastAsian(const std::string& text) {
  const bool beginsInASCII = !text.empty() && static_cast<unsigned char>(text.front()) < 0x80;
  if (beginsInASCII) return false;
  const icu::UnicodeString unicode = icu::UnicodeString::fromUTF8(text);
  UErrorCode error = U_ZERO_ERROR;
  const UScriptCode script = uscript_getScript(unicode.char32At(0), &error);
  return U_SUCCESS(error) && (script == USCRIPT_HAN || script == USCRIPT_HIRAGANA || script == USCRIPT_KATAKANA ||
                              script == USCRIPT_HANGUL);
}

bool isEastAsianName(const ContactCard& card) {
  return card.familyName && card.givenName && isEastAsian(*card.familyName) && isEastAsian(*card.givenName);
}

void append(std::string& name, const std::optional<std::string>& part, const char* blank) {
  if (part) name += (name.empty() ? "" : blank) + *part;
}

std::string arranged(const ContactCard& card, Order order) {
  std::string name;
  const char* blank = order == Order::surnameFirstUnspaced ? "" : " ";
  if (order != Order::givenFirst) {
    append(name, card.familyName, blank);
    append(name, card.givenName, blank);
    append(name, card.additionalNames, blank);
    return name;
  }
  for (const auto* part :
       {&card.namePrefix, &card.givenName, &card.additionalNames, &card.familyName, &card.nameSuffix})
    append(name, *part, blank);
  return name;
}

bool hasNameParts(const ContactCard& card) {
  return card.kind == CardKind::person && !card.nameIsDerived && (card.givenName || card.familyName);
}

Order orderOf(const ContactCard& card, bool surnameFirst) {
  if (!isEastAsianName(card)) return surnameFirst ? Order::surnameFirst : Order::givenFirst;
  return surnameFirst ? Order::surnameFirstUnspaced : Order::surnameFirst;
}

}  // namespace

std::optional<std::string> compositeName(const ContactCard& card, bool surnameFirst) {
  if (!hasNameParts(card)) return card.formattedName ? card.formattedName : card.organization;
  return std::string(nameWithinLimit(arranged(card, orderOf(card, surnameFirst))));
}

std::vector<std::string> searchableNames(const ContactCard& card) {
  std::vector<std::string> names;
  if (hasNameParts(card)) {
    for (const Order order : {Order::givenFirst, Order::surnameFirst, Order::surnameFirstUnspaced})
      names.push_back(arranged(card, order));
  } else if (const auto name = compositeName(card, false)) {
    names.push_back(*name);
  }
  if (card.formattedName) names.push_back(*card.formattedName);
  if (card.nickname) names.push_back(*card.nickname);
  return names;
}

}  // namespace pellor
