#include "pellor/linux/contacts/internal/IndexedContactRecord.h"

#include <algorithm>

#include "pellor/linux/contacts/internal/ContactNames.h"

namespace pellor {

namespace {

constexpr const char* PersonKind = "person";
constexpr const char* OrganizationKind = "organization";
constexpr const char* OtherKind = "other";

const char* kindText(CardKind kind) {
  if (kind == CardKind::person) return PersonKind;
  return kind == CardKind::organization ? OrganizationKind : OtherKind;
}

CardKind kindNamed(const std::string& text) {
  if (text == PersonKind) return CardKind::person;
  return text == OrganizationKind ? CardKind::organization : CardKind::other;
}

MultiValue multiValue(const std::vector<CardValue>& values) {
  MultiValue result;
  std::int32_t identifier = 0;
  for (const CardValue& value : values) result.entries.push_back({identifier++, value.label, value.value});
  return result;
}

std::optional<std::vector<std::string>> valuesOf(const MultiValue& multiValue) {
  if (multiValue.entries.empty()) return std::nullopt;
  std::vector<std::string> values;
  values.reserve(multiValue.entries.size());
  for (const MultiValue::Entry& entry : multiValue.entries) values.push_back(entry.value);
  return values;
}

/// The text behind a single-value property of a card; null for the others.
template <class Card>
auto textField(Card& card, RecordProperty property) -> decltype(&card.givenName) {
  switch (property) {
    case RecordProperty::firstName:
      return &card.givenName;
    case RecordProperty::lastName:
      return &card.familyName;
    case RecordProperty::nickname:
      return &card.nickname;
    case RecordProperty::organization:
      return &card.organization;
    case RecordProperty::note:
      return &card.note;
    default:
      return nullptr;
  }
}

}  // namespace

IndexedContactRecord::IndexedContactRecord(std::weak_ptr<IndexedRecordOwner> owner, IndexedContact contact)
    : _owner(std::move(owner)), _contact(std::move(contact)) {
  takeCard();
}

void IndexedContactRecord::refresh(IndexedContact contact) {
  if (_isEdited) std::swap(contact.card, _contact.card);
  _contact = std::move(contact);
  if (!_isEdited) takeCard();
}

void IndexedContactRecord::takeCard() {
  const auto owner = _owner.lock();
  if (_contact.card.nameIsDerived) deriveNames(_contact.card, owner && owner->writesSurnameFirst());
  _phones = multiValue(_contact.card.phones);
  _emails = multiValue(_contact.card.emails);
}

std::vector<RecordRef> IndexedContactRecord::allLinkedPeople() {
  const RecordRef self = shared_from_this();
  const auto owner = _owner.lock();
  if (!owner || linkID() == InvalidRecordID) return {self};
  std::vector<RecordRef> people = owner->linkedSet(linkID());
  // The set may have lost this record since it was read.
  if (std::find(people.begin(), people.end(), self) == people.end()) people.push_back(self);
  return people;
}

RecordRef IndexedContactRecord::preferredLinkedPersonForName() {
  for (const RecordRef& person : allLinkedPeople()) {
    if (person->compositeName()) return person;
  }
  return nullptr;
}

std::optional<std::string> IndexedContactRecord::recordValue(RecordProperty property) const {
  if (property == RecordProperty::kind) return kindText(_contact.card.kind);
  const auto* field = textField(_contact.card, property);
  return field ? *field : std::nullopt;
}

std::optional<std::string> IndexedContactRecord::compositeName() const {
  const auto owner = _owner.lock();
  return pellor::compositeName(_contact.card, owner && owner->writesSurnameFirst());
}

std::optional<std::string> IndexedContactRecord::shortName() const {
  return isPersonKind() ? _contact.card.givenName : std::nullopt;
}

std::optional<std::vector<std::string>> IndexedContactRecord::phoneValues() const { return valuesOf(_phones); }

std::optional<std::vector<std::string>> IndexedContactRecord::emailValues() const { return valuesOf(_emails); }

std::optional<ContactPhoto> IndexedContactRecord::photo() const {
  const auto owner = _contact.card.hasPhoto ? _owner.lock() : nullptr;
  return owner ? owner->photoOf(recordID()) : std::nullopt;
}

std::optional<MultiValue> IndexedContactRecord::copyMultiValue(RecordProperty property) const {
  if (property == RecordProperty::phone && !_phones.entries.empty()) return _phones;
  if (property == RecordProperty::email && !_emails.entries.empty()) return _emails;
  return std::nullopt;
}

void IndexedContactRecord::setRecordValue(RecordProperty property, RecordValue value) {
  _isEdited = true;
  if (const auto owner = _owner.lock()) owner->noteEdit();
  if (auto* values = std::get_if<MultiValue>(&value)) {
    if (property == RecordProperty::phone) _phones = std::move(*values);
    if (property == RecordProperty::email) _emails = std::move(*values);
    return;
  }
  auto& text = std::get<std::string>(value);
  if (property == RecordProperty::kind) _contact.card.kind = kindNamed(text);
  if (auto* field = textField(_contact.card, property)) *field = std::move(text);
}

}  // namespace pellor
