#include "pellor/linux/contacts/internal/ContactIndexSearch.h"

#include <algorithm>
#include <array>
#include <span>
#include <unordered_set>
#include <utility>

#include "pellor/linux/contacts/NameSearchKey.h"
#include "pellor/linux/contacts/internal/ContactIndexCards.h"
#include "pellor/linux/contacts/internal/ContactWords.h"
#include "pellor/linux/contacts/internal/QueryLists.h"
#include "pellor/platform/AddressBookStore.h"
#include "pellor/platform/detail/WordDistance.h"

namespace pellor {
namespace {

// So many that counting them all would cost more than it saves.
constexpr std::int64_t ManyWords = 128;

struct SearchedKind {
  WordKind kind;
  ContactFit fit;
};
constexpr std::array SearchedKinds = std::to_array<SearchedKind>({
    {WordKind::name, ContactFit::nameWords},
    {WordKind::organization, ContactFit::organizationWords},
    {WordKind::address, ContactFit::addressWords},
});

/// The keys from `first` to before `end`.
struct KeyRange {
  std::string first;
  std::string end;
};

KeyRange beginningWith(const std::string& beginning) {
  std::string end = beginning;
  while (!end.empty() && end.back() == '\xFF') end.pop_back();
  if (!end.empty()) end.back() = static_cast<char>(static_cast<unsigned char>(end.back()) + 1);
  return {beginning, std::move(end)};
}

// No key has a zero byte.
KeyRange equalTo(const std::string& key) { return {key, key + '\0'}; }

std::vector<KeyRange> beginningsOf(const SearchWord& word) {
  std::vector<KeyRange> ranges = {beginningWith(word.key)};
  if (!word.spelledOut.empty()) ranges.push_back(beginningWith(word.spelledOut));
  return ranges;
}

// In the order of the ranges whole words come before longer ones.
std::vector<KeyRange> rangesInOrder(const SearchWord& word) {
  if (word.spelledOut.empty()) return beginningsOf(word);
  return {equalTo(word.key), equalTo(word.spelledOut), beginningWith(word.key), beginningWith(word.spelledOut)};
}

// Asked of every card that has the word which leads. A letter is met less often than the mark before each word.
bool contains(std::string_view allWords, std::string_view marked) {
  const char mark = marked[0], letter = marked[1];
  for (std::size_t at = allWords.find(letter, 1); at != allWords.npos; at = allWords.find(letter, at + 1))
    if (allWords[at - 1] == mark && allWords.substr(at - 1).starts_with(marked)) return true;
  return false;
}

/// A typed word that is looked for beside another one.
struct OtherWord {
  explicit OtherWord(const SearchWord& word) : ranges(beginningsOf(word)) {
    for (const KeyRange& range : ranges) marked.push_back(markedWord(range.first));
  }
  bool isAmong(std::string_view allWords) const {
    return std::ranges::any_of(marked, [&](const std::string& each) { return contains(allWords, each); });
  }

  std::vector<KeyRange> ranges;
  std::vector<std::string> marked;
};

SQLiteStatement& bindRange(SQLiteStatement& statement, int parameter, const KeyRange& range) {
  return statement.bind(parameter, std::string_view(range.first)).bind(parameter + 1, std::string_view(range.end));
}

/// The cards that fit, each once, until there are as many as are wanted.
class FittingCards {
 public:
  explicit FittingCards(std::size_t wanted) : _wanted(wanted) {}

  bool isFull() const { return _cards.size() >= _wanted; }
  void add(std::int64_t card, ContactFit fit) {
    if (!_known.insert(card).second) return;
    _cards.push_back(card);
    _fits.push_back(fit);
  }
  std::span<const std::int64_t> cards() const { return _cards; }
  ContactFit fit(std::size_t place) const { return _fits.at(place); }

 private:
  const std::size_t _wanted;
  std::vector<std::int64_t> _cards;
  std::vector<ContactFit> _fits;
  std::unordered_set<std::int64_t> _known;
};

/// One pass through the kinds of fits.
class CardSearch {
 public:
  CardSearch(SQLiteStatements& statements, std::int64_t folder, const ContactQuery& query, FittingCards& found)
      : _statements(statements), _folder(folder), _query(query), _found(found) {}

  void run() {
    findDestination();
    findName(nameSearchKey(_query.words));
    findName(spelledOutNameKey(_query.words));
    findWords();
    for (const std::string& digits : _query.numberBeginnings) findNumbersBeginning(digits);
    findNumbersEnding();
  }

