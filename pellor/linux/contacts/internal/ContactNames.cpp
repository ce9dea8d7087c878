#include "pellor/linux/contacts/internal/ContactNames.h"

#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/uscript.h>

#include <algorithm>
#include <array>
#include <span>
#include <string_view>

#include "pellor/linux/text/CardText.h"
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
  if (!part) return;
  if (!name.empty()) name += blank;
  name += *part;
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

using Words = std::span<const std::string>;

std::optional<std::string> joined(Words words) {
  std::optional<std::string> text;
  for (const std::string& word : words) text = text ? *text + " " + word : word;
  return text;
}

// "Dr." and "ifj.", not the initials "J." and "J.R.".
bool isTitle(const std::string& word) {
  const icu::UnicodeString text = icu::UnicodeString::fromUTF8(word);
  return text.endsWith(u'.') && text.indexOf(u'.') == text.length() - 1 && text.countChar32() > 2;
}

Words withoutTitles(Words words) {
  while (words.size() > 1 && isTitle(words.front())) words = words.subspan(1);
  while (words.size() > 1 && isTitle(words.back())) words = words.first(words.size() - 1);
  return words;
}

bool isLowerCase(const std::string& word) {
  return u_charType(icu::UnicodeString::fromUTF8(word).char32At(0)) == U_LOWERCASE_LETTER;
}

// The last word, and the particles before it.
std::size_t startOfSurname(Words words) {
  std::size_t start = words.size() - 1;
  if (isLowerCase(words.back())) return start;
  const auto particle = std::ranges::find_if(words.subspan(1), isLowerCase);
  return std::min(start, static_cast<std::size_t>(particle - words.subspan(1).begin()) + 1);
}

}  // namespace

void deriveNames(ContactCard& card, bool surnameFirst) {
  if (!card.nameIsDerived || !card.formattedName) return;
  const std::vector<std::string> all = splitCardText(*card.formattedName, " ");
  const Words words = withoutTitles(all);
  if (words.empty()) return;
  card.familyName = std::nullopt;
  card.givenName = words.front();
  if (words.size() == 1) return;
  if (surnameFirst || std::ranges::all_of(words, isEastAsian)) {
    const bool isVietnamese =
        std::ranges::any_of(words, [](const std::string& word) { return word == "Văn" || holdsVietnameseVowel(word); });
    card.familyName = words.front();
    card.givenName = isVietnamese ? words.back() : joined(words.subspan(1));
    return;
  }
  const std::size_t surname = startOfSurname(words);
  card.givenName = joined(words.first(surname));
  card.familyName = joined(words.subspan(surname));
}

std::optional<std::string> compositeName(const ContactCard& card, bool surnameFirst) {
  if (!hasNameParts(card)) {
    for (const auto* name : {&card.formattedName, &card.nickname, &card.organization}) {
      if (*name) return *name;
    }
    return std::nullopt;
  }
  return std::string(nameWithinLimit(fullName(card, orderOf(card, surnameFirst))));
}

std::vector<std::string> ownNames(const ContactCard& card) {
  std::vector<std::string> names;
  if (hasNameParts(card)) {
    names.push_back(fullName(card, Order::givenFirst));
    names.push_back(bareName(card, Order::givenFirst));
    // Else it would be one long word.
    if (isEastAsianName(card)) names.push_back(bareName(card, Order::surnameFirstUnspaced));
  }
  if (card.formattedName) names.push_back(*card.formattedName);
  if (card.nickname) names.push_back(*card.nickname);
  if (names.empty() && card.organization) names.push_back(*card.organization);
  return names;
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
