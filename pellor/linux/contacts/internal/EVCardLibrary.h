// The vCard parser of libebook-contacts, loaded when the first card has to be parsed.
#pragma once

#include <string>
#include <vector>

namespace pellor {

/// A parameter of a property, such as TYPE with "home" and "voice".
struct CardParameter {
  std::string name;  ///< upper case
  std::vector<std::string> values;
};

/// One property of a card as the parser splits it. Values are unescaped; a structured value is split at its semicolons.
/// Pictures, sounds and keys come without their values.
struct CardProperty {
  std::string name;  ///< upper case
  std::vector<CardParameter> parameters;
  std::vector<std::string> values;

  /// The values of a parameter; empty when there is none.
  std::vector<std::string> parameterValues(const std::string& parameter) const;
};

/// What the parser makes of a text. It never refuses one: it keeps what it understands.
struct ParsedCard {
  std::vector<CardProperty> properties;
  std::vector<std::string> warnings;  ///< what the parser found odd
};

/// Parses the first card of `text`, which is UTF-8 without zero bytes. Loads the library on first use (about 11 ms and
/// 3 MiB, which a program that parses no card does not pay); throws std::runtime_error when it cannot be loaded. Any
/// thread. What the parser would print on standard error comes back as warnings.
ParsedCard parseCard(const std::string& text);

}  // namespace pellor
