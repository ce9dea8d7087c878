#include "pellor/linux/contacts/internal/CardFile.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <functional>
#include <map>
#include <tuple>
#include <unordered_map>
#include <utility>

#include "pellor/linux/text/CardPieces.h"
#include "pellor/linux/text/CardText.h"

namespace pellor {

namespace {

constexpr std::string_view ValueClaim = "card:";

std::string hexadecimal(std::int64_t number) {
  std::array<char, 16> digits{};
  const auto end = std::to_chars(digits.begin(), digits.end(), static_cast<std::uint64_t>(number), 16).ptr;
  const auto count = static_cast<std::size_t>(end - digits.begin());
  return std::string(digits.size() - count, '0') + std::string(digits.data(), count);
}

class Reader {
 public:
  Reader(std::string_view text, std::string_view fileName, const std::vector<StoredCard>& stored)
      : _fileName(fileName), _pieces(cardPieces(text)), _stored(stored), _isTaken(stored.size()) {}

  CardFileReading read() {
    if (_pieces.pieces.empty()) return unusableFile("the file is empty");
    const auto isNoCard = [](const CardPiece& piece) { return piece.problem == "it has no BEGIN:VCARD"; };
    if (std::ranges::all_of(_pieces.pieces, isNoCard)) return unusableFile("the file holds no BEGIN:VCARD");
    takeUnchanged();
    parseOthers();
    takeChanged();
    nameNewOnes();
    leaveOutRepeats();
    findGoneOnes();
    return result();
  }

 private:
  /// A card with its number in the file.
  struct Entry {
    std::size_t number;
    FileCard card;
    std::string formattedName;
    bool isLeftOut = false;
  };

  static CardFileReading unusableFile(const char* reason) {
    CardFileReading reading;
    reading.faults.push_back({0, {}, reason});
    return reading;
  }

  void take(FileCard& card, std::size_t place) {
    card.former = place;
    _isTaken[place] = true;
  }

  // The texts of most cards are as they were.
  void takeUnchanged() {
    std::unordered_multimap<std::int64_t, std::size_t> places;
    for (std::size_t place = 0; place < _stored.size(); ++place) places.emplace(_stored[place].textHash, place);
    for (std::size_t index = 0; index < _pieces.pieces.size(); ++index) {
      const CardPiece& piece = _pieces.pieces[index];
      const bool isTooLarge = piece.text.size() > CardSizeLimit;
      if (isTooLarge || !piece.problem.empty()) {
        addFault(index + 1, piece, isTooLarge ? "it is too large for a card" : piece.problem);
        continue;
      }
      Entry entry{index + 1, {}, {}};
      entry.card.textHash = contentHash(piece.text);
      const auto known = places.find(entry.card.textHash);
      if (known != places.end()) {
        const StoredCard& stored = _stored[known->second];
        entry.card.valueHash = stored.valueHash;
        entry.card.claim = stored.claim;
        entry.card.hasUID = stored.hasUID;
        take(entry.card, known->second);
        places.erase(known);
      }
      _entries.push_back(std::move(entry));
    }
  }

  void parseOthers() {
    std::vector<Entry> usable;
    usable.reserve(_entries.size());
    for (Entry& entry : _entries) {
      if (!entry.card.former && !parse(entry)) continue;
      usable.push_back(std::move(entry));
    }
    _entries = std::move(usable);
  }

  bool parse(Entry& entry) {
    const CardPiece& piece = _pieces.pieces[entry.number - 1];
    CardReading reading = readContactCard(piece.text);
    if (!reading.card) {
      addFault(entry.number, piece, reading.problem);
      return false;
    }
    FileCard& card = entry.card;
    card.valueHash = cardValueHash(*reading.card);
    card.hasUID = reading.card->uid.has_value();
    card.claim = reading.card->uid.value_or("");
    card.ownName = isAlone() ? std::string(_fileName) : std::string(_fileName) + "#" + hexadecimal(card.valueHash);
    card.remarks = std::move(reading.remarks);
    entry.formattedName = reading.card->formattedName.value_or("");
    card.card = std::move(reading.card);
    return true;
  }

  bool isAlone() const { return _pieces.pieces.size() == 1; }
  bool isKnownByFile(const StoredCard& stored) const { return !stored.hasUID && stored.claim == _fileName; }

  // What cards were before they changed: those with the same UID and values, those with the same UID, and without UID
  // those with the same values.
  void takeChanged() {
    using Key = std::tuple<std::string, std::int64_t>;
    const auto takeBy = [this](auto keyOfStored, auto keyOfCard) {
      std::multimap<Key, std::size_t> places;
      for (std::size_t place = 0; place < _stored.size(); ++place) {
        if (!_isTaken[place]) places.emplace(keyOfStored(_stored[place]), place);
      }
      for (Entry& entry : _entries) {
        if (entry.card.former || places.empty()) continue;
        const auto found = places.find(keyOfCard(entry.card));
        if (found == places.end()) continue;
        take(entry.card, found->second);
        if (!entry.card.hasUID) entry.card.claim = _stored[found->second].claim;
        places.erase(found);
      }
    };
    const auto uidAndValues = [](const auto& card) { return Key(card.hasUID ? card.claim : "", card.valueHash); };
    takeBy(uidAndValues, uidAndValues);
    // A card without UID has values as its key, which were looked for just now.
    const auto uid = [](const auto& card) {
      return card.hasUID ? Key(card.claim, 0) : Key(std::string(), card.valueHash);
    };
    takeBy(uid, uid);
  }