 private:
  /// How many times the word is there, and whether it is in no name.
  using Commonness = std::pair<std::int64_t, bool>;

  // Each query gives cards in its first column.
  void take(SQLiteStatement& rows, ContactFit fit) {
    while (!_found.isFull() && rows.step()) _found.add(rows.integer(0), fit);
  }

  void findDestination() {
    if (_query.destination.empty()) return;
    const auto rows = _statements.use(
        "SELECT card FROM destinations CROSS JOIN cards USING (card) WHERE destination=? AND folder=? ORDER BY card");
    take(rows->bind(1, _query.destination).bind(2, _folder), ContactFit::destination);
  }

  void findName(const std::string& key) {
    if (!key.empty()) findWord({WordKind::wholeName, ContactFit::name}, equalTo(key), {});
  }

  // The word that fewest people have leads to the others.
  void findWords() {
    if (_query.words.empty() || _found.isFull()) return;
    const SearchWord& rarest = rarestWord();
    std::vector<OtherWord> others;
    for (const SearchWord& word : _query.words)
      if (&word != &rarest) others.emplace_back(word);
    for (const SearchedKind& searched : SearchedKinds)
      for (const KeyRange& range : rangesInOrder(rarest)) findWord(searched, range, others);
  }

  // Of words that many people have, one of a name.
  const SearchWord& rarestWord() {
    if (_query.words.size() == 1) return _query.words.front();
    const SearchWord* rarest = nullptr;
    Commonness least = {ManyWords, true};
    for (const SearchWord& word : _query.words) {
      const Commonness commonness = commonnessOf(word, least.first + 1);
      if (rarest && commonness >= least) continue;
      rarest = &word;
      least = commonness;
    }
    return *rarest;
  }

  // As far as `enough`.
  Commonness commonnessOf(const SearchWord& word, std::int64_t enough) {
    const std::int64_t names = countOf(word, WordKind::name, enough);
    std::int64_t all = names;
    for (const WordKind kind : {WordKind::organization, WordKind::address})
      if (all < enough) all += countOf(word, kind, enough - all);
    return {std::min(all, ManyWords), names == 0};
  }

  std::int64_t countOf(const SearchWord& word, WordKind kind, std::int64_t enough) {
    std::int64_t count = 0;
    for (const KeyRange& range : beginningsOf(word)) {
      const auto rows = _statements.use(
          "SELECT count(*) FROM (SELECT 1 FROM words WHERE folder=? AND kind=? AND word>=? AND word<? LIMIT ?)");
      rows->bind(1, _folder).bind(2, static_cast<std::int64_t>(kind));
      bindRange(*rows, 3, range).bind(5, enough - count);
      if (rows->step()) count += rows->integer(0);
    }
    return count;
  }

  void findWord(const SearchedKind& searched, const KeyRange& range, std::span<const OtherWord> others) {
    if (_found.isFull()) return;
    const auto rows = _statements.use(
        "SELECT card, all_words FROM words WHERE folder=? AND kind=? AND word>=? AND word<?"
        " ORDER BY word, place, card");
    rows->bind(1, _folder).bind(2, static_cast<std::int64_t>(searched.kind));
    bindRange(*rows, 3, range);
    while (!_found.isFull() && rows->step()) {
      if (others.empty() || hasWords(*rows, others)) _found.add(rows->integer(0), searched.fit);
    }
  }

  bool hasWords(const SQLiteStatement& row, std::span<const OtherWord> words) {
    const std::span<const std::uint8_t> known = row.bytes(1);
    const std::string_view all(reinterpret_cast<const char*>(known.data()), known.size());
    return std::ranges::all_of(
        words, [&](const OtherWord& word) { return all.empty() ? hasWord(row.integer(0), word) : word.isAmong(all); });
  }

  bool hasWord(std::int64_t card, const OtherWord& word) {
    return std::ranges::any_of(word.ranges, [&](const KeyRange& range) {
      const auto row = _statements.use("SELECT 1 FROM words WHERE card=? AND word>=? AND word<? AND kind<=? LIMIT 1");
      bindRange(row->bind(1, card), 2, range).bind(4, static_cast<std::int64_t>(SearchedKinds.back().kind));
      return row->step();
    });
  }

