#include "pellor/linux/text/IcuText.h"

#include <unicode/brkiter.h>
#include <unicode/locid.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/uscript.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "pellor/linux/text/CollationKeys.h"

namespace pellor {
namespace {

constexpr UChar32 PictureSelector = 0xFE0F;

icu::UnicodeString unicode(std::string_view text) {
  return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())));
}

/// Calls `visit` for each character until it returns true; whether it did.
template <class Visit>
bool anyCharacter(std::string_view text, Visit visit) {
  const auto length = static_cast<std::int32_t>(text.size());
  for (std::int32_t at = 0; at < length;) {
    UChar32 character = 0;
    U8_NEXT_OR_FFFD(reinterpret_cast<const std::uint8_t*>(text.data()), at, length, character);
    if (visit(character)) return true;
  }
  return false;
}

UScriptCode scriptOf(UChar32 character) {
  UErrorCode status = U_ZERO_ERROR;
  return uscript_getScript(character, &status);
}

bool isAbbreviated(UScriptCode script) {
  static constexpr std::array abbreviated = {USCRIPT_LATIN, USCRIPT_GREEK, USCRIPT_CYRILLIC, USCRIPT_ARMENIAN};
  return std::find(abbreviated.begin(), abbreviated.end(), script) != abbreviated.end();
}

