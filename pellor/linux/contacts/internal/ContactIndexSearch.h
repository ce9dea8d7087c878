// Finding contacts in their index by what somebody typed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/linux/contacts/internal/ContactIndex.h"
#include "pellor/platform/ContactSearch.h"
#include "pellor/platform/TextService.h"

namespace pellor {

/// A typed text, taken apart. What is empty is not looked for.
struct ContactQuery {
  std::vector<SearchWord> words;
  std::string destination;                    ///< the key of a whole one
  std::vector<std::string> numberBeginnings;  ///< as canonical forms begin
  std::string numberEnding;                   ///< the last digit first
};

struct FittingContact {
  IndexedContact contact;
  ContactFit fit = ContactFit::name;
};

/// Reads the index while it is being read. What is read of it grows with the number of contacts that are given, for
/// texts of several words also with the number of those that have the rarest of them.
class ContactIndexSearch {
 public:
  explicit ContactIndexSearch(ContactIndex& index) : _index(index) {}

  /// The contacts that fit, in the order of `ContactSearch`, one for each person.
  std::vector<FittingContact> find(const ContactQuery& query, std::size_t limit);

  /// Whether the word begins one of a name.
  bool isOfAName(const SearchWord& word);
  /// The key of a name's word that is nearest to the typed one; of several the first by key. Absent when all differ by
  /// more than a third. Looks at the names of all contacts. Keys are compared: a letter of Latin, Greek, Cyrillic,
  /// Hebrew, Arabic and most other alphabets is one byte of them or two, which differ in one; a Han character is three
  /// and counts as three letters.
  std::optional<std::string> nearestOfNames(const std::string& typed);

 private:
  ContactIndex& _index;
};

}  // namespace pellor
