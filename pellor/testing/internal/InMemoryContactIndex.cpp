#include "pellor/testing/internal/InMemoryContactIndex.h"

#include <utility>

#include "pellor/testing/internal/Addresses.h"
#include "pellor/testing/internal/Characters.h"

namespace pellor {
namespace {

// The words of a name, in lower case.
std::vector<std::string> wordsOf(std::string_view name) {
  std::vector<std::string> words(1);
  for (const char32_t c : characters::decode(name)) {
    if (c != U' ') {
      characters::append(words.back(), characters::lowerCase(c));
    } else if (!words.back().empty()) {
      words.emplace_back();
    }
  }
  if (words.back().empty()) words.pop_back();
  return words;
}

std::set<std::string> wordsOf(const TestContact& contact) {
  std::set<std::string> words;
  for (const auto* part : {&contact.first, &contact.last, &contact.nickname, &contact.organization}) {
    if (!*part) continue;
    for (std::string& word : wordsOf(**part)) words.insert(std::move(word));
  }
  return words;
}

}  // namespace

bool InMemoryContactIndex::startAt(std::int32_t sequenceNumber) {
  std::string country = _phoneNumbers->homeCountryCode();
  if (_sequenceNumber == sequenceNumber && _country == country) return false;
  _sequenceNumber = sequenceNumber;
  _country = std::move(country);
  _rowsByWord.clear();
  _rowsByDestination.clear();
  return true;
}

void InMemoryContactIndex::add(Row row, const TestContact& contact) {
  for (const std::string& word : wordsOf(contact)) _rowsByWord[word].push_back(row);
  std::set<std::string> keys;
  for (const LabelledValue& phone : contact.phones) keys.insert(destinationKey(phone.value));
  for (const LabelledValue& email : contact.emails) keys.insert(destinationKey(email.value));
  for (const std::string& key : keys) _rowsByDestination[key].push_back(row);
}

InMemoryContactIndex::Rows InMemoryContactIndex::rowsMatchingName(std::string_view name) const {
  const std::vector<std::string> words = wordsOf(name);
  if (words.empty()) return {};
  std::set<Row> matches = rowsWithWord(words.front());
  for (std::size_t index = 1; index < words.size() && !matches.empty(); ++index) {
    const std::set<Row> others = rowsWithWord(words[index]);
    std::erase_if(matches, [&](Row row) { return !others.contains(row); });
  }
  return {matches.begin(), matches.end()};
}

std::set<InMemoryContactIndex::Row> InMemoryContactIndex::rowsWithWord(const std::string& beginning) const {
  std::set<Row> rows;
  for (auto word = _rowsByWord.lower_bound(beginning); word != _rowsByWord.end() && word->first.starts_with(beginning);
       ++word) {
    rows.insert(word->second.begin(), word->second.end());
  }
  return rows;
}

InMemoryContactIndex::Rows InMemoryContactIndex::rowsWithDestination(std::string_view destination) const {
  const auto found = _rowsByDestination.find(destinationKey(destination));
  return found != _rowsByDestination.end() ? found->second : Rows();
}

std::string InMemoryContactIndex::destinationKey(std::string_view destination) const {
  const std::string raw = withoutSchemes(destination);
  return raw.find('@') != std::string::npos ? lowerCasedAddress(raw) : _phoneNumbers->normalised(raw);
}

}  // namespace pellor
