#include "pellor/linux/contacts/internal/NameSearchKey.h"

#include <unicode/coll.h>
#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/uversion.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <vector>

#include "pellor/linux/text/TextLimits.h"

namespace pellor {

namespace {

// Below every byte of a collation key's primary level.
constexpr const char* WordSeparator = "\x01";

std::unique_ptr<icu::Collator> makeCollator(const char* kind) {
  UErrorCode error = U_ZERO_ERROR;
  std::unique_ptr<icu::Collator> collator(icu::Collator::createInstance(icu::Locale(kind), error));
  if (U_FAILURE(error)) throw std::runtime_error("ICU has no collation data");
  // Base letters alone: neither accents nor case.
  collator->setStrength(icu::Collator::PRIMARY);
  return collator;
}

// A collator may be used by several threads at once as long as nobody changes it.
// The one for searching also takes for equal what the other one sorts apart, such as the forms of alef.
const icu::Collator& searchCollator() {
  static const std::unique_ptr<icu::Collator> made = makeCollator("@collation=search");
  return *made;
}

const icu::Collator& sortCollator() {
  static const std::unique_ptr<icu::Collator> made = makeCollator("");
  return *made;
}

std::string collationKey(const icu::Collator& collator, const icu::UnicodeString& text) {
  std::vector<std::uint8_t> key(static_cast<std::size_t>(text.length()) * 6 + 8);
  std::int32_t size = collator.getSortKey(text, key.data(), static_cast<std::int32_t>(key.size()));
  if (static_cast<std::size_t>(size) > key.size()) {
    key.resize(static_cast<std::size_t>(size));
    size = collator.getSortKey(text, key.data(), size);
  }
  // The key ends with a zero byte.
  return std::string(key.begin(), key.begin() + std::max(size - 1, 0));
}

bool separatesWords(UChar32 character) { return u_isUWhiteSpace(character) || u_ispunct(character); }

std::vector<std::string> wordKeys(const icu::UnicodeString& text) {
  std::vector<std::string> keys;
  icu::UnicodeString word;
  const auto endWord = [&] {
    std::string key = collationKey(searchCollator(), word);
    if (!key.empty()) keys.push_back(std::move(key));
    word.remove();
  };
  for (std::int32_t index = 0; index < text.length(); index = text.moveIndex32(index, 1)) {
    const UChar32 character = text.char32At(index);
    if (separatesWords(character)) {
      endWord();
    } else {
      word.append(character);
    }
  }
  endWord();
  return keys;
}

icu::UnicodeString unicode(std::string_view text) {
  return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())));
}

}  // namespace

std::string nameSearchKey(std::string_view name) {
  std::vector<std::string> words = wordKeys(unicode(nameWithinLimit(name)));
  std::sort(words.begin(), words.end());
  std::string key;
  for (const std::string& word : words) key += (key.empty() ? "" : WordSeparator) + word;
  return key;
}

std::string nameSortKey(std::string_view name) { return collationKey(sortCollator(), unicode(nameWithinLimit(name))); }

// The version of the library stands for that of its collation: asking the collator itself would load its data.
std::string nameKeyVersion() {
  UVersionInfo version{};
  u_getVersion(version);
  std::string text;
  for (const std::uint8_t part : version) text += std::to_string(part) + '.';
  return text;
}

}  // namespace pellor
