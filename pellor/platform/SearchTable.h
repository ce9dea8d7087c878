// People by their words, numbers and addresses, in memory: what a port without a search of its own finds people with.
#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#include "pellor/platform/ContactSearch.h"
#include "pellor/platform/PhoneNumberFormatter.h"
#include "pellor/platform/ReachabilityService.h"
#include "pellor/platform/TextService.h"
#include "pellor/platform/TypedNumber.h"
#include "pellor/platform/detail/WordDistance.h"

namespace pellor {

/// What is known of a person who is to be found.
struct SearchedPerson {
  std::vector<std::string> names;  ///< each whole; nicknames are names
  std::string organization;
  std::vector<std::string> destinations;  ///< numbers and addresses, as they are written
};

/// Finds what `ContactSearch` says among people who are added; people are numbers of the caller's. What is looked at
/// grows with the logarithm of all that was added and with how many fit. One thread at a time.
class SearchTable {
 public:
  /// Takes a person who was found; false when no more are wanted. Nobody is given twice.
  using Visitor = std::function<bool(std::size_t person, ContactFit fit)>;

  SearchTable(std::shared_ptr<TextService> text, std::shared_ptr<ReachabilityService> destinations,
              std::shared_ptr<PhoneNumberFormatter> phoneNumbers)
      : _text(std::move(text)), _destinations(std::move(destinations)), _phoneNumbers(std::move(phoneNumbers)) {}

  /// Each number once, before the first search.
  void add(std::size_t person, const SearchedPerson& known) {
    for (const std::string& name : known.names) {
      addWords(person, name, ContactFit::nameWords);
      if (const std::string key = wholeKey(_text->searchWords(name)); !key.empty()) _names.push_back({key, person});
    }
    addWords(person, known.organization, ContactFit::organizationWords);
    for (const std::string& destination : known.destinations) {
      const bool isAddress = destination.find('@') != std::string::npos;
      const std::string key = destinationKey(destination);
      if (isAddress) addWords(person, destination, ContactFit::addressWords);
      if (!isAddress) _endings.push_back({TypedNumber::endingKey(key), person});
      _whole.push_back({key, person});
    }
  }

  /// The best first; those of one fit by what was found of them, then by number.
  void find(std::string_view text, const Visitor& visit) {
    order();
    Finds finds(visit);
    for (const Entry& entry : equal(_whole, destinationKey(text))) finds.take(entry.person, ContactFit::destination);
    const std::vector<SearchWord> words = _text->searchWords(text);
    if (const std::string key = wholeKey(words); !key.empty())
      for (const Entry& entry : equal(_names, key)) finds.take(entry.person, ContactFit::name);
    findWords(words, finds);
    findNumber(text, finds);
  }

  /// Finds as `find`, by words alone, once each word that no name has is replaced by the nearest one of a name.
  void findSimilar(std::string_view text, const Visitor& visit) {
    order();
    std::vector<SearchWord> words = _text->searchWords(text);
    for (SearchWord& word : words) {
      if (isOfAName(word)) continue;
      auto nearest = nearestOfNames(word.key);
      if (!nearest) return;
      word = {*std::move(nearest), {}};
    }
    Finds finds(visit);
    findWords(words, finds);
  }

 private:
  struct Entry {
    std::string key;
    std::size_t person = 0;
    auto operator<=>(const Entry&) const = default;
  };
  struct WordEntry {
    std::string key;
    std::size_t place = 0;  ///< in the name, the organisation or the address
    std::size_t person = 0;
    ContactFit fit = ContactFit::nameWords;
    auto operator<=>(const WordEntry&) const = default;
  };
  /// The people who were given to the visitor.
  struct Finds {
    explicit Finds(const Visitor& visitor) : visit(visitor) {}

    const Visitor& visit;
    std::set<std::size_t> persons;
    bool isFull = false;

    void take(std::size_t person, ContactFit fit) {
      if (!isFull && persons.insert(person).second) isFull = !visit(person, fit);
    }
  };

  void addWords(std::size_t person, std::string_view text, ContactFit fit) {
    const std::vector<SearchWord> words = _text->searchWords(text);
    for (std::size_t place = 0; place < words.size(); ++place) {
      _words.push_back({words[place].key, place, person, fit});
      if (!words[place].spelledOut.empty()) _words.push_back({words[place].spelledOut, place, person, fit});
      _wordsOf[person].push_back(words[place]);
    }
    _isOrdered = false;
  }

