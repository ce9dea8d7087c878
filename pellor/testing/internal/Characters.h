// Characters and their classes, as far as a simulation needs them: Latin in full, other scripts by their main blocks.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pellor::characters {

/// The code points of a UTF-8 text; U+FFFD for each byte that does not decode.
std::vector<char32_t> decode(std::string_view utf8);
void append(std::string& utf8, char32_t character);
std::string encode(const std::vector<char32_t>& characters);

bool isLatinLetter(char32_t character);
/// A letter of a script other than Latin.
bool isOtherLetter(char32_t character);
/// A letter of a script in which names have no initials.
bool isSyllableOrIdeograph(char32_t character);
bool isMark(char32_t character);
bool isEmoji(char32_t character);
/// The value of a decimal digit of any script.
std::optional<int> decimalDigit(char32_t character);

/// Upper case without regard to the locale and to characters that grow.
char32_t upperCase(char32_t character);
/// Lower case of Latin letters up to U+017F, Greek and Cyrillic: enough to compare names.
char32_t lowerCase(char32_t character);

/// The letters of A to Z for which a Latin letter up to U+017F or a full-width character stands when its marks and its
/// case are left aside, in lower case; any other character in upper case.
std::string plainLetters(char32_t character);

}  // namespace pellor::characters
