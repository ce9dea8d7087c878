// A record of the contacts database in memory, as one handle sees it.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "pellor/testing/internal/InMemoryAddressBookStore.h"

namespace pellor {

class InMemoryContactRecord : public ContactRecord, public std::enable_shared_from_this<InMemoryContactRecord> {
 public:
  using Row = InMemoryAddressBook::Row;

  InMemoryContactRecord(std::weak_ptr<InMemoryAddressBookHandle> handle, std::shared_ptr<InMemoryAddressBook> database,
                        Row row, InMemoryAddressBook::StoredRef stored);

  std::int32_t recordID() const override;
  std::string recordGUID() const override;
  std::int32_t linkID() const override;
  std::vector<RecordRef> allLinkedPeople() override;
  RecordRef preferredLinkedPersonForName() override;
  std::optional<std::string> recordValue(RecordProperty property) const override;
  bool isPersonKind() const override;
  std::optional<std::string> compositeName() const override;
  std::optional<std::string> shortName() const override;
  std::optional<std::string> nickname() const override;
  std::optional<std::vector<std::string>> phoneValues() const override;
  std::optional<std::vector<std::string>> emailValues() const override;
  std::optional<MultiValue> copyMultiValue(RecordProperty property) const override;
  void setRecordValue(RecordProperty property, RecordValue value) override;

 private:
  std::shared_ptr<InMemoryAddressBookHandle> openHandle() const;
  const InMemoryAddressBook::ContactData& stored() const;
  std::vector<std::shared_ptr<InMemoryContactRecord>> linkedRecords();
  std::optional<std::vector<std::string>> valuesOf(RecordProperty property) const;

  const std::weak_ptr<InMemoryAddressBookHandle> _handle;
  const std::shared_ptr<InMemoryAddressBook> _database;
  const Row _row;
  mutable InMemoryAddressBook::StoredRef _stored;  // as it was when it was last seen
  std::map<RecordProperty, RecordValue> _changes;
};

}  // namespace pellor
