// Unicode and the text rules of the user's locale.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace pellor {

/// A word as it is compared with what somebody types. Keys of one service alone compare with one another.
struct SearchWord {
  /// Equal for words that differ in case, accents and width alone. The key of a beginning of the word is a beginning of
  /// it. Never empty; without zero bytes.
  std::string key;
  /// The key of the word as it is typed where its letters are missing: "mueller" of "Müller". Empty where the word has
  /// no other spelling.
  std::string spelledOut;
  friend bool operator==(const SearchWord&, const SearchWord&) = default;
};

/// Whether a word, whole or not, was typed for another one: in the one or the other spelling of both.
inline bool beginsWord(const SearchWord& typed, const SearchWord& word) {
  const auto begins = [](std::string_view beginning, std::string_view key) {
    return !beginning.empty() && key.starts_with(beginning);
  };
  return begins(typed.key, word.key) || begins(typed.key, word.spelledOut) || begins(typed.spelledOut, word.key);
}

/// Any thread; pure.
class TextService {
 public:
  virtual ~TextService() = default;
  /// Whether the text holds a character of the Unicode decimal-digit class, of any script.
  virtual bool containsDecimalDigit(std::string_view text) = 0;
  /// Whether a 16-bit unit, taken by itself, is of the Unicode letter or mark classes. Halves of a pair are not.
  virtual bool isLetterOrMark(char16_t unit) = 0;
  /// The text in upper case by the rules of the locale; it may grow.
  virtual std::string uppercase(std::string_view text) = 0;
  /// The words of a text for a search, in their order: what stands between blanks and punctuation. A port whose users
  /// write A to Z alone may leave it as it is.
  virtual std::vector<SearchWord> searchWords(std::string_view text) {
    constexpr std::string_view separators = " \t\r\n!\"#$%&'()*+,-./:;<=>?@[\\]^_`{|}~";
    std::vector<SearchWord> words;
    for (std::size_t end = 0, start; (start = text.find_first_not_of(separators, end)) != text.npos;) {
      end = std::min(text.find_first_of(separators, start), text.size());
      std::string key(text.substr(start, end - start));
      for (char& letter : key)
        if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
      words.push_back({std::move(key), {}});
    }
    return words;
  }
};

}  // namespace pellor
