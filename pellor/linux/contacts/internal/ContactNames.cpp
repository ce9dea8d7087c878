#include "pellor/linux/contacts/internal/ContactNames.h"

#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/uscript.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "pellor/linux/text/TextLimits.h"

namespace pellor {

namespace {

enum class Order { givenFirst, surnameFirst, surnameFirstUnspaced, vietnamese };

bool isASCII(char character) { return static_cast<unsigned char>(character) < 0x80; }

// The first character speaks for the text.
UScriptCode scriptOf(const std::string& text) {
  if (!text.empty() && isASCII(text.front())) return USCRIPT_LATIN;
  const icu::UnicodeString unicode = icu::UnicodeString::fromUTF8(text);
  UErrorCode error = U_ZERO_ERROR;
  const UScriptCode script = uscript_getScript(unicode.char32At(0), &error);
  return U_SUCCESS(error) ? script : USCRIPT_UNKNOWN;
}

bool isChineseOrJapanese(const std::string& text) {
  const UScriptCode script = scriptOf(text);
  return script == USCRIPT_HAN || script == USCRIPT_HIRAGANA || script == USCRIPT_KATAKANA;
}

bool isEastAsian(const std::string& text) { return isChineseOrJapanese(text) || scriptOf(text) == USCRIPT_HANGUL; }

bool isEastAsianName(const ContactCard& card) {
  return card.familyName && card.givenName && isEastAsian(*card.familyName) && isEastAsian(*card.givenName);
}

bool isVowel(UChar32 character) {
  constexpr std::string_view vowels = "aeiouyAEIOUY";
  return character < 0x80 && vowels.find(static_cast<char>(character)) != std::string_view::npos;
}

// Vowels with a horn, with a hook or a dot, and with two marks. Of the languages that are written so, Vietnamese is the
// one with middle names.
bool holdsVietnameseVowel(const std::string& text) {
  constexpr UChar32 circumflex = 0x302, breve = 0x306, hook = 0x309, horn = 0x31B, dotBelow = 0x323;
  if (std::ranges::all_of(text, isASCII)) return false;
  UErrorCode error = U_ZERO_ERROR;
  const icu::Normalizer2* const decomposition = icu::Normalizer2::getNFDInstance(error);
  if (U_FAILURE(error)) return false;
  const icu::UnicodeString letters = decomposition->normalize(icu::UnicodeString::fromUTF8(text), error);
  UChar32 before = 0;
  for (std::int32_t at = 0; at < letters.length(); at = letters.moveIndex32(at, 1)) {
    const UChar32 mark = letters.char32At(at);
    const bool isSingle = mark == hook || mark == horn || mark == dotBelow;
    const bool isSecond = u_charType(mark) == U_NON_SPACING_MARK && (before == circumflex || before == breve);
    if (isSecond || (isSingle && isVowel(before))) return true;
    before = mark;
  }
  return false;
}

void append(std::string& name, const std::optional<std::string>& part, const char* blank) {
  if (part) name += (name.empty() ? "" : blank) + *part;
}

/// The parts of a name without prefix and suffix.
std::string bareName(const ContactCard& card, Order order) {
  using Parts = std::array<const std::optional<std::string>*, 3>;
  Parts parts = {&card.familyName, &card.givenName, &card.additionalNames};
  if (order == Order::givenFirst) parts = {&card.givenName, &card.additionalNames, &card.familyName};
  if (order == Order::vietnamese) parts = {&card.familyName, &card.additionalNames, &card.givenName};
  std::string name;
  for (const auto* part : parts) append(name, *part, order == Order::surnameFirstUnspaced ? "" : " ");
  return name;
}

// What honours a person in Chinese or Japanese follows the name without a blank; a Korean title stands apart.
std::string fullName(const ContactCard& card, Order order) {
  const bool isJoined =
      order == Order::surnameFirstUnspaced && card.nameSuffix && isChineseOrJapanese(*card.nameSuffix);
  std::string name;
  append(name, card.namePrefix, " ");
  append(name, bareName(card, order), " ");
  append(name, card.nameSuffix, isJoined ? "" : " ");
  return name;
}

// Where the surname comes first, a further given name follows the first one, and a Vietnamese middle name precedes the
// given name. The letters tell, or the most usual middle name, or how the card itself writes the whole name.
bool isVietnameseName(const ContactCard& card) {
  if (!card.familyName || !card.givenName || !card.additionalNames) return false;
  if (card.additionalNames == "Văn" || card.formattedName == bareName(card, Order::vietnamese)) return true;
  return holdsVietnameseVowel(*card.familyName) || holdsVietnameseVowel(*card.additionalNames) ||
         holdsVietnameseVowel(*card.givenName);
}

bool hasNameParts(const ContactCard& card) {
  return card.kind == CardKind::person && !card.nameIsDerived && (card.givenName || card.familyName);
}

Order orderOf(const ContactCard& card, bool surnameFirst) {
  if (isEastAsianName(card)) return surnameFirst ? Order::surnameFirstUnspaced : Order::surnameFirst;
  if (!surnameFirst) return Order::givenFirst;
  return isVietnameseName(card) ? Order::vietnamese : Order::surnameFirst;
}

}  // namespace

std::optional<std::string> compositeName(const ContactCard& card, bool surnameFirst) {
  if (!hasNameParts(card)) {
    for (const auto* name : {&card.formattedName, &card.nickname, &card.organization}) {
      if (*name) return *name;
    }
    return std::nullopt;
  }
  return std::string(nameWithinLimit(fullName(card, orderOf(card, surnameFirst))));
}

std::vector<std::string> searchableNames(const ContactCard& card) {
  std::vector<std::string> names;
  if (hasNameParts(card)) {
    const bool hasTitles = card.namePrefix || card.nameSuffix;
    // The order of words does not matter.
    for (const Order order : {Order::givenFirst, Order::surnameFirstUnspaced}) {
      names.push_back(bareName(card, order));
      if (hasTitles) names.push_back(fullName(card, order));
    }
  } else if (card.organization) {
    names.push_back(*card.organization);
  }
  if (card.formattedName) names.push_back(*card.formattedName);
  if (card.nickname) names.push_back(*card.nickname);
  return names;
}

}  // namespace pellor
