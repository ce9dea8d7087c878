#include "pellor/friends/internal/PLReconciliationState.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "pellor/friends/PLUtility.h"
#include "pellor/friends/internal/PLSkipChecks.h"

namespace pellor {
namespace {

// For the check of skipped work. While the contacts cannot be read there is nothing to compare.
bool isInStep(const PLPersonRecord& known, AddressBook& addressBook) {
  const RecordRef record = addressBook.copyPersonMatchingGUID(known.identifyingGUID());
  if (!addressBook.isReadable()) return true;
  if (!record || record->recordID() != known.recordID()) return false;
  const std::string initials = PLUtility::initialsForPerson(record).value_or("");
  return addressBook.databaseUID() == known.text(PLPersonRecord::_abDatabaseUID) &&
         PLPerson::preferredNameForPerson(record) == known.text(PLPersonRecord::_name) &&
         initials == known.text(PLPersonRecord::_initials).value_or("") && known.destinations() &&
         *PLPerson::allValuesForPerson(record) == *known.destinations();
}

}  // namespace

void PLReconciliationState::begin(const AddressBookStore& store, AddressBook& addressBook, std::uint64_t slotCount) {
  Contacts contacts{addressBook.databaseUID(), store.shortNameFormatEnabled(), store.shortNamePreferNicknames()};
  const bool isSame = contacts.databaseUID && contacts == _contacts;
  // Read before everything else: what another process changes meanwhile counts as changed the next time.
  const std::int32_t sequenceNumber = addressBook.sequenceNumber();
  auto changed = isSame ? addressBook.guidsOfPeopleChangedSince(_sequenceNumber, slotCount) : std::nullopt;
  if (!changed) _records.clear();
  _records.resize(slotCount, PLPersonRecord());
  _isNoted.assign(slotCount, false);
  _changedGUIDs = std::move(changed).value_or(std::vector<std::string>());
  _contacts = std::move(contacts);
  _sequenceNumber = sequenceNumber;
}

bool PLReconciliationState::passOver(std::uint64_t index, const PLPerson& person, AddressBook& addressBook) {
  const PLPersonRecord& record = person.record();
  const bool isLinked = record.recordID() != InvalidRecordID && !record.identifyingGUID().empty();
  if (!isLinked || !_records[index].isSameObject(record)) return false;
  if (std::ranges::binary_search(_changedGUIDs, record.identifyingGUID(), std::less<>())) return false;
  checkSkip("a friend whom a refresh passes over to be in step", [&] { return isInStep(record, addressBook); });
  _isNoted[index] = true;
  return true;
}

void PLReconciliationState::note(std::uint64_t index, const PLPerson& person) {
  _records[index] = person.record();
  _isNoted[index] = true;
}

void PLReconciliationState::end(bool isComplete) {
  _changedGUIDs = {};
  if (!isComplete) _records.clear();
  for (std::size_t index = 0; index < _records.size(); ++index) {
    if (!_isNoted[index]) _records[index] = PLPersonRecord();
  }
}

}  // namespace pellor
