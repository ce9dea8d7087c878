#include "pellor/linux/contacts/internal/ContactWords.h"

#include <set>
#include <utility>

#include "pellor/linux/contacts/NameSearchKey.h"
#include "pellor/linux/contacts/internal/ContactNames.h"
#include "pellor/linux/text/CollationKeys.h"
#include "pellor/linux/text/TextLimits.h"
#include "pellor/platform/TypedNumber.h"

namespace pellor {
namespace {

// Stands before each word where all of them are one text; below every byte of a key.
constexpr char WordMark = '\x01';

bool isWholeWord(WordKind kind) { return kind <= WordKind::address; }

/// What was met of a card so far.
class WordList {
 public:
  void add(WordKind kind, const std::string& word, std::int64_t place = 0) {
    if (word.empty() || !_known.emplace(kind, word).second) return;
    _words.words.push_back({kind, word, place});
    if (isWholeWord(kind)) _words.all += markedWord(word);
  }
  void add(WordKind kind, std::span<const SearchWord> words) {
    for (std::size_t place = 0; place < words.size(); ++place) {
      add(kind, words[place].key, static_cast<std::int64_t>(place));
      add(kind, words[place].spelledOut, static_cast<std::int64_t>(place));
    }
  }
  IndexedWords take() { return std::move(_words); }

 private:
  std::set<std::pair<WordKind, std::string>> _known;
  IndexedWords _words;
};

}  // namespace

IndexedWords indexedWords(const ContactCard& card, std::span<const std::string> numbers) {
  WordList list;
  for (const std::string& name : ownNames(card)) {
    const std::vector<SearchWord> words = searchWords(nameWithinLimit(name));
    list.add(WordKind::name, words);
    list.add(WordKind::wholeName, nameSearchKey(words));
    list.add(WordKind::wholeName, spelledOutNameKey(words));
  }
  if (card.organization) list.add(WordKind::organization, searchWords(nameWithinLimit(*card.organization)));
  for (const CardValue& email : card.emails) {
    if (!isTooLongForDestination(email.value)) list.add(WordKind::address, searchWords(email.value));
  }
  for (const std::string& number : numbers) {
    if (!isTooLongForNumber(number)) list.add(WordKind::numberEnding, TypedNumber::endingKey(number));
  }
  return list.take();
}

std::string markedWord(const std::string& key) { return WordMark + key; }

}  // namespace pellor