  void order() {
    if (std::exchange(_isOrdered, true)) return;
    std::ranges::sort(_words);
    for (std::vector<Entry>* entries : {&_names, &_whole, &_endings}) std::ranges::sort(*entries);
  }

  // No key has a zero byte.
  static std::string wholeKey(std::vector<SearchWord> words) {
    std::ranges::sort(words, {}, &SearchWord::key);
    std::string key;
    for (const SearchWord& word : words) key += word.key + '\0';
    return key;
  }

  /// In addresses A-Z count as a-z, in every locale.
  std::string destinationKey(std::string_view destination) {
    std::string key(destination);
    if (destination.find('@') == std::string_view::npos) return _destinations->comparableNumber(key).value_or(key);
    for (char& letter : key)
      if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
    return key;
  }

  static std::span<const Entry> equal(const std::vector<Entry>& entries, const std::string& key) {
    const auto range = std::ranges::equal_range(entries, key, {}, &Entry::key);
    return {range.begin(), range.end()};
  }
  template <class AnyEntry>
  static std::span<const AnyEntry> beginning(const std::vector<AnyEntry>& entries, const std::string& key) {
    if (key.empty()) return {};
    const auto cut = [&](const AnyEntry& entry) { return std::string_view(entry.key).substr(0, key.size()); };
    const auto range = std::ranges::equal_range(entries, std::string_view(key), {}, cut);
    return {range.begin(), range.end()};
  }

  std::vector<std::span<const WordEntry>> entriesFor(const SearchWord& word) const {
    return {beginning(_words, word.key), beginning(_words, word.spelledOut)};
  }

  bool hasAll(std::size_t person, const std::vector<SearchWord>& words) const {
    const std::vector<SearchWord>& known = _wordsOf.at(person);
    return std::ranges::all_of(words, [&](const SearchWord& typed) {
      return std::ranges::any_of(known, [&](const SearchWord& word) { return beginsWord(typed, word); });
    });
  }

  // The word that fewest people have leads to the others.
  void findWords(const std::vector<SearchWord>& words, Finds& finds) const {
    if (words.empty() || finds.isFull) return;
    const auto count = [&](const SearchWord& word) {
      const auto entries = entriesFor(word);
      return entries[0].size() + entries[1].size();
    };
    const SearchWord& rarest = *std::ranges::min_element(words, {}, count);
    std::vector<const WordEntry*> found;
    for (const auto& entries : entriesFor(rarest))
      for (const WordEntry& entry : entries)
        if (words.size() == 1 || hasAll(entry.person, words)) found.push_back(&entry);
    std::ranges::sort(found, {}, [](const WordEntry* entry) { return std::tie(entry->fit, *entry); });
    for (const WordEntry* entry : found) finds.take(entry->person, entry->fit);
  }

  void findNumber(std::string_view text, Finds& finds) {
    if (finds.isFull) return;
    const auto typed = TypedNumber::read(text, *_text, *_destinations, *_phoneNumbers);
    if (!typed) return;
    for (const std::string& digits : typed->beginnings())
      for (const Entry& entry : beginning(_whole, digits)) finds.take(entry.person, ContactFit::numberBeginning);
    for (const Entry& entry : beginning(_endings, typed->ending())) finds.take(entry.person, ContactFit::numberEnding);
  }

  bool isOfAName(const SearchWord& word) const {
    const auto isName = [](const WordEntry& entry) { return entry.fit == ContactFit::nameWords; };
    return std::ranges::any_of(entriesFor(word),
                               [&](const auto& entries) { return std::ranges::any_of(entries, isName); });
  }

  std::optional<std::string> nearestOfNames(const std::string& typed) const {
    std::optional<std::string> nearest;
    std::size_t least = 0;
    for (const WordEntry& entry : _words) {
      if (entry.fit != ContactFit::nameWords) continue;
      const std::size_t distance = wordDistance(typed, entry.key);
      if (distance > mostWordDistance(typed, entry.key) || (nearest && distance >= least)) continue;
      nearest = entry.key;
      least = distance;
    }
    return nearest;
  }

  const std::shared_ptr<TextService> _text;
  const std::shared_ptr<ReachabilityService> _destinations;
  const std::shared_ptr<PhoneNumberFormatter> _phoneNumbers;
  std::vector<WordEntry> _words;
  std::vector<Entry> _names;    ///< by all their words
  std::vector<Entry> _whole;    ///< numbers in canonical form, and addresses
  std::vector<Entry> _endings;  ///< of numbers
  std::unordered_map<std::size_t, std::vector<SearchWord>> _wordsOf;
  bool _isOrdered = false;
};

}  // namespace pellor
