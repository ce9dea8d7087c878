// How well address-book records fit a set of destinations. Any thread, but for what reads records: main queue.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <utility>
#include <vector>

#include "pellor/friends/PLDestination.h"
#include "pellor/platform/AddressBookStore.h"

namespace pellor {

/// Destination sets by record identifier, in the order in which the identifiers were first entered.
class RecordMatchDictionary {
 public:
  using Entry = std::pair<std::int32_t, DestinationSet>;

  bool contains(std::int32_t recordID) const { return _places.contains(recordID); }
  /// Enters a set, in place of one that stands under the identifier already.
  void set(std::int32_t recordID, DestinationSet destinations);
  /// Enters all entries of `other`.
  void addEntries(RecordMatchDictionary other);
  const std::vector<Entry>& entries() const { return _entries; }

 private:
  std::vector<Entry> _entries;
  std::map<std::int32_t, std::size_t> _places;
};

/// The records of an array under their identifiers, each with the destinations of all records that it is linked with;
/// the first of equal identifiers counts and null elements are skipped. With `followLinks` the record that stands for a
/// set of linked records takes the place of its members; one that is not there leaves them out. Main queue.
RecordMatchDictionary recordMatchDictionary(std::span<const RecordRef> records, bool followLinks,
                                            AddressBook& addressBook);

/// How well a candidate fits: the part of the own destinations that it holds and, once it holds all of them, more for
/// each one beyond, so that the larger of two such records wins. 0 when they share nothing; no number when there are no
/// own ones.
float matchScore(const DestinationSet& candidate, const DestinationSet& own);

/// The identifier of the candidate with the highest score, the first of equal ones; InvalidRecordID when no score is
/// above 0.
std::int32_t bestRecordMatch(const RecordMatchDictionary& candidates,
                             const std::function<float(const DestinationSet& candidate)>& score);

}  // namespace pellor
