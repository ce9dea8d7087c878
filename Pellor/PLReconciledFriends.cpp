#include "Pellor/PLReconciledFriends.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace pellor {

void PLReconciledFriends::begin(const AddressBookStore& store, AddressBook& addressBook, std::uint64_t slotCount) {
  Contacts contacts{addressBook.databaseUID(), store.shortNameFormatEnabled(), store.shortNamePreferNicknames()};
  const bool isSame = contacts.databaseUID && contacts == _contacts;
  auto changed = isSame ? addressBook.guidsOfPeopleChangedSince(_sequenceNumber, slotCount) : std::nullopt;
  if (!changed) _records.clear();
  _records.resize(slotCount, PLPersonRecord());
  _changedGUIDs = std::move(changed).value_or(std::vector<std::string>());
  _contacts = std::move(contacts);
  // Read before the records: what changes meanwhile counts as changed the next time.
  _sequenceNumber = addressBook.sequenceNumber();
}

bool PLReconciledFriends::isInStep(std::uint64_t index, const PLPerson& person) const {
  const PLPersonRecord& record = person.record();
  const bool isLinked = record.recordID() != InvalidRecordID && !record.identifyingGUID().empty();
  if (!isLinked || !_records[index].isSameObject(record)) return false;
  return !std::ranges::binary_search(_changedGUIDs, record.identifyingGUID(), std::less<>());
}

void PLReconciledFriends::end(bool isComplete) {
  _changedGUIDs = {};
  if (!isComplete) _records.clear();
}

}  // namespace pellor
