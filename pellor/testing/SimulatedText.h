// Text rules and initials for a simulation, without a library behind them.
#pragma once

#include <atomic>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/platform/PersonNameFormatter.h"
#include "pellor/platform/TextService.h"

namespace pellor {

/// Letters and marks of the main scripts, all decimal digits, upper case of Latin (up to Latin Extended-A, where "ß"
/// becomes "SS"), Greek and Cyrillic.
class SimulatedText : public TextService {
 public:
  /// Whether "i" is upper-cased to "İ", as in Turkish. Off at first. Any thread.
  void setTurkish(bool isTurkish) { _isTurkish = isTurkish; }

  bool containsDecimalDigit(std::string_view text) override;
  bool isLetterOrMark(char16_t unit) override;
  std::string uppercase(std::string_view text) override;
  /// Latin letters count as those of A to Z, with their marks or without.
  std::vector<SearchWord> searchWords(std::string_view text) override;

 private:
  std::atomic<bool> _isTurkish = false;  // written by the test, on any thread
};

/// The first letter of each part. A part that begins with no letter, or with one of a script without initials such as
/// Han, makes the whole name one that cannot be abbreviated.
class SimulatedPersonNames : public PersonNameFormatter {
 public:
  /// Whether names are written with the family name first. Off at first. Any thread.
  void setFamilyNameFirst(bool isFirst) { _familyNameFirst = isFirst; }
  bool isFamilyNameFirst() const { return _familyNameFirst; }

  std::string abbreviatedName(const std::optional<std::string>& givenName,
                              const std::optional<std::string>& familyName) override;
  /// Both parts in the order of the locale; absent when both are missing. Any thread.
  std::optional<std::string> fullName(const std::optional<std::string>& givenName,
                                      const std::optional<std::string>& familyName) const;

 private:
  std::atomic<bool> _familyNameFirst = false;  // written by the test, on any thread
};

}  // namespace pellor
