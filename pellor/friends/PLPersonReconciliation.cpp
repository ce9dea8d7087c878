// How a person is brought in line with the address book.
#include <utility>

#include "pellor/friends/PLBundle.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/friends/PLUtility.h"
#include "pellor/friends/internal/PLRecordMatch.h"
#include "pellor/runtime/Process.h"

namespace pellor {

// What one reconciliation knows. Its steps log in its name, so they carry its place in the source.
struct PLPerson::Reconciliation {
  AddressBook& addressBook;
  ChangeReport report;
  SourceLocation place;
  bool changed = false;
};

// What a person takes from a record and from those that it is linked with.
struct PLPerson::RecordValues {
  explicit RecordValues(const RecordRef& record)
      : recordID(record->recordID()),
        name(preferredNameForPerson(record)),
        destinations(*allValuesForPerson(record)),
        initials(PLUtility::initialsForPerson(record)) {}

  std::int32_t recordID;
  std::optional<std::string> name;
  DestinationSet destinations;
  std::optional<std::string> initials;
};

void PLPerson::refreshWithAddressBook(AddressBook* addressBook) {
  _reconcileCanPostChangeNotificationShouldLogUpdates(addressBook, true, true);
}

RecordRef PLPerson::copyABPersonWithAddressBook(AddressBook* addressBook) const {
  const std::string_view guid = _record.identifyingGUID();
  if (!addressBook || guid.empty()) return nullptr;
  return addressBook->copyPersonMatchingGUID(std::string(guid));
}

void PLPerson::_reconcileCanPostChangeNotificationShouldLogUpdates(AddressBook* addressBook,
                                                                   bool canPostChangeNotification,
                                                                   bool shouldLogUpdates) {
  if (!addressBook) return;
  const Process::Scope scope(_process());
  const ChangeReport report{*this, ChangeReport::Subject::guid, shouldLogUpdates};
  Reconciliation reconciliation{*addressBook, report, SourceLocation::current()};
  const auto databaseUID = addressBook->databaseUID();
  const RecordRef linked = copyABPersonWithAddressBook(addressBook);
  const RecordRef record = linked ? linked : _searchRecord(reconciliation);
  std::optional<RecordValues> values;
  if (record) values.emplace(record);
  // A record that was found without those that it is linked with, or in place of one that could not be read, is as
  // little to be taken over as one that was not found.
  if (!addressBook->isReadable()) return;
  if (databaseUID && _record.text(PLPersonRecord::_abDatabaseUID) != databaseUID) {
    _record = _record.with(PLPersonRecord::_abDatabaseUID, databaseUID);
    reconciliation.changed = true;
  }
  std::optional<std::string> initials;
  if (linked) {
    initials = _refreshFromRecord(reconciliation, *values);
  } else if (record) {
    initials = _adoptRecord(reconciliation, record->recordGUID(), *values);
  } else {
    initials = _unlink(reconciliation);
  }
  reconciliation.changed |= _adoptInitials(initials, report, "updating monogram for friend with GUID %@: [%@] -> [%@]");
  _publish();
  if (!reconciliation.changed) return;
  setNeedsSave(true);
  if (canPostChangeNotification) _postChangeNotification();
}

std::optional<std::string> PLPerson::_refreshFromRecord(Reconciliation& reconciliation, const RecordValues& values) {
  const ChangeReport& report = reconciliation.report;
  const SourceLocation& place = reconciliation.place;
  const std::int32_t recordID = values.recordID;
  if (recordID != _record.recordID()) {
    report(LogFormat("updating AB record ID for friend with GUID %@: %d -> %d", place), _record.recordID(), recordID);
    _record = _record.withRecordID(recordID);
    reconciliation.changed = true;
  }
  reconciliation.changed |= _adopt(PLPersonRecord::_name, values.name, report,
                                   LogFormat("updating name for friend with GUID %@: [%@] -> [%@]", place));
  if (_adoptAllValues(values.destinations, report,
                      LogFormat("updated destinations for friend with GUID %@: %@ -> %@", place))) {
    _clearDerivedValues();
    reconciliation.changed = true;
  }
  return values.initials;
}

RecordRef PLPerson::_searchRecord(const Reconciliation& reconciliation) const {
  if (allValuesCount() == 0) return nullptr;
  const LogHandle& log = _PLGetLogSystem();
  const SourceLocation& place = reconciliation.place;
  if (hasName()) {
    log.log(LogFormat("friend needs a full AB lookup, searching with name: %@", place),
            redactable(_text(PLPersonRecord::_name)));
    if (auto found = _searchRecordByName(reconciliation.addressBook)) {
      log.log(LogFormat("found a best match using name (recordID = %d)", place), found->recordID());
      return found;
    }
  }
  log.log(LogFormat("unable to find matching record using name, searching with destinations: %@", place),
          redactable(*allValues()));
  auto found = _searchRecordByDestinations(reconciliation.addressBook);
  if (found) log.log(LogFormat("found a best match using destinations (recordID = %d)", place), found->recordID());
  return found;
}

RecordRef PLPerson::_searchRecordByName(AddressBook& addressBook) const {
  const auto records = addressBook.copyPeopleMatchingName(*_text(PLPersonRecord::_name));
  if (!records) return nullptr;
  return _bestRecordMatchFromDictionaryAddressBook(
      _recordMatchDictionaryFromCFArrayFollowLinksAddressBook(*records, true, addressBook), addressBook);
}

RecordRef PLPerson::_searchRecordByDestinations(AddressBook& addressBook) const {
  RecordMatchDictionary candidates;
  const auto destinations = allValues();
  for (const std::string& destination : *destinations) {
    const auto records = addressBook.orderedPeopleForDestination(destination);
    if (!records) continue;
    candidates.addEntries(_recordMatchDictionaryFromCFArrayFollowLinksAddressBook(*records, false, addressBook));
  }
  return _bestRecordMatchFromDictionaryAddressBook(candidates, addressBook);
}

std::optional<std::string> PLPerson::_adoptRecord(Reconciliation& reconciliation, const std::string& guid,
                                                  const RecordValues& values) {
  const PLPersonRecord before = _record;
  _setABRecordGUID(guid);
  _record = _record.withRecordID(values.recordID)
                .with(PLPersonRecord::_name, values.name)
                .withDestinations(values.destinations);
  _clearDerivedValues();
  // A record that says what the person says already is no change: two processes would tell each other of it for ever.
  if (_record == before) {
    _record = before;
  } else {
    reconciliation.changed = true;
  }
  return values.initials;
}

std::optional<std::string> PLPerson::_unlink(Reconciliation& reconciliation) {
  _PLGetLogSystem().log(LogFormat("unable to find matching record using name or destinations", reconciliation.place));
  // A person without a record keeps a GUID that names none: it may be one of a database that is not there yet.
  if (_record.recordID() != InvalidRecordID) {
    _record = _record.withRecordID(InvalidRecordID);
    _setABRecordGUID(std::nullopt);
    reconciliation.changed = true;
  }
  return PLUtility::initialForString(_text(PLPersonRecord::_name));
}

RecordMatchDictionary PLPerson::_recordMatchDictionaryFromCFArrayFollowLinksAddressBook(
    const std::vector<RecordRef>& records, bool followLinks, AddressBook& addressBook) {
  return recordMatchDictionary(records, followLinks, addressBook);
}

float PLPerson::_allValuesMatchScore(const DestinationSet& candidate) const {
  const auto own = allValues();
  return matchScore(candidate, own ? *own : DestinationSet());
}

RecordRef PLPerson::_bestRecordMatchFromDictionaryAddressBook(const RecordMatchDictionary& candidates,
                                                              AddressBook& addressBook) const {
  const std::int32_t best =
      bestRecordMatch(candidates, [this](const DestinationSet& candidate) { return _allValuesMatchScore(candidate); });
  return best == InvalidRecordID ? nullptr : addressBook.personForRecordID(best);
}

}  // namespace pellor
