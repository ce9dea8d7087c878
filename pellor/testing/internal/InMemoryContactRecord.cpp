#include "pellor/testing/internal/InMemoryContactRecord.h"

#include <utility>

#include "pellor/runtime/Fatal.h"

namespace pellor {

namespace {

std::optional<std::string> textOf(const TestContact& contact, RecordProperty property) {
  switch (property) {
    case RecordProperty::kind:
      return contact.kind == TestContact::Kind::person ? "person" : "organization";
    case RecordProperty::firstName:
      return contact.first;
    case RecordProperty::lastName:
      return contact.last;
    case RecordProperty::nickname:
      return contact.nickname;
    case RecordProperty::organization:
      return contact.organization;
    case RecordProperty::note:
      return contact.note;
    case RecordProperty::phone:
    case RecordProperty::email:
      break;
  }
  return std::nullopt;
}

bool isMultiValued(RecordProperty property) {
  return property == RecordProperty::phone || property == RecordProperty::email;
}

std::optional<std::string> unlessEmpty(std::optional<std::string> text) {
  return text && !text->empty() ? std::move(text) : std::nullopt;
}

}  // namespace

InMemoryContactRecord::InMemoryContactRecord(std::weak_ptr<InMemoryAddressBookHandle> handle,
                                             std::shared_ptr<InMemoryAddressBook> database, Row row,
                                             InMemoryAddressBook::StoredRef stored)
    : _handle(std::move(handle)), _database(std::move(database)), _row(row), _stored(std::move(stored)) {}

std::shared_ptr<InMemoryAddressBookHandle> InMemoryContactRecord::openHandle() const {
  auto handle = _handle.lock();
  require(handle != nullptr, "a contact record whose address book handle is still open");
  handle->requireMainQueue("ContactRecord");
  return handle;
}

const InMemoryAddressBook::ContactData& InMemoryContactRecord::stored() const {
  openHandle();
  if (auto current = _database->storedContact(_row)) _stored = std::move(current);
  return *_stored;
}

std::int32_t InMemoryContactRecord::recordID() const { return stored().contact.recordID; }

std::string InMemoryContactRecord::recordGUID() const { return stored().contact.guid; }

std::int32_t InMemoryContactRecord::linkID() const {
  openHandle();
  const auto rows = _database->linkedRows(_row);
  const auto first = rows.empty() ? nullptr : _database->storedContact(rows.front());
  return first ? first->contact.recordID : InvalidRecordID;
}

std::vector<std::shared_ptr<InMemoryContactRecord>> InMemoryContactRecord::linkedRecords() {
  const auto handle = openHandle();
  std::vector<std::shared_ptr<InMemoryContactRecord>> records;
  for (const Row row : _database->linkedRows(_row)) {
    if (auto record = row == _row ? shared_from_this() : handle->record(row)) records.push_back(std::move(record));
  }
  if (records.empty()) records.push_back(shared_from_this());
  return records;
}

std::vector<RecordRef> InMemoryContactRecord::allLinkedPeople() {
  const auto records = linkedRecords();
  return {records.begin(), records.end()};
}

RecordRef InMemoryContactRecord::preferredLinkedPersonForName() {
  RecordRef firstWithName;
  for (const auto& record : linkedRecords()) {
    if (!record->compositeName()) continue;
    if (record->stored().contact.isPreferredForName) return record;
    if (!firstWithName) firstWithName = record;
  }
  return firstWithName;
}

std::optional<std::string> InMemoryContactRecord::recordValue(RecordProperty property) const {
  const auto change = _changes.find(property);
  if (change == _changes.end()) return textOf(stored().contact, property);
  openHandle();
  const auto* text = std::get_if<std::string>(&change->second);
  return text ? std::optional(*text) : std::nullopt;
}

bool InMemoryContactRecord::isPersonKind() const { return recordValue(RecordProperty::kind) == "person"; }

std::optional<std::string> InMemoryContactRecord::compositeName() const {
  const auto organization = unlessEmpty(recordValue(RecordProperty::organization));
  if (!isPersonKind() && organization) return organization;
  const auto name =
      _database->_personNames->fullName(recordValue(RecordProperty::firstName), recordValue(RecordProperty::lastName));
  return name ? name : organization;
}

std::optional<std::string> InMemoryContactRecord::shortName() const {
  return unlessEmpty(recordValue(RecordProperty::firstName));
}

std::optional<std::string> InMemoryContactRecord::nickname() const { return recordValue(RecordProperty::nickname); }

std::optional<std::vector<std::string>> InMemoryContactRecord::phoneValues() const {
  return valuesOf(RecordProperty::phone);
}

std::optional<std::vector<std::string>> InMemoryContactRecord::emailValues() const {
  return valuesOf(RecordProperty::email);
}

std::optional<std::vector<std::string>> InMemoryContactRecord::valuesOf(RecordProperty property) const {
  const auto multiValue = copyMultiValue(property);
  if (!multiValue) return std::nullopt;
  std::vector<std::string> values;
  for (const MultiValue::Entry& entry : multiValue->entries) values.push_back(entry.value);
  return values;
}

std::optional<MultiValue> InMemoryContactRecord::copyMultiValue(RecordProperty property) const {
  openHandle();
  if (!isMultiValued(property)) return std::nullopt;
  if (const auto change = _changes.find(property); change != _changes.end())
    return std::get<MultiValue>(change->second);
  const MultiValue& multiValue = property == RecordProperty::phone ? stored().phones : stored().emails;
  return multiValue.entries.empty() ? std::nullopt : std::optional(multiValue);
}

void InMemoryContactRecord::setRecordValue(RecordProperty property, RecordValue value) {
  const auto handle = openHandle();
  if (std::holds_alternative<MultiValue>(value) != isMultiValued(property)) return;
  _changes.insert_or_assign(property, std::move(value));
  handle->keep(_row, shared_from_this());
}

}  // namespace pellor
