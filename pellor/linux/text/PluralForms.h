// The forms that a language has for counts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace pellor {

/// Tells which form of a text goes with a count, as the header of a message catalog says it: `nplurals`, how many forms
/// there are, and `plural`, an expression of C over the count `n`, which gives the number of the form, from 0. Numbers
/// have 64 bits and no sign. Any thread.
class PluralForms {
 public:
  /// As in English: one thing, and any other count. A catalog whose header does not say has these.
  PluralForms() = default;

  /// Reads what follows "Plural-Forms:" in a header. Absent for what is not of the form
  /// `nplurals=<1 to 16>; plural=<expression>;`, and where the expression is longer than 1,000 characters or nested
  /// more than 50 deep.
  static std::optional<PluralForms> read(std::string_view field);

  /// The form for that count, less than `nplurals`: the first where the expression gives none, or divides by zero.
  std::size_t formFor(std::uint64_t count) const;

 private:
  std::size_t _formCount = 2;
  std::string _expression = "n != 1";
};

}  // namespace pellor
