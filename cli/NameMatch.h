// How names, numbers and addresses that a user types are compared with those that are known.
#pragma once

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pellor::cli {

/// A name, or a part of one or of an address, as the user typed it. Case never matters; for the whole name accents and
/// the order of words do not either.
class NameMatch {
 public:
  explicit NameMatch(const std::string& typed);
  bool isWhole(const std::optional<std::string>& name) const;
  bool isPart(const std::optional<std::string>& name) const;
  /// Of a number, an address or a GUID, which are not of the user's language: A-Z count as a-z, and that is all.
  bool isPartOfAddress(std::string_view address) const;

 private:
  std::string _key;
  std::string _upperCase;
  std::string _lowerCaseAddress;
};

/// A name as the user wrote it: only case and width do not matter. It tells those apart whom a whole name fits.
class WrittenName {
 public:
  /// The locale's rules of case are those of the names.
  WrittenName(const std::string& typed, std::string locale);
  bool is(const std::optional<std::string>& name) const;

 private:
  std::string _locale;
  std::string _form;
};

/// Keeps those of whom `fits` says so; all of them where it says so of nobody.
template <class Found, class Fits>
void keepThoseWho(std::vector<Found>& found, const Fits& fits) {
  if (std::ranges::any_of(found, fits)) std::erase_if(found, std::not_fn(fits));
}

/// Equal for two names that differ in nothing but case, accents and order of words; a name without words equals itself
/// alone.
std::string wholeNameKey(const std::string& name);

/// Whether the text can be nothing but a number or an address, so that it may be added without a contact.
bool isPlainDestination(std::string_view text);

}  // namespace pellor::cli
