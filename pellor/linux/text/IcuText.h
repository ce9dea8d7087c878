// Unicode and the text rules of a locale, by ICU.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/platform/PersonNameFormatter.h"
#include "pellor/platform/TextService.h"

namespace pellor {

/// Gives the locale of the store, such as "de_DE". Called on any thread.
using LocaleSource = std::function<std::string()>;

/// Text that is no valid UTF-8 is read with U+FFFD in place of the bad bytes.
class IcuText final : public TextService, public PersonNameFormatter {
 public:
  explicit IcuText(LocaleSource locale);

  bool containsDecimalDigit(std::string_view text) override;
  bool isLetterOrMark(char16_t unit) override;
  std::string uppercase(std::string_view text) override;
  /// See CollationKeys.h: the words are those of all locales alike.
  std::vector<SearchWord> searchWords(std::string_view text) override;

  /// The first letter, with its accents, of each name: the surname's first where the locale's language writes it first
  /// (Cantonese, Chinese, Hungarian, Japanese, Korean, Vietnamese), else the given name's. Particles of a surname, in
  /// lower case, are passed over ("van der Berg" gives "B") unless there is nothing else. Names of scripts in which
  /// initials are usual (Latin, Greek, Cyrillic, Armenian) are abbreviated; when one part is of another script the
  /// result is empty. A part without a letter counts as missing. Letters keep their case.
  std::string abbreviatedName(const std::optional<std::string>& givenName,
                              const std::optional<std::string>& familyName) override;

 private:
  LocaleSource _locale;
};

/// Whether names are written surname first in that locale, such as "ja_JP". Any thread.
bool writesSurnameFirst(const std::string& locale);

/// In lower case by the rules of that locale, with each letter and its marks in one and in its usual width: two names
/// that are equal in this form differ in nothing else. Any thread.
std::string lowerCaseForm(std::string_view text, const std::string& locale);

/// Whether the text holds a letter of another script than Latin. Digits, signs and marks belong to none. Any thread.
bool containsNonLatinCharacters(std::string_view text);

/// Whether the text holds a character that is shown as a picture by itself or can be. The signs (c), (r) and (tm) of
/// ordinary text count only with the selector that asks for a picture. Any thread.
bool containsEmojiCharacters(std::string_view text);

/// How many columns of a terminal the text takes: two for wide characters and pictures, none for marks and control
/// characters; joined characters count once. Any thread.
std::size_t displayWidth(std::string_view text);

/// The longest beginning of the text that takes no more columns and cuts no joined characters. The text is UTF-8. Any
/// thread.
std::string_view prefixOfWidth(std::string_view text, std::size_t width);

/// Where the last character that ends within `limit` bytes ends, with the marks and signs that are joined to it; 0 when
/// the first one is longer. The text is UTF-8. Any thread.
std::size_t characterEndWithin(std::string_view text, std::size_t limit);

/// How many UTF-16 units this program has had split into characters: text that nothing joins is not counted. Any
/// thread.
std::uint64_t segmentedTextUnits();

}  // namespace pellor
