#include "pellor/testing/internal/InMemoryAddressBookStore.h"

#include <algorithm>
#include <utility>

#include "pellor/testing/internal/Characters.h"
#include "pellor/testing/internal/InMemoryContactRecord.h"

namespace pellor {

namespace {

constexpr const char* ChangedNotification = "SimulatedAddressBookChanged";

}  // namespace

InMemoryAddressBookHandle::InMemoryAddressBookHandle(std::shared_ptr<InMemoryAddressBook> database,
                                                     std::shared_ptr<ProcessLink> link)
    : _database(std::move(database)), _link(std::move(link)) {}

bool InMemoryAddressBookHandle::isReadable() {
  requireMainQueue("AddressBook::isReadable");
  return _database->isReadable();
}

std::optional<std::string> InMemoryAddressBookHandle::databaseUID() {
  requireMainQueue("AddressBook::databaseUID");
  return _database->databaseUID();
}

std::int32_t InMemoryAddressBookHandle::sequenceNumber() {
  requireMainQueue("AddressBook::sequenceNumber");
  return _database->isReadable() ? _database->sequenceNumber() : 0;
}

RecordRef InMemoryAddressBookHandle::copyPersonMatchingGUID(std::string_view guid) {
  requireMainQueue("AddressBook::copyPersonMatchingGUID");
  const auto known = _rowsReadInBulk.find(guid);
  return recordOrNull(known != _rowsReadInBulk.end() ? known->second : _database->rowWithGUID(guid));
}

RecordRef InMemoryAddressBookHandle::personForRecordID(std::int32_t recordID) {
  requireMainQueue("AddressBook::personForRecordID");
  return recordOrNull(_database->rowWithRecordID(recordID));
}

std::optional<std::vector<RecordRef>> InMemoryAddressBookHandle::copyPeopleMatchingName(std::string_view name) {
  requireMainQueue("AddressBook::copyPeopleMatchingName");
  auto people = records(_database->rowsMatchingName(name));
  return people.empty() ? std::nullopt : std::optional(std::move(people));
}

std::optional<std::vector<RecordRef>> InMemoryAddressBookHandle::orderedPeopleForDestination(
    std::string_view destination) {
  requireMainQueue("AddressBook::orderedPeopleForDestination");
  auto people = records(_database->rowsWithDestination(destination));
  return people.empty() ? std::nullopt : std::optional(std::move(people));
}

std::vector<RecordRef> InMemoryAddressBookHandle::allPeople() {
  requireMainQueue("AddressBook::allPeople");
  return records(_database->allRows());
}

void InMemoryAddressBookHandle::withPeopleMatchingGUIDs(std::span<const std::string_view> guids,
                                                        const std::function<void()>& work) {
  requireMainQueue("AddressBook::withPeopleMatchingGUIDs");
  _rowsReadInBulk = _database->rowsWithGUIDs(guids);
  work();
  _rowsReadInBulk.clear();
}

std::optional<std::vector<std::string>> InMemoryAddressBookHandle::guidsOfPeopleChangedSince(
    std::int32_t sequenceNumber, std::size_t limit) {
  requireMainQueue("AddressBook::guidsOfPeopleChangedSince");
  if (!_database->isReadable() || !_changedRecords.empty()) return std::nullopt;
  return _database->guidsChangedSince(sequenceNumber, limit);
}

RecordRef InMemoryAddressBookHandle::personForContact(std::string_view identifier) {
  return recordOrNull(_database->rowForContact(identifier));
}

std::shared_ptr<InMemoryContactRecord> InMemoryAddressBookHandle::record(Row row) {
  std::weak_ptr<InMemoryContactRecord>& known = _records[row];
  if (auto record = known.lock()) return record;
  auto stored = _database->storedContact(row);
  if (!stored) return nullptr;  // another thread has removed it since it was looked up
  auto record = std::make_shared<InMemoryContactRecord>(weak_from_this(), _database, row, std::move(stored));
  known = record;
  return record;
}

std::vector<RecordRef> InMemoryAddressBookHandle::records(const InMemoryAddressBook::Rows& rows) {
  std::vector<RecordRef> result;
  if (!_database->isReadable()) return result;
  for (const Row row : rows) {
    if (auto found = record(row)) result.push_back(std::move(found));
  }
  return result;
}

RecordRef InMemoryAddressBookHandle::recordOrNull(std::optional<Row> row) {
  return row && _database->isReadable() ? record(*row) : nullptr;
}

InMemoryAddressBookStore::InMemoryAddressBookStore(std::shared_ptr<InMemoryAddressBook> database, Process& process)
    : _database(std::move(database)),
      _link(ProcessLink::of(process)),
      _sharedHandle(std::make_shared<InMemoryAddressBookHandle>(_database, _link)) {}

void InMemoryAddressBookStore::announceChange() {
  _link->async([weak = std::weak_ptr(_link)] {
    const auto link = weak.lock();
    Process* process = link ? link->process() : nullptr;
    if (process) process->notificationCenter().post({ChangedNotification, nullptr, {}});
  });
}

void InMemoryAddressBookStore::performWithAddressBook(const std::function<void(AddressBook&)>& work) {
  _link->requireMainQueue("AddressBookStore::performWithAddressBook");
  work(*_sharedHandle);
}

std::shared_ptr<AddressBook> InMemoryAddressBookStore::openPrivateAddressBook() {
  _link->requireMainQueue("AddressBookStore::openPrivateAddressBook");
  {
    const MutexLock lock(_database->_mutex);
    if (_database->_openFails) return nullptr;
    ++_database->_privateHandleCount;
  }
  return std::make_shared<InMemoryAddressBookHandle>(_database, _link);
}

std::string InMemoryAddressBookStore::addressBookChangedNotification() const { return ChangedNotification; }

std::optional<ContactsFall> InMemoryAddressBookStore::contactsFall() {
  _link->requireMainQueue("AddressBookStore::contactsFall");
  const MutexLock lock(_database->_mutex);
  if (!_database->_isReadable) return std::nullopt;
  const double now = _link->process()->now() + _database->_wallClockShift;
  return _database->_refreshHold.look(_database->_contacts.size(), now);
}

void InMemoryAddressBookStore::noteRefresh() {
  _link->requireMainQueue("AddressBookStore::noteRefresh");
  const MutexLock lock(_database->_mutex);
  if (!_database->_isReadable) return;
  const double now = _link->process()->now() + _database->_wallClockShift;
  _database->_refreshHold.noteRefresh(_database->_contacts.size(), now);
}

void InMemoryAddressBookStore::acceptContacts() {
  _link->requireMainQueue("AddressBookStore::acceptContacts");
  const MutexLock lock(_database->_mutex);
  if (_database->_isReadable) _database->_refreshHold.accept(_database->_contacts.size());
}

bool InMemoryAddressBookStore::shortNameFormatEnabled() const {
  const MutexLock lock(_database->_mutex);
  return _database->_shortNameFormatEnabled;
}

bool InMemoryAddressBookStore::shortNamePreferNicknames() const {
  const MutexLock lock(_database->_mutex);
  return _database->_shortNamePreferNicknames;
}

std::uint32_t InMemoryAddressBookStore::propertyType(RecordProperty property) const {
  const bool hasMany = property == RecordProperty::phone || property == RecordProperty::email;
  return hasMany ? RecordPropertyTypeMultiString : RecordPropertyTypeString;
}

std::int32_t InMemoryAddressBookStore::addMultiValueEntry(MultiValue& multiValue, std::string value,
                                                          std::string label) const {
  const std::int32_t identifier = _database->newEntryIdentifier();
  multiValue.entries.push_back({identifier, std::move(label), std::move(value)});
  return identifier;
}

bool InMemoryAddressBookStore::containsNonLatinCharacters(std::string_view text) const {
  const auto decoded = characters::decode(text);
  return std::any_of(decoded.begin(), decoded.end(), characters::isOtherLetter);
}

bool InMemoryAddressBookStore::containsEmojiCharacters(std::string_view text) const {
  const auto decoded = characters::decode(text);
  return std::any_of(decoded.begin(), decoded.end(), characters::isEmoji);
}

RecordRef InMemoryAddressBookStore::personFromContact(const Contact& contact) {
  _link->requireMainQueue("ContactStore::personFromContact");
  return _sharedHandle->personForContact(contact.identifier);
}

}  // namespace pellor
