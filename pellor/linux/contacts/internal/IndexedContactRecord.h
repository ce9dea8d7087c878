// One record of an indexed address book.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "pellor/linux/contacts/internal/IndexedContact.h"
#include "pellor/linux/contacts/internal/IndexedRecordOwner.h"
#include "pellor/platform/AddressBookStore.h"

namespace pellor {

/// The values are those of the last time when the handle was asked for the record.
class IndexedContactRecord final : public ContactRecord, public std::enable_shared_from_this<IndexedContactRecord> {
 public:
  IndexedContactRecord(std::weak_ptr<IndexedRecordOwner> owner, IndexedContact contact);

  /// Takes the values that the index has now; those that were set on this handle stay.
  void refresh(IndexedContact contact);
  const ContactCard& card() const { return _contact.card; }

  std::int32_t recordID() const override { return _contact.recordID; }
  std::string recordGUID() const override { return _contact.guid; }
  std::int32_t linkID() const override { return _contact.linkID; }
  std::vector<RecordRef> allLinkedPeople() override;
  RecordRef preferredLinkedPersonForName() override;
  std::optional<std::string> recordValue(RecordProperty property) const override;
  bool isPersonKind() const override { return _contact.card.kind == CardKind::person; }
  std::optional<std::string> compositeName() const override;
  /// The given name of a person.
  std::optional<std::string> shortName() const override;
  std::optional<std::string> nickname() const override { return _contact.card.nickname; }
  std::optional<std::vector<std::string>> phoneValues() const override;
  std::optional<std::vector<std::string>> emailValues() const override;
  std::optional<ContactPhoto> photo() const override;
  std::optional<MultiValue> copyMultiValue(RecordProperty property) const override;
  void setRecordValue(RecordProperty property, RecordValue value) override;

 private:
  void takeCard();

  const std::weak_ptr<IndexedRecordOwner> _owner;
  IndexedContact _contact;
  MultiValue _phones;
  MultiValue _emails;
  bool _isEdited = false;
};

}  // namespace pellor
