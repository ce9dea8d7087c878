// How names, numbers and addresses that a user types are compared with those that are known.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace pellor::cli {

/// A name as the user typed it. Case never matters; for the whole name accents and the order of words do not either.
class NameMatch {
 public:
  explicit NameMatch(const std::string& typed);
  bool isWhole(const std::optional<std::string>& name) const;
  /// Whether the name, or one of its words, begins with what was typed.
  bool isBeginning(const std::optional<std::string>& name) const;
  bool isPart(const std::optional<std::string>& name) const;

 private:
  std::string _key;
  std::string _upperCase;
};

/// The form in which two spellings of a number or address are equal; absent for a text that is neither.
std::optional<std::string> destinationKey(std::string_view text);

/// Whether the text can be nothing but a number or an address, so that it may be added without a contact.
bool isPlainDestination(std::string_view text);

}  // namespace pellor::cli