  void nameNewOnes() {
    followFileName();
    const bool isUntouched =
        _stored.empty() || (_stored.size() == 1 && !_isTaken[0] && (_stored[0].hasUID || isKnownByFile(_stored[0])));
    for (Entry& entry : _entries) {
      FileCard& card = entry.card;
      if (card.hasUID || !card.claim.empty()) continue;
      if (isAlone() && isUntouched) {
        card.claim = _fileName;
        if (!_stored.empty()) take(card, 0);
      } else {
        card.claim = std::string(ValueClaim) + hexadecimal(card.valueHash);
      }
    }
    // One card that got or lost its UID is still the card of its file.
    if (isAlone() && _entries.size() == 1 && _stored.size() == 1 && !_isTaken[0]) take(_entries[0].card, 0);
  }

  // The card that had the file for itself was edited, and others joined it.
  void followFileName() {
    const auto holder = std::ranges::find_if(_stored, [&](const StoredCard& card) { return isKnownByFile(card); });
    if (holder == _stored.end() || holder->formattedName.empty()) return;
    const auto place = static_cast<std::size_t>(holder - _stored.begin());
    if (_isTaken[place]) return;
    const auto mayBe = [&](const Entry& entry) {
      return !entry.card.former && !entry.card.hasUID && entry.formattedName == holder->formattedName;
    };
    const auto found = std::ranges::find_if(_entries, mayBe);
    if (found == _entries.end() || std::any_of(found + 1, _entries.end(), mayBe)) return;
    found->card.claim = holder->claim;
    take(found->card, place);
  }

  // Cards that are stored come first: the contact stays the one that it is.
  void leaveOutRepeats() {
    std::map<std::tuple<std::string, std::int64_t>, std::size_t> numbers;
    for (const bool isStored : {true, false}) {
      for (Entry& entry : _entries) {
        const FileCard& card = entry.card;
        if (card.former.has_value() != isStored) continue;
        const auto [first, isNew] = numbers.try_emplace({card.hasUID ? card.claim : "", card.valueHash}, entry.number);
        if (isNew) continue;
        entry.isLeftOut = true;
        if (card.former) _isTaken[*card.former] = false;
        const CardPiece& piece = _pieces.pieces[entry.number - 1];
        addFault(entry.number, piece, "it says the same as card " + std::to_string(first->second));
        _reading.faults.back().isRepeat = true;
      }
    }
  }

  void addFault(std::size_t number, const CardPiece& piece, std::string reason) {
    std::string name = nameInBrokenCard(piece.text);
    if (name.empty()) name = rawCardValue(piece.text, "uid");
    _reading.faults.push_back({number, std::move(name), std::move(reason)});
  }

  void findGoneOnes() {
    for (std::size_t place = 0; place < _stored.size(); ++place) {
      if (!_isTaken[place] && !staysForAFault(_stored[place])) _reading.gone.push_back(place);
    }
  }

  bool staysForAFault(const StoredCard& stored) {
    bool stays = false;
    for (CardFault& fault : _reading.faults) {
      if (fault.isRepeat) continue;
      const CardPiece& piece = _pieces.pieces[fault.number - 1];
      const bool endsHere = _pieces.isCut && fault.number == _pieces.pieces.size();
      const bool isIt = stored.hasUID ? rawCardValue(piece.text, "uid") == stored.claim
                                      : !fault.name.empty() && fault.name == stored.formattedName;
      const bool isOnly = isAlone() && _stored.size() == 1;
      if (!endsHere && !isIt && !isOnly) continue;
      fault.isReplaced = stays = true;
    }
    return stays;
  }

  CardFileReading result() {
    std::ranges::stable_sort(_reading.faults, {}, &CardFault::number);
    for (Entry& entry : _entries) {
      if (!entry.isLeftOut) _reading.cards.push_back(std::move(entry.card));
    }
    return std::move(_reading);
  }

  const std::string_view _fileName;
  const CardPieces _pieces;
  const std::vector<StoredCard>& _stored;
  std::vector<bool> _isTaken;  // of the stored cards, those that the file still has
  std::vector<Entry> _entries;
  CardFileReading _reading;
};

}  // namespace

std::string textOf(const CardFault& fault) {
  if (fault.number == 0) return fault.reason;
  const std::string name = fault.name.empty() ? "" : " (" + fault.name + ")";
  return "card " + std::to_string(fault.number) + name + ": " + fault.reason;
}

CardFileReading readCardFile(std::string bytes, std::string_view fileName, const std::vector<StoredCard>& stored) {
  const std::string text = asCardLines(std::move(bytes));
  CardFileReading reading = Reader(text, fileName, stored).read();
  for (CardFault& fault : reading.faults) fault.isReplaced |= fault.number == 0 && !stored.empty();
  return reading;
}

std::int64_t cardValueHash(const ContactCard& card) {
  std::string text;
  const auto add = [&text](const std::string& part) { text += part + '\x1F'; };
  const auto addName = [&](const std::optional<std::string>& name) { add(name.value_or("")); };
  if (!card.nameIsDerived) {
    for (const auto* name : {&card.givenName, &card.familyName}) addName(*name);
  }
  for (const auto* name : {&card.additionalNames, &card.namePrefix, &card.nameSuffix, &card.formattedName,
                           &card.nickname, &card.organization})
    addName(*name);
  for (const auto* values : {&card.phones, &card.emails}) {
    std::vector<std::string> texts;
    for (const CardValue& value : *values) texts.push_back(value.value);
    std::ranges::sort(texts);
    for (const std::string& value : texts) add(value);
    text += '\x1E';
  }
  return contentHash(text);
}

}  // namespace pellor
