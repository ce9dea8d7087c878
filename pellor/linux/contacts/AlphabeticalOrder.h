// The order in which people look for names in a list, by ICU.
#pragma once

#include <memory>
#include <string>
#include <string_view>

struct UCollator;

namespace pellor {

/// As the dictionaries of a locale's language order their words: Swedish has Ä behind Z, Hungarian "cs" behind "c". Of
/// texts with the same letters those without accents come first, then those in lower case. Making one loads the rules
/// of the language. Any thread.
class AlphabeticalOrder {
 public:
  /// A locale such as "sv_SE". One that is empty, or whose language has no rules of its own, has the order that most
  /// languages share.
  explicit AlphabeticalOrder(const std::string& locale);

  /// Keys of one object compare with one another, bytewise. What goes beyond the length of a name does not count.
  std::string key(std::string_view text) const;

 private:
  std::shared_ptr<const UCollator> _collator;
};

}  // namespace pellor
