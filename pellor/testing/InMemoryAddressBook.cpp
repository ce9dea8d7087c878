#include "pellor/testing/InMemoryAddressBook.h"

#include <algorithm>
#include <utility>

#include "pellor/runtime/Fatal.h"
#include "pellor/testing/internal/InMemoryAddressBookStore.h"
#include "pellor/testing/internal/InMemoryContactIndex.h"

namespace pellor {

InMemoryAddressBook::InMemoryAddressBook(std::shared_ptr<SimulatedPhoneNumbers> phoneNumbers,
                                         std::shared_ptr<SimulatedPersonNames> personNames)
    : _personNames(std::move(personNames)), _index(std::make_unique<InMemoryContactIndex>(std::move(phoneNumbers))) {}

InMemoryAddressBook::~InMemoryAddressBook() = default;

std::shared_ptr<AddressBookStore> InMemoryAddressBook::storeFor(Process& process) { return serviceOf(process); }

std::shared_ptr<ContactStore> InMemoryAddressBook::contactStoreFor(Process& process) { return serviceOf(process); }

std::shared_ptr<InMemoryAddressBookStore> InMemoryAddressBook::serviceOf(Process& process) {
  const MutexLock lock(_mutex);
  std::erase_if(_services, [](const auto& weak) { return weak.expired(); });
  for (const auto& weak : _services) {
    auto service = weak.lock();
    if (service && service->belongsTo(process)) return service;
  }
  auto service = std::make_shared<InMemoryAddressBookStore>(shared_from_this(), process);
  _services.push_back(service);
  return service;
}

// Contacts

std::string InMemoryAddressBook::add(TestContact contact) {
  const MutexLock lock(_mutex);
  std::string guid = insert(std::move(contact));
  didChange();
  return guid;
}

std::vector<std::string> InMemoryAddressBook::addAll(std::vector<TestContact> contacts) {
  const MutexLock lock(_mutex);
  std::vector<std::string> guids;
  for (TestContact& contact : contacts) guids.push_back(insert(std::move(contact)));
  didChange();
  return guids;
}

void InMemoryAddressBook::change(const std::string& guid, const std::function<void(TestContact&)>& edit) {
  const MutexLock lock(_mutex);
  const Row row = existingRow(guid);
  TestContact contact = _contacts.at(row)->contact;
  {
    const MutexUnlock released(_mutex);
    edit(contact);
  }
  store(row, std::move(contact));
  didChange();
}

void InMemoryAddressBook::put(TestContact contact) {
  const MutexLock lock(_mutex);
  if (const auto row = findGUID(contact.guid)) {
    contact.recordID = _contacts.at(*row)->contact.recordID;
    store(*row, std::move(contact));
  } else {
    insert(std::move(contact));
  }
  didChange();
}

void InMemoryAddressBook::remove(const std::string& guid) {
  const MutexLock lock(_mutex);
  const Row row = existingRow(guid);
  touch(row);
  leaveLinkSet(row);
  forget(row);
  _contacts.erase(row);
  didChange();
}

std::optional<TestContact> InMemoryAddressBook::contact(const std::string& guid) const {
  const MutexLock lock(_mutex);
  const auto row = _rowsByGUID.find(guid);
  if (row == _rowsByGUID.end()) return std::nullopt;
  return _contacts.at(row->second)->contact;
}

void InMemoryAddressBook::link(const std::vector<std::string>& guids) {
  const MutexLock lock(_mutex);
  require(guids.size() >= 2, "at least two contacts to link");
  auto set = std::make_shared<Rows>();
  for (const std::string& guid : guids) {
    const Row row = existingRow(guid);
    leaveLinkSet(row);
    set->push_back(row);
  }
  for (const Row row : *set) _linkSets[row] = set;
  touch(set->front());
  didChange();
}

void InMemoryAddressBook::unlink(const std::string& guid) {
  const MutexLock lock(_mutex);
  leaveLinkSet(existingRow(guid));
  didChange();
}

void InMemoryAddressBook::leaveLinkSet(Row row) {
  const auto found = _linkSets.find(row);
  if (found == _linkSets.end()) return;
  touch(row);
  const std::shared_ptr<Rows> set = found->second;
  _linkSets.erase(found);
  std::erase(*set, row);
  if (set->size() == 1) _linkSets.erase(set->front());
}

std::string InMemoryAddressBook::insert(TestContact contact) {
  if (contact.guid.empty()) contact.guid = "TestContact-" + std::to_string(_lastRow + 1);
  if (contact.recordID == InvalidRecordID) contact.recordID = _lastRecordID + 1;
  std::string guid = contact.guid;
  store(++_lastRow, std::move(contact));
  return guid;
}

void InMemoryAddressBook::store(Row row, TestContact contact) {
  const auto found = _contacts.find(row);
  const StoredRef before = found != _contacts.end() ? found->second : nullptr;
  if (before) {
    touch(row);
    forget(row);
  }
  require(!contact.guid.empty(), "a contact with a GUID");
  require(contact.recordID != InvalidRecordID, "a contact with a record identifier");
  require(_rowsByGUID.emplace(contact.guid, row).second, "a GUID that no other contact has");
  require(_rowsByRecordID.emplace(contact.recordID, row).second, "a record identifier that no other contact has");
  _lastRecordID = std::max(_lastRecordID, contact.recordID);
  auto stored = std::make_shared<ContactData>();
  stored->phones = multiValue(contact.phones, before ? &before->phones : nullptr);
  stored->emails = multiValue(contact.emails, before ? &before->emails : nullptr);
  stored->contact = std::move(contact);
  _contacts[row] = std::move(stored);
  touch(row);
}

void InMemoryAddressBook::forget(Row row) {
  const TestContact& contact = _contacts.at(row)->contact;
  _rowsByGUID.erase(contact.guid);
  _rowsByRecordID.erase(contact.recordID);
}

// Entries that stay keep their identifiers.
MultiValue InMemoryAddressBook::multiValue(const std::vector<LabelledValue>& values, const MultiValue* before) {
  std::vector<MultiValue::Entry> known = before ? before->entries : std::vector<MultiValue::Entry>();
  MultiValue result;
  for (const LabelledValue& value : values) {
    const auto same = std::find_if(known.begin(), known.end(), [&](const MultiValue::Entry& entry) {
      return entry.label == value.label && entry.value == value.value;
    });
    const bool stays = same != known.end();
    result.entries.push_back({stays ? same->identifier : ++_lastEntryIdentifier, value.label, value.value});
    if (stays) known.erase(same);
  }
  return result;
}

InMemoryAddressBook::Row InMemoryAddressBook::existingRow(const std::string& guid) const {
  const auto found = _rowsByGUID.find(guid);
  require(found != _rowsByGUID.end(), "the GUID of a contact in the simulated address book");
  return found->second;
}

// The database

void InMemoryAddressBook::rebuild() {
  const MutexLock lock(_mutex);
  const std::map<std::int32_t, Row> rowsBefore = _rowsByRecordID;
  for (auto entry = rowsBefore.rbegin(); entry != rowsBefore.rend(); ++entry) {
    TestContact contact = _contacts.at(entry->second)->contact;
    contact.recordID = _lastRecordID + 1;
    store(entry->second, std::move(contact));
  }
  didChange();
}

void InMemoryAddressBook::setDatabaseUID(std::optional<std::string> uid) {
  const MutexLock lock(_mutex);
  _databaseUID = std::move(uid);
}

std::int32_t InMemoryAddressBook::sequenceNumber() const {
  const MutexLock lock(_mutex);
  return _sequenceNumber;
}

void InMemoryAddressBook::setReadable(bool isReadable) {
  const MutexLock lock(_mutex);
  _isReadable = isReadable;
  announce();
}

void InMemoryAddressBook::setOpenFails(bool fails) {
  const MutexLock lock(_mutex);
  _openFails = fails;
}

void InMemoryAddressBook::shiftWallClock(double seconds) {
  const MutexLock lock(_mutex);
  _wallClockShift += seconds;
}

void InMemoryAddressBook::setShortNameFormatEnabled(bool isEnabled) {
  const MutexLock lock(_mutex);
  _shortNameFormatEnabled = isEnabled;
}

void InMemoryAddressBook::setShortNamePreferNicknames(bool prefersNicknames) {
  const MutexLock lock(_mutex);
  _shortNamePreferNicknames = prefersNicknames;
}

// With the contacts that it is linked with.
void InMemoryAddressBook::touch(Row row) {
  _touched.insert(_contacts.at(row)->contact.guid);
  const auto linked = _linkSets.find(row);
  if (linked == _linkSets.end()) return;
  for (const Row other : *linked->second) _touched.insert(_contacts.at(other)->contact.guid);
}

void InMemoryAddressBook::didChange() {
  ++_sequenceNumber;
  for (const std::string& guid : _touched) _lastChanges[guid] = _sequenceNumber;
  _touched.clear();
  announce();
}

void InMemoryAddressBook::announce() {
  for (const auto& weak : _services) {
    if (const auto service = weak.lock()) service->announceChange();
  }
}

InMemoryAddressBook::Lookups InMemoryAddressBook::lookups() const {
  const MutexLock lock(_mutex);
  return _lookups;
}

std::uint64_t InMemoryAddressBook::privateHandleCount() const {
  const MutexLock lock(_mutex);
  return _privateHandleCount;
}

void InMemoryAddressBook::clearRecords() {
  const MutexLock lock(_mutex);
  _lookups = {};
  _privateHandleCount = 0;
}

// What handles see

InMemoryAddressBook::StoredRef InMemoryAddressBook::storedContact(Row row) const {
  const MutexLock lock(_mutex);
  const auto found = _contacts.find(row);
  return found != _contacts.end() ? found->second : nullptr;
}

std::optional<InMemoryAddressBook::Row> InMemoryAddressBook::rowWithGUID(std::string_view guid) {
  const MutexLock lock(_mutex);
  ++_lookups.byGUID;
  return findGUID(guid);
}

std::optional<InMemoryAddressBook::Row> InMemoryAddressBook::rowForContact(std::string_view identifier) const {
  const MutexLock lock(_mutex);
  return findGUID(identifier);
}

std::optional<InMemoryAddressBook::Row> InMemoryAddressBook::findGUID(std::string_view guid) const {
  const auto found = _rowsByGUID.find(guid);
  if (found == _rowsByGUID.end()) return std::nullopt;
  return found->second;
}

std::optional<InMemoryAddressBook::Row> InMemoryAddressBook::rowWithRecordID(std::int32_t recordID) {
  const MutexLock lock(_mutex);
  ++_lookups.byRecordID;
  const auto found = _rowsByRecordID.find(recordID);
  if (found == _rowsByRecordID.end()) return std::nullopt;
  return found->second;
}

InMemoryAddressBook::Rows InMemoryAddressBook::rowsMatchingName(std::string_view name) {
  const MutexLock lock(_mutex);
  ++_lookups.byName;
  std::map<std::int32_t, Row> matches;
  for (const Row row : index().rowsMatchingName(name)) matches.emplace(_contacts.at(row)->contact.recordID, row);
  Rows rows;
  for (const auto& [recordID, row] : matches) rows.push_back(row);
  return rows;
}

InMemoryAddressBook::Rows InMemoryAddressBook::rowsWithDestination(std::string_view destination) {
  const MutexLock lock(_mutex);
  ++_lookups.byDestination;
  Rows rows = index().rowsWithDestination(destination);
  std::sort(rows.begin(), rows.end(), [this](Row left, Row right) PELLOR_REQUIRES(_mutex) {
    const bool leftStands = standsForItsSet(left);
    const bool rightStands = standsForItsSet(right);
    if (leftStands != rightStands) return leftStands;
    return _contacts.at(left)->contact.recordID < _contacts.at(right)->contact.recordID;
  });
  return rows;
}

InMemoryAddressBook::Rows InMemoryAddressBook::allRows() {
  const MutexLock lock(_mutex);
  ++_lookups.allPeople;
  Rows rows;
  for (const auto& [recordID, row] : _rowsByRecordID) rows.push_back(row);
  return rows;
}

InMemoryAddressBook::Rows InMemoryAddressBook::linkedRows(Row row) const {
  const MutexLock lock(_mutex);
  const auto found = _linkSets.find(row);
  return found != _linkSets.end() ? *found->second : Rows();
}

std::map<std::string, InMemoryAddressBook::Row, std::less<>> InMemoryAddressBook::rowsWithGUIDs(
    std::span<const std::string_view> guids) {
  const MutexLock lock(_mutex);
  if (!guids.empty()) ++_lookups.inBulk;
  _lookups.readInBulk += guids.size();
  std::map<std::string, Row, std::less<>> rows;
  for (const std::string_view guid : guids) {
    if (const auto row = findGUID(guid)) rows.emplace(std::string(guid), *row);
  }
  return rows;
}

std::optional<std::vector<std::string>> InMemoryAddressBook::guidsChangedSince(std::int32_t sequenceNumber,
                                                                               std::size_t limit) const {
  const MutexLock lock(_mutex);
  if (sequenceNumber < 1 || sequenceNumber > _sequenceNumber) return std::nullopt;
  std::vector<std::string> guids;
  for (const auto& [guid, lastChange] : _lastChanges) {
    if (lastChange > sequenceNumber) guids.push_back(guid);
  }
  if (guids.size() > limit) return std::nullopt;
  return guids;
}

std::optional<std::string> InMemoryAddressBook::databaseUID() const {
  const MutexLock lock(_mutex);
  return _databaseUID;
}

bool InMemoryAddressBook::isReadable() const {
  const MutexLock lock(_mutex);
  return _isReadable;
}

std::int32_t InMemoryAddressBook::newEntryIdentifier() {
  const MutexLock lock(_mutex);
  return ++_lastEntryIdentifier;
}

// A record that is linked with none stands for itself.
bool InMemoryAddressBook::standsForItsSet(Row row) const {
  const auto found = _linkSets.find(row);
  return found == _linkSets.end() || found->second->front() == row;
}

InMemoryContactIndex& InMemoryAddressBook::index() {
  if (_index->startAt(_sequenceNumber)) {
    for (const auto& [row, stored] : _contacts) _index->add(row, stored->contact);
  }
  return *_index;
}

}  // namespace pellor