  void findNumbersBeginning(const std::string& digits) {
    if (_found.isFull()) return;
    const KeyRange range = beginningWith(digits);
    const auto rows = _statements.use(
        "SELECT card FROM destinations CROSS JOIN cards USING (card) WHERE destination>=? AND destination<? AND"
        " folder=? ORDER BY destination, card");
    take(bindRange(*rows, 1, range).bind(3, _folder), ContactFit::numberBeginning);
  }

  void findNumbersEnding() {
    if (_query.numberEnding.empty()) return;
    findWord({WordKind::numberEnding, ContactFit::numberEnding}, beginningWith(_query.numberEnding), {});
  }

  SQLiteStatements& _statements;
  const std::int64_t _folder;
  const ContactQuery& _query;
  FittingCards& _found;
};

// In the order of the cards. Having SQLite sort the rows would copy each of them twice.
std::vector<FittingContact> contactsOf(SQLiteStatements& statements, const FittingCards& cards) {
  static const std::string columns = contactColumns();
  static const int placeColumn = static_cast<int>(std::ranges::count(columns, ',')) + 1;
  static const std::string query =
      "SELECT " + columns + ", asked.key FROM json_each(?) AS asked CROSS JOIN cards ON card=asked.value";
  std::vector<FittingContact> contacts(cards.cards().size());
  const std::string asked = jsonOfNumbers(cards.cards());
  const auto row = statements.use(query);
  row->bind(1, asked);
  while (row->step()) {
    const auto place = static_cast<std::size_t>(row->integer(placeColumn));
    contacts.at(place) = {contactOfRow(*row), cards.fit(place)};
  }
  return contacts;
}

// The first record of each person.
std::vector<FittingContact> personsOf(std::vector<FittingContact> contacts, std::size_t limit) {
  std::vector<FittingContact> persons;
  std::unordered_set<std::int32_t> sets;
  for (FittingContact& each : contacts) {
    const std::int32_t set = each.contact.linkID;
    if (persons.size() < limit && (set == InvalidRecordID || sets.insert(set).second))
      persons.push_back(std::move(each));
  }
  return persons;
}

}  // namespace

std::vector<FittingContact> ContactIndexSearch::find(const ContactQuery& query, std::size_t limit) {
  std::vector<FittingContact> persons;
  const bool couldRead = limit == 0 || _index.read([&](SQLiteStatements& statements, std::int64_t folder) {
    // Only linked records make it look again: they are fewer persons than records.
    for (std::size_t wanted = limit;; wanted += wanted) {
      FittingCards cards(wanted);
      CardSearch(statements, folder, query, cards).run();
      persons = personsOf(contactsOf(statements, cards), limit);
      if (persons.size() == limit || !cards.isFull()) return;
    }
  });
  return couldRead ? std::move(persons) : std::vector<FittingContact>();
}

bool ContactIndexSearch::isOfAName(const SearchWord& word) {
  bool isFound = false;
  _index.read([&](SQLiteStatements& statements, std::int64_t folder) {
    isFound = std::ranges::any_of(beginningsOf(word), [&](const KeyRange& range) {
      const auto row = statements.use("SELECT 1 FROM words WHERE folder=? AND kind=? AND word>=? AND word<? LIMIT 1");
      row->bind(1, folder).bind(2, static_cast<std::int64_t>(WordKind::name));
      bindRange(*row, 3, range);
      return row->step();
    });
  });
  return isFound;
}

std::optional<std::string> ContactIndexSearch::nearestOfNames(const std::string& typed) {
  std::optional<std::string> nearest;
  std::size_t least = 0;
  const bool couldRead = _index.read([&](SQLiteStatements& statements, std::int64_t folder) {
    nearest.reset();
    const auto rows = statements.use("SELECT DISTINCT word FROM words WHERE folder=? AND kind=? ORDER BY word");
    rows->bind(1, folder).bind(2, static_cast<std::int64_t>(WordKind::name));
    while (rows->step()) {
      std::string word = rows->text(0);
      const auto isTooFar = [&](std::size_t distance) {
        return distance > mostWordDistance(typed, word) || (nearest && distance >= least);
      };
      // Letters that are missing tell it sooner.
      if (isTooFar(std::max(typed.size(), word.size()) - std::min(typed.size(), word.size()))) continue;
      const std::size_t distance = wordDistance(typed, word);
      if (isTooFar(distance)) continue;
      least = distance;
      nearest = std::move(word);
    }
  });
  return couldRead ? nearest : std::nullopt;
}

}  // namespace pellor
