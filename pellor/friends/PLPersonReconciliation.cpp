// How a person is brought in line with the address book.
#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

#include "pellor/friends/PLBundle.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/friends/PLStepClient.h"
#include "pellor/friends/PLUtility.h"
#include "pellor/friends/detail/PLLinkLimits.h"
#include "pellor/friends/internal/PLRecordMatch.h"
#include "pellor/runtime/Process.h"

namespace pellor {
namespace {

// Whether the record, or one that it is linked with, is one that the limits refuse.
bool isRefused(const RecordRef& record, const PLLinkLimits& limits) {
  return record && std::ranges::any_of(record->allLinkedPeople(), [&](const RecordRef& linked) {
           return limits.refusedRecords.contains(linked->recordGUID());
         });
}

// Whether a user sees nothing of what lies between the two, but for the monogram, which follows the name.
bool showsAlike(const PLPersonRecord& one, const PLPersonRecord& other) {
  const auto destinations = one.destinations(), others = other.destinations();
  const bool haveSameDestinations = destinations && others ? *destinations == *others : destinations == others;
  return haveSameDestinations && one.text(PLPersonRecord::_name) == other.text(PLPersonRecord::_name);
}

}  // namespace

// What one reconciliation knows. Its steps log in its name, so they carry its place in the source.
struct PLPerson::Reconciliation {
  AddressBook& addressBook;
  ChangeReport report;
  SourceLocation place;
  const PLLinkLimits& limits;
  PLPersonRecord before;
  bool changed = false;
  std::optional<PLAutomaticDecision> decision = {};

