// The words by which a contact is found, as the contact index keeps them.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "pellor/linux/contacts/internal/EVCardContact.h"

namespace pellor {

/// Stored: the numbers stay as they are.
enum class WordKind : std::int64_t {
  name = 0,          ///< of a name or nickname
  organization = 1,  ///< of the organisation
  address = 2,       ///< of an e-mail address
  numberEnding = 3,  ///< the digits of a number's canonical form, the last one first
  wholeName = 4,     ///< `nameSearchKey` and `spelledOutNameKey` of a whole name
};

struct IndexedWord {
  WordKind kind = WordKind::name;
  std::string word;        ///< a key of `searchWords`, in either spelling, but for the last two kinds
  std::int64_t place = 0;  ///< how many words stand before it
};

struct IndexedWords {
  std::vector<IndexedWord> words;  ///< each of a kind once, at the first of its places
  std::string all;                 ///< the words of names, organisation and addresses, each with a mark before it
};

/// `numbers` are the canonical forms of the card's numbers.
IndexedWords indexedWords(const ContactCard& card, std::span<const std::string> numbers);

/// What `IndexedWords::all` contains if one of its words begins with that key.
std::string markedWord(const std::string& key);

}  // namespace pellor