std::unique_ptr<icu::BreakIterator> makeClusters() {
  UErrorCode status = U_ZERO_ERROR;
  return std::unique_ptr<icu::BreakIterator>(
      icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
}

std::atomic<std::uint64_t> segmentedUnits = 0;  // counted on any thread

// Making an iterator takes much longer than what is asked of it here. Valid until the thread's next call; null when
// there is none.
icu::BreakIterator* clustersOf(const icu::UnicodeString& text) {
  static thread_local const std::unique_ptr<icu::BreakIterator> clusters = makeClusters();
  segmentedUnits.fetch_add(static_cast<std::uint64_t>(text.length()), std::memory_order_relaxed);
  if (clusters) clusters->setText(text);
  return clusters.get();
}

// Whether nothing joins the character to another one that stands alone: most letters and signs of all scripts.
bool standsAlone(UChar32 character) {
  return u_getIntPropertyValue(character, UCHAR_GRAPHEME_CLUSTER_BREAK) == U_GCB_OTHER;
}

// Of the cluster that begins there, mostly told without an iterator.
std::int32_t endOfCluster(const icu::UnicodeString& text, std::int32_t start) {
  const std::int32_t next = text.moveIndex32(start, 1);
  const bool isLast = next == text.length();
  if (standsAlone(text.char32At(start)) && (isLast || standsAlone(text.char32At(next)))) return next;
  icu::BreakIterator* const clusters = clustersOf(text);
  return clusters ? clusters->following(start) : next;
}

/// Which letter of a name its initial is.
enum class InitialLetter {
  first,
  firstCapital,  ///< the first letter where there is none
};

struct Initial {
  std::string text;           ///< empty when the name holds no letter
  bool isAbbreviated = true;  ///< whether the script of that letter abbreviates names
};

// A sign such as the Hawaiian okina stands before the letter that is written as a capital.
bool isLetter(UChar32 character) { return u_isalpha(character) && u_charType(character) != U_MODIFIER_LETTER; }

bool isCapital(UChar32 character) {
  const auto category = u_charType(character);
  return category == U_UPPERCASE_LETTER || category == U_TITLECASE_LETTER;
}

bool continuesWord(UChar32 character) {
  return (U_GET_GC_MASK(character) & (U_GC_L_MASK | U_GC_M_MASK | U_GC_N_MASK)) != 0;
}

// Where the initial is; the end of the name when it has no letter. Particles are in lower case: the capital that counts
// begins the first word that is none.
std::int32_t indexOfInitial(const icu::UnicodeString& name, InitialLetter which) {
  std::int32_t firstLetter = name.length();
  bool isInWord = false;
  for (std::int32_t at = 0; at < name.length(); at = name.moveIndex32(at, 1)) {
    const UChar32 character = name.char32At(at);
    if (isLetter(character)) {
      firstLetter = std::min(firstLetter, at);
      if (which == InitialLetter::first || (!isInWord && isCapital(character))) return at;
    }
    isInWord = continuesWord(character);
  }
  return firstLetter;
}

bool isASCII(char character) { return static_cast<unsigned char>(character) < 0x80; }

bool isASCIICapital(char character) { return character >= 'A' && character <= 'Z'; }

bool isASCIILetter(char character) { return (character >= 'a' && character <= 'z') || isASCIICapital(character); }

// The first letter of most names, told without the library: one that nothing but ASCII stands before and right after.
std::string asciiInitialOf(std::string_view name, InitialLetter which) {
  for (std::size_t at = 0; at < name.size() && isASCII(name[at]); ++at) {
    if (!isASCIILetter(name[at])) continue;
    const bool standsAlone = at + 1 == name.size() || isASCII(name[at + 1]);
    const bool counts = which == InitialLetter::first || isASCIICapital(name[at]);
    return standsAlone && counts ? std::string(1, name[at]) : std::string();
  }
  return {};
}

Initial initialOf(const std::optional<std::string>& part, InitialLetter which) {
  if (!part) return {};
  if (std::string initial = asciiInitialOf(*part, which); !initial.empty()) return {std::move(initial)};
  const icu::UnicodeString name = unicode(*part);
  const std::int32_t start = indexOfInitial(name, which);
  if (start == name.length()) return {};
  const std::int32_t end = endOfCluster(name, start);
  Initial initial;
  name.tempSubStringBetween(start, end).toUTF8String(initial.text);
  initial.isAbbreviated = isAbbreviated(scriptOf(name.char32At(start)));
  return initial;
}

// The letters and signs of Western languages, none of which joins another one to a cluster.
bool isPlain(UChar32 character) {
  constexpr UChar32 softHyphen = 0xAD, firstMark = 0x300;
  return (character >= ' ' && character <= '~') ||
         (character >= 0xA0 && character < firstMark && character != softHyphen);
}

// Of a locale such as "de_DE", whose language stands there. For any other the library is asked, which then loads the
// names that all languages ever had.
std::string languageOf(const std::string& locale) {
  const auto isLower = [](char character) { return character >= 'a' && character <= 'z'; };
  const std::string language = locale.substr(0, locale.find('_'));
  if (language.size() == 2 && std::ranges::all_of(language, isLower)) return language;
  return icu::Locale::createCanonical(locale.c_str()).getLanguage();
}

std::size_t widthOfCharacter(UChar32 character) {
  const auto category = u_charType(character);
  const bool takesNone = category == U_NON_SPACING_MARK || category == U_ENCLOSING_MARK || category == U_CONTROL_CHAR ||
                         category == U_FORMAT_CHAR || category == U_LINE_SEPARATOR || category == U_PARAGRAPH_SEPARATOR;
  if (takesNone) return 0;
  const auto width = u_getIntPropertyValue(character, UCHAR_EAST_ASIAN_WIDTH);
  const bool isWide = width == U_EA_FULLWIDTH || width == U_EA_WIDE;
  return isWide || u_hasBinaryProperty(character, UCHAR_EMOJI_PRESENTATION) ? 2 : 1;
}

/// The width of a text whose characters all stand alone; absent for any other text.
std::optional<std::size_t> widthOfLoneCharacters(std::string_view text) {
  std::size_t width = 0;
  const auto joins = [&width](UChar32 character) {
    const bool plain = isPlain(character);
    width += plain ? 1 : widthOfCharacter(character);
    return !plain && !standsAlone(character);
  };
  if (anyCharacter(text, joins)) return std::nullopt;
  return width;
}

// A column of their own have the vowel signs of Indic scripts and the narrow sound marks of Japanese.
bool widensCluster(UChar32 character) {
  return u_charType(character) == U_COMBINING_SPACING_MARK ||
         u_getIntPropertyValue(character, UCHAR_EAST_ASIAN_WIDTH) == U_EA_HALFWIDTH;
}

std::size_t widthOfCluster(const icu::UnicodeString& text, std::int32_t start, std::int32_t end) {
  std::size_t width = 0;
  std::size_t wideningMarks = 0;
  for (std::int32_t at = start; at < end; at = text.moveIndex32(at, 1)) {
    const UChar32 character = text.char32At(at);
    width = std::max(width, character == PictureSelector ? 2 : widthOfCharacter(character));
    if (at > start && widensCluster(character)) ++wideningMarks;
  }
  return width + wideningMarks;
}

}  // namespace

IcuText::IcuText(LocaleSource locale) : _locale(std::move(locale)) {}

bool IcuText::containsDecimalDigit(std::string_view text) {
  return anyCharacter(text, [](UChar32 character) { return u_isdigit(character) != 0; });
}

bool IcuText::isLetterOrMark(char16_t unit) { return (U_GET_GC_MASK(unit) & (U_GC_L_MASK | U_GC_M_MASK)) != 0; }

std::string IcuText::uppercase(std::string_view text) {
  // Of ASCII letters the locale has a say in "i" alone.
  const auto isPlain = [](char character) { return isASCII(character) && character != 'i'; };
  if (std::all_of(text.begin(), text.end(), isPlain)) {
    std::string plain(text);
    for (char& character : plain)
      character = static_cast<char>(character - (character >= 'a' && character <= 'z' ? 32 : 0));
    return plain;
  }
  std::string upper;
  unicode(text).toUpper(icu::Locale(_locale().c_str())).toUTF8String(upper);
  return upper;
}

