// Unicode and the text rules of the user's locale.
#pragma once

#include <string>
#include <string_view>

namespace pellor {

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
};

}  // namespace pellor