  void decide(PLDecisionKind kind, PLPerson& person, Dictionary evidence) {
    decision = PLAutomaticDecision{kind, person.shared_from_this(), _cardOf(before), std::move(evidence)};
  }
};

// The record that fits a person best, and how it was found. Null without one.
struct PLPerson::FoundRecord {
  RecordRef record = {};
  std::string_view foundBy = {};
  float score = 0;
  std::size_t candidateCount = 0;
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

void PLPerson::refreshWithAddressBook(AddressBook* addressBook) { refreshWithAddressBook(addressBook, {}); }

std::optional<PLAutomaticDecision> PLPerson::refreshWithAddressBook(AddressBook* addressBook,
                                                                    const PLLinkLimits& limits) {
  return _reconcileCanPostChangeNotificationShouldLogUpdates(addressBook, true, true, limits);
}

RecordRef PLPerson::copyABPersonWithAddressBook(AddressBook* addressBook) const {
  const std::string_view guid = _record.identifyingGUID();
  if (!addressBook || guid.empty()) return nullptr;
  return addressBook->copyPersonMatchingGUID(std::string(guid));
}

std::optional<PLAutomaticDecision> PLPerson::_reconcileCanPostChangeNotificationShouldLogUpdates(
    AddressBook* addressBook, bool canPostChangeNotification, bool shouldLogUpdates, const PLLinkLimits& limits) {
  if (!addressBook) return std::nullopt;
  const Process::Scope scope(_process());
  const ChangeReport report{*this, ChangeReport::Subject::guid, shouldLogUpdates};
  Reconciliation reconciliation{*addressBook, report, SourceLocation::current(), limits, _record};
  const auto databaseUID = addressBook->databaseUID();
  const RecordRef linked = copyABPersonWithAddressBook(addressBook);
  const FoundRecord found = linked ? FoundRecord{linked} : _searchRecord(reconciliation);
  const RecordRef& record = found.record;
  std::optional<RecordValues> values;
  if (record) values.emplace(record);
  // A record that was found without those that it is linked with, or in place of one that could not be read, is as
  // little to be taken over as one that was not found.
  if (!addressBook->isReadable()) return std::nullopt;
  if (databaseUID && _record.text(PLPersonRecord::_abDatabaseUID) != databaseUID) {
    _record = _record.with(PLPersonRecord::_abDatabaseUID, databaseUID);
    reconciliation.changed = true;
  }
  std::optional<std::string> initials;
  if (linked) {
    initials = _refreshFromRecord(reconciliation, *values);
  } else if (record) {
    initials = _adoptRecord(reconciliation, found, *values);
  } else if (limits.keepsLink) {
    initials = _text(PLPersonRecord::_initials);
  } else {
    initials = _unlink(reconciliation);
  }
  reconciliation.changed |= _adoptInitials(initials, report, "updating monogram for friend with GUID %@: [%@] -> [%@]");
  _publish();
  if (reconciliation.changed) {
    setNeedsSave(true);
    if (canPostChangeNotification) _postChangeNotification();
  }
  return std::move(reconciliation.decision);
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

PLPerson::FoundRecord PLPerson::_searchRecord(const Reconciliation& reconciliation) const {
  if (allValuesCount() == 0) return {};
  const LogHandle& log = _PLGetLogSystem();
  const SourceLocation& place = reconciliation.place;
  if (hasName()) {
    log.log(LogFormat("friend needs a full AB lookup, searching with name: %@", place),
            redactable(_text(PLPersonRecord::_name)));
    if (auto found = _searchRecordByName(reconciliation); found.record) {
      log.log(LogFormat("found a best match using name (recordID = %d)", place), found.record->recordID());
      found.foundBy = "name";
      return found;
    }
  }
  log.log(LogFormat("unable to find matching record using name, searching with destinations: %@", place),
          redactable(*allValues()));
  auto found = _searchRecordByDestinations(reconciliation);
  if (!found.record) return found;
  log.log(LogFormat("found a best match using destinations (recordID = %d)", place), found.record->recordID());
  found.foundBy = "destinations";
  return found;
}

PLPerson::FoundRecord PLPerson::_searchRecordByName(const Reconciliation& reconciliation) const {
  AddressBook& addressBook = reconciliation.addressBook;
  const auto records = addressBook.copyPeopleMatchingName(*_text(PLPersonRecord::_name));
  if (!records) return {};
  return _bestOf(_recordMatchDictionaryFromCFArrayFollowLinksAddressBook(*records, true, addressBook), reconciliation);
}

PLPerson::FoundRecord PLPerson::_searchRecordByDestinations(const Reconciliation& reconciliation) const {
  AddressBook& addressBook = reconciliation.addressBook;
  RecordMatchDictionary candidates;
  const auto destinations = allValues();
  for (const std::string& destination : *destinations) {
    const auto records = addressBook.orderedPeopleForDestination(destination);
    if (!records) continue;
    candidates.addEntries(_recordMatchDictionaryFromCFArrayFollowLinksAddressBook(*records, false, addressBook));
  }
  return _bestOf(candidates, reconciliation);
}

PLPerson::FoundRecord PLPerson::_bestOf(const RecordMatchDictionary& candidates,
                                        const Reconciliation& reconciliation) const {
  AddressBook& addressBook = reconciliation.addressBook;
  RecordMatchDictionary allowed;
  const bool isAnyRefused = !reconciliation.limits.refusedRecords.empty();
  if (isAnyRefused) {
    for (const auto& [recordID, destinations] : candidates.entries()) {
      if (!isRefused(addressBook.personForRecordID(recordID), reconciliation.limits))
        allowed.set(recordID, destinations);
    }
  }
  const RecordMatchDictionary& fitting = isAnyRefused ? allowed : candidates;
  FoundRecord found{_bestRecordMatchFromDictionaryAddressBook(fitting, addressBook)};
  if (!found.record) return {};
  found.candidateCount = fitting.entries().size();
  for (const auto& [recordID, destinations] : fitting.entries())
    found.score = std::max(found.score, _allValuesMatchScore(destinations));
  return found;
}

std::optional<std::string> PLPerson::_adoptRecord(Reconciliation& reconciliation, const FoundRecord& found,
                                                  const RecordValues& values) {
  const PLPersonRecord before = _record;
  const std::string guid = found.record->recordGUID();
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
  const std::string_view former = reconciliation.before.identifyingGUID();
  if (former == guid || (former.empty() && showsAlike(reconciliation.before, _record))) return values.initials;
  Dictionary evidence{{"after", guid},
                      {"foundBy", found.foundBy},
                      {"score", static_cast<double>(found.score)},
                      {"candidates", static_cast<std::int64_t>(found.candidateCount)}};
  if (!former.empty()) evidence.emplace("before", former);
  reconciliation.decide(PLDecisionKind::relinked, *this, std::move(evidence));
  return values.initials;
}

std::optional<std::string> PLPerson::_unlink(Reconciliation& reconciliation) {
  _PLGetLogSystem().log(LogFormat("unable to find matching record using name or destinations", reconciliation.place));
  // A person without a record keeps a GUID that names none: it may be one of a database that is not there yet.
  if (_record.recordID() != InvalidRecordID) {
    _record = _record.withRecordID(InvalidRecordID);
    _setABRecordGUID(std::nullopt);
    reconciliation.changed = true;
    const std::string_view former = reconciliation.before.identifyingGUID();
    if (!former.empty()) reconciliation.decide(PLDecisionKind::unlinked, *this, {{"before", former}});
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