std::vector<SearchWord> IcuText::searchWords(std::string_view text) { return pellor::searchWords(text); }

std::string IcuText::abbreviatedName(const std::optional<std::string>& givenName,
                                     const std::optional<std::string>& familyName) {
  const Initial given = initialOf(givenName, InitialLetter::first);
  const Initial family = initialOf(familyName, InitialLetter::firstCapital);
  if (!given.isAbbreviated || !family.isAbbreviated) return {};
  return writesSurnameFirst(_locale()) ? family.text + given.text : given.text + family.text;
}

bool containsNonLatinCharacters(std::string_view text) {
  return anyCharacter(text, [](UChar32 character) {
    if (!u_isalpha(character)) return false;
    const UScriptCode script = scriptOf(character);
    return script != USCRIPT_LATIN && script != USCRIPT_COMMON && script != USCRIPT_INHERITED;
  });
}

bool containsEmojiCharacters(std::string_view text) {
  return anyCharacter(text, [](UChar32 character) {
    constexpr UChar32 copyright = 0xA9, registered = 0xAE, trademark = 0x2122;
    if (character == copyright || character == registered || character == trademark) return false;
    return character == PictureSelector || u_hasBinaryProperty(character, UCHAR_EMOJI_PRESENTATION) ||
           u_hasBinaryProperty(character, UCHAR_EXTENDED_PICTOGRAPHIC);
  });
}

std::string lowerCaseForm(std::string_view text, const std::string& locale) {
  UErrorCode error = U_ZERO_ERROR;
  icu::UnicodeString form = unicode(text);
  const icu::Normalizer2* const normalizer = icu::Normalizer2::getNFKCInstance(error);
  if (U_SUCCESS(error)) form = normalizer->normalize(form, error);
  std::string result;
  (U_SUCCESS(error) ? form : unicode(text)).toLower(icu::Locale(locale.c_str())).toUTF8String(result);
  return result;
}

bool writesSurnameFirst(const std::string& locale) {
  static constexpr std::array<std::string_view, 6> languages = {"hu", "ja", "ko", "vi", "yue", "zh"};
  // Asked for with each name, and always for the store's one locale.
  thread_local std::string lastLocale;
  thread_local bool lastAnswer = false;
  if (locale.empty() || locale != lastLocale) {
    lastAnswer = std::ranges::count(languages, languageOf(locale)) > 0;
    lastLocale = locale;
  }
  return lastAnswer;
}

namespace {

std::size_t sizeInUtf8(const icu::UnicodeString& text, std::int32_t start, std::int32_t end) {
  std::size_t size = 0;
  for (std::int32_t at = start; at < end; at = text.moveIndex32(at, 1)) {
    const UChar32 character = text.char32At(at);
    size += static_cast<std::size_t>(U8_LENGTH(character));
  }
  return size;
}

// Calls `visit` with where each cluster starts and ends, until it returns false.
template <class Visit>
void forEachCluster(const icu::UnicodeString& content, Visit visit) {
  icu::BreakIterator* const clusters = clustersOf(content);
  std::int32_t start = 0;
  while (start < content.length()) {
    const std::int32_t next = clusters ? clusters->next() : content.moveIndex32(start, 1);
    if (next == icu::BreakIterator::DONE || !visit(start, next)) return;
    start = next;
  }
}

}  // namespace

std::size_t displayWidth(std::string_view text) {
  if (const auto width = widthOfLoneCharacters(text)) return *width;
  const icu::UnicodeString content = unicode(text);
  std::size_t width = 0;
  forEachCluster(content, [&](std::int32_t start, std::int32_t end) {
    width += widthOfCluster(content, start, end);
    return true;
  });
  return width;
}

namespace {

// How many bytes the first clusters take that measure no more than `limit` together.
template <class Measure>
std::size_t sizeOfClustersWithin(std::string_view text, std::size_t limit, const Measure& measure) {
  const icu::UnicodeString content = unicode(text);
  std::size_t size = 0;
  std::size_t taken = 0;
  forEachCluster(content, [&](std::int32_t start, std::int32_t end) {
    taken += measure(content, start, end);
    if (taken <= limit) size += sizeInUtf8(content, start, end);
    return taken <= limit;
  });
  return size;
}

}  // namespace

std::string_view prefixOfWidth(std::string_view text, std::size_t width) {
  return text.substr(0, sizeOfClustersWithin(text, width, widthOfCluster));
}

std::size_t characterEndWithin(std::string_view text, std::size_t limit) {
  return sizeOfClustersWithin(text, limit, sizeInUtf8);
}

std::uint64_t segmentedTextUnits() { return segmentedUnits.load(std::memory_order_relaxed); }

}  // namespace pellor
