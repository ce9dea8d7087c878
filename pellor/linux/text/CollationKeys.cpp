#include "pellor/linux/text/CollationKeys.h"

#include <unicode/coll.h>
#include <unicode/locid.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/uversion.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <stdexcept>

namespace pellor {
namespace {

struct Replacement {
  char16_t letter;
  const char16_t* text;
};

// Letters that the collation tells from the plain ones that people type for them.
constexpr std::array PlainLetters = std::to_array<Replacement>({
    {u'ı', u"i"},
    {u'ə', u"e"},
    {u'ŋ', u"n"},
    {u'þ', u"th"},
    {u'ŧ', u"t"},
    {u'ɓ', u"b"},
    {u'ɗ', u"d"},
    {u'ƙ', u"k"},
    {u'ƴ', u"y"},
    {u'\u02BB', u""},  // the Hawaiian and Uzbek apostrophes
    {u'\u02BC', u""},
});

constexpr std::array SpelledLetters = std::to_array<Replacement>({
    {u'ä', u"ae"},
    {u'å', u"aa"},
    {u'ö', u"oe"},
    {u'ø', u"oe"},
    {u'ü', u"ue"},
});

std::unique_ptr<icu::Collator> makeCollator() {
  UErrorCode error = U_ZERO_ERROR;
  std::unique_ptr<icu::Collator> collator(icu::Collator::createInstance(icu::Locale("@collation=search"), error));
  if (U_FAILURE(error)) throw std::runtime_error("ICU has no collation data");
  // Base letters alone: neither accents nor case.
  collator->setStrength(icu::Collator::PRIMARY);
  return collator;
}

// A collator may be used by several threads at once as long as nobody changes it.
// The one for searching also takes for equal what an alphabetical order sorts apart, such as the forms of alef; and
// letters keep their order in its keys, where the other one sorts Thai vowels behind the consonants that they stand
// before.
const icu::Collator& searchCollator() {
  static const std::unique_ptr<icu::Collator> made = makeCollator();
  return *made;
}

std::string searchKeyOf(const icu::UnicodeString& text) {
  std::vector<std::uint8_t> key(static_cast<std::size_t>(text.length()) * 6 + 8);
  std::int32_t size = searchCollator().getSortKey(text, key.data(), static_cast<std::int32_t>(key.size()));
  if (static_cast<std::size_t>(size) > key.size()) {
    key.resize(static_cast<std::size_t>(size));
    size = searchCollator().getSortKey(text, key.data(), size);
  }
  // The key ends with a zero byte.
  return std::string(key.begin(), key.begin() + std::max(size - 1, 0));
}

icu::UnicodeString utf16Of(std::string_view text) {
  return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())));
}

// With letters and their marks in one, as the tables above have them.
icu::UnicodeString composed(std::string_view text) {
  icu::UnicodeString given = utf16Of(text);
  UErrorCode error = U_ZERO_ERROR;
  const icu::Normalizer2* const normalizer = icu::Normalizer2::getNFCInstance(error);
  if (U_FAILURE(error)) return given;
  icu::UnicodeString result = normalizer->normalize(given, error);
  return U_FAILURE(error) ? given : result;
}

bool separatesWords(UChar32 character) { return u_isUWhiteSpace(character) || u_ispunct(character); }

template <std::size_t Count>
const char16_t* replacementOf(UChar32 character, const std::array<Replacement, Count>& table) {
  const UChar32 small = u_tolower(character);
  const auto found =
      std::ranges::find_if(table, [&](const Replacement& each) { return UChar32{each.letter} == small; });
  return found == table.end() ? nullptr : found->text;
}

/// One word as it is read, letter by letter.
class WordInTheMaking {
 public:
  void add(UChar32 character) {
    if (character < 0x80) return append(character);
    if (const char16_t* const plain = replacementOf(character, PlainLetters)) {
      _plain.append(plain, -1);
      _spelledOut.append(plain, -1);
    } else if (const char16_t* const spelled = replacementOf(character, SpelledLetters)) {
      _plain.append(character);
      _spelledOut.append(spelled, -1);
      _hasOtherSpelling = true;
    } else {
      append(character);
    }
  }

  /// The key is empty for a word of marks alone.
  SearchWord word() const {
    SearchWord word{searchKeyOf(_plain), {}};
    if (_hasOtherSpelling) word.spelledOut = searchKeyOf(_spelledOut);
    return word;
  }

  bool isEmpty() const { return _plain.isEmpty(); }

 private:
  void append(UChar32 character) {
    _plain.append(character);
    _spelledOut.append(character);
  }

  icu::UnicodeString _plain;
  icu::UnicodeString _spelledOut;
  bool _hasOtherSpelling = false;
};

}  // namespace

std::vector<SearchWord> searchWords(std::string_view text) {
  std::vector<SearchWord> words;
  WordInTheMaking next;
  const auto endWord = [&] {
    if (next.isEmpty()) return;
    if (SearchWord word = next.word(); !word.key.empty()) words.push_back(std::move(word));
    next = {};
  };
  const icu::UnicodeString characters = composed(text);
  for (std::int32_t index = 0; index < characters.length(); index = characters.moveIndex32(index, 1)) {
    const UChar32 character = characters.char32At(index);
    if (separatesWords(character)) {
      endWord();
    } else {
      next.add(character);
    }
  }
  endWord();
  return words;
}

// The version of the library stands for that of its collation: asking the collator itself would load its data.
std::string collationVersion() {
  UVersionInfo version{};
  u_getVersion(version);
  std::string text;
  for (const std::uint8_t part : version) text += std::to_string(part) + '.';
  return text;
}

}  // namespace pellor
