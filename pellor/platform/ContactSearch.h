// Finding people in the contacts by what somebody typed.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace pellor {

/// Where a typed text was found, the best first.
enum class ContactFit {
  destination,        ///< it is a number or address of the person, however both are written
  name,               ///< it is the name or nickname, its words in any order
  nameWords,          ///< each typed word begins a word of the name, the nickname or, as below, something else
  organizationWords,  ///< as `nameWords`; the word that fewest people have is one of the organisation
  addressWords,       ///< as `nameWords`; the word that fewest people have is one of an e-mail address
  numberBeginning,    ///< a number begins with the typed digits, with or without its country
  numberEnding,       ///< a number ends with the typed digits, of which there are at least three
};

/// A person of the contacts, by one of their records: plain values, which outlive the address book's handle.
struct FoundContact {
  std::string guid;                       ///< of the record that the text was found in, never empty
  std::string name;                       ///< the record's composite name, else its nickname; empty without both
  std::string organization;               ///< empty without one
  std::vector<std::string> destinations;  ///< of the record as they are written: numbers, then addresses
  ContactFit fit = ContactFit::name;
  friend bool operator==(const FoundContact&, const FoundContact&) = default;
};

/// Words are compared as `TextService::searchWords` has them. Main queue. Each call sees the contacts as they are then;
/// while they cannot be read nobody is found.
class ContactSearch {
 public:
  virtual ~ContactSearch() = default;

  /// The people whom the text fits, by fit; those of one fit in one order as long as the contacts do not change, with
  /// whole words before longer ones. Linked records are one person, who is found by the record that fits best. At most
  /// `limit`; nobody for a text without a word and without a digit.
  virtual std::vector<FoundContact> find(std::string_view text, std::size_t limit) = 0;

  /// The people whom the text would fit if it were spelled as their names are: what `find` gives once each word that
  /// begins no word of a name is replaced by the word of a name that is nearest to it, by letters that are wrong,
  /// missing, too many or exchanged with their neighbours. Nobody where a word differs by more than a third of its
  /// letters from all that there are. May look at all contacts.
  virtual std::vector<FoundContact> findSimilar(std::string_view text, std::size_t limit) = 0;
};

}  // namespace pellor
