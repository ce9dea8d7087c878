#include "pellor/testing/SimulatedText.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "pellor/testing/internal/Characters.h"

namespace pellor {

namespace {

using Part = const std::optional<std::string>*;

std::vector<std::string> presentParts(Part first, Part second) {
  std::vector<std::string> parts;
  for (const Part part : {first, second}) {
    if (*part && !(*part)->empty()) parts.push_back(**part);
  }
  return parts;
}

/// Words grow letter by letter.
class WordReader {
 public:
  void read(char32_t character) {
    if (characters::isMark(character)) return;
    const std::string letters = characters::plainLetters(character);
    if (letters.size() == 1 && separators.find(letters.front()) != std::string_view::npos) return endWord();
    _word.key += letters;
    const bool isUmlaut = std::u32string_view(U"äöüÄÖÜ").find(character) != std::u32string_view::npos;
    _spelledOut += isUmlaut ? letters + 'e' : letters;
  }
  std::vector<SearchWord> words() {
    endWord();
    return std::move(_words);
  }

 private:
  static constexpr std::string_view separators = " \t\r\n!\"#$%&'()*+,-./:;<=>?@[\\]^_`{|}~";

  void endWord() {
    if (_spelledOut != _word.key) _word.spelledOut = std::move(_spelledOut);
    if (!_word.key.empty()) _words.push_back(std::move(_word));
    _word = {};
    _spelledOut.clear();
  }

  std::vector<SearchWord> _words;
  SearchWord _word;
  std::string _spelledOut;
};

}  // namespace

bool SimulatedText::containsDecimalDigit(std::string_view text) {
  const auto decoded = characters::decode(text);
  return std::any_of(decoded.begin(), decoded.end(),
                     [](char32_t c) { return characters::decimalDigit(c).has_value(); });
}

bool SimulatedText::isLetterOrMark(char16_t unit) {
  return characters::isLatinLetter(unit) || characters::isOtherLetter(unit) || characters::isMark(unit);
}

std::string SimulatedText::uppercase(std::string_view text) {
  std::string result;
  for (const char32_t c : characters::decode(text)) {
    if (c == U'ß') {
      result += "SS";
    } else if (c == U'ŉ') {
      result += "ʼN";
    } else if (c == U'i' && _isTurkish) {
      result += "İ";
    } else {
      characters::append(result, characters::upperCase(c));
    }
  }
  return result;
}

std::vector<SearchWord> SimulatedText::searchWords(std::string_view text) {
  WordReader reader;
  for (const char32_t c : characters::decode(text)) reader.read(c);
  return reader.words();
}

std::string SimulatedPersonNames::abbreviatedName(const std::optional<std::string>& givenName,
                                                  const std::optional<std::string>& familyName) {
  const bool familyFirst = _familyNameFirst;
  std::string initials;
  for (const std::string& part :
       presentParts(familyFirst ? &familyName : &givenName, familyFirst ? &givenName : &familyName)) {
    const char32_t first = characters::decode(part).front();
    const bool isLetter = characters::isLatinLetter(first) || characters::isOtherLetter(first);
    if (!isLetter || characters::isSyllableOrIdeograph(first)) return {};
    characters::append(initials, first);
  }
  return initials;
}

std::optional<std::string> SimulatedPersonNames::fullName(const std::optional<std::string>& givenName,
                                                          const std::optional<std::string>& familyName) const {
  const bool familyFirst = _familyNameFirst;
  std::optional<std::string> name;
  for (const std::string& part :
       presentParts(familyFirst ? &familyName : &givenName, familyFirst ? &givenName : &familyName)) {
    name = name ? *name + " " + part : part;
  }
  return name;
}

}  // namespace pellor
