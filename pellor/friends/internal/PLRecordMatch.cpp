#include "pellor/friends/internal/PLRecordMatch.h"

#include <algorithm>

#include "pellor/friends/PLPerson.h"

namespace pellor {

void RecordMatchDictionary::set(std::int32_t recordID, DestinationSet destinations) {
  auto [place, isNew] = _places.try_emplace(recordID, _entries.size());
  if (isNew) {
    _entries.emplace_back(recordID, std::move(destinations));
  } else {
    _entries[place->second].second = std::move(destinations);
  }
}

void RecordMatchDictionary::addEntries(RecordMatchDictionary other) {
  for (auto& [recordID, destinations] : other._entries) set(recordID, std::move(destinations));
}

RecordMatchDictionary recordMatchDictionary(std::span<const RecordRef> records, bool followLinks,
                                            AddressBook& addressBook) {
  RecordMatchDictionary candidates;
  for (RecordRef record : records) {
    if (!record) continue;
    std::int32_t key = record->recordID();
    const std::int32_t linkID = followLinks ? record->linkID() : InvalidRecordID;
    if (linkID != InvalidRecordID) {
      record = addressBook.personForRecordID(linkID);
      key = linkID;
    }
    if (candidates.contains(key)) continue;
    if (auto destinations = PLPerson::allValuesForPerson(record)) candidates.set(key, std::move(*destinations));
  }
  return candidates;
}

float matchScore(const DestinationSet& candidate, const DestinationSet& own) {
  const auto shared = std::ranges::count_if(own, [&](const auto& value) { return candidate.contains(value); });
  const auto n = static_cast<float>(shared);
  const auto m = static_cast<float>(own.size());
  const float score = n / m;
  if (static_cast<std::size_t>(shared) != own.size()) return score;
  return score + (1.0F / m) * (static_cast<float>(candidate.size()) - n);
}

std::int32_t bestRecordMatch(const RecordMatchDictionary& candidates,
                             const std::function<float(const DestinationSet& candidate)>& score) {
  float bestScore = 0;
  std::int32_t bestRecordID = InvalidRecordID;
  for (const auto& [recordID, destinations] : candidates.entries()) {
    const float itsScore = score(destinations);
    // A score that is no number is never greater.
    if (!(itsScore > bestScore)) continue;
    bestScore = itsScore;
    bestRecordID = recordID;
  }
  return bestRecordID;
}

}  // namespace pellor
