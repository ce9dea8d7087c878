// A process's side of the contacts database in memory.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "pellor/platform/AddressBookStore.h"
#include "pellor/platform/ContactStore.h"
#include "pellor/testing/InMemoryAddressBook.h"
#include "pellor/testing/internal/ProcessLink.h"

namespace pellor {

class InMemoryContactRecord;

/// A handle. Its records may be used as long as it is held; later use ends the program.
class InMemoryAddressBookHandle : public AddressBook, public std::enable_shared_from_this<InMemoryAddressBookHandle> {
 public:
  InMemoryAddressBookHandle(std::shared_ptr<InMemoryAddressBook> database, std::shared_ptr<ProcessLink> link);

  bool isReadable() override;
  std::optional<std::string> databaseUID() override;
  std::int32_t sequenceNumber() override;
  RecordRef copyPersonMatchingGUID(std::string_view guid) override;
  RecordRef personForRecordID(std::int32_t recordID) override;
  std::optional<std::vector<RecordRef>> copyPeopleMatchingName(std::string_view name) override;
  std::optional<std::vector<RecordRef>> orderedPeopleForDestination(std::string_view destination) override;
  std::vector<RecordRef> allPeople() override;
  void withPeopleMatchingGUIDs(std::span<const std::string_view> guids, const std::function<void()>& work) override;
  std::optional<std::vector<std::string>> guidsOfPeopleChangedSince(std::int32_t sequenceNumber,
                                                                    std::size_t limit) override;

  RecordRef personForContact(std::string_view identifier);

  // For records
  using Row = InMemoryAddressBook::Row;
  std::shared_ptr<InMemoryContactRecord> record(Row row);
  /// Holds on to a record whose fields were set on this handle.
  void keep(Row row, std::shared_ptr<InMemoryContactRecord> record) { _changedRecords[row] = std::move(record); }
  void requireMainQueue(std::string_view operation) const { _link->requireMainQueue(operation); }

 private:
  std::vector<RecordRef> records(const InMemoryAddressBook::Rows& rows);
  RecordRef recordOrNull(std::optional<Row> row);

  const std::shared_ptr<InMemoryAddressBook> _database;
  const std::shared_ptr<ProcessLink> _link;
  std::map<Row, std::weak_ptr<InMemoryContactRecord>> _records;
  std::map<Row, std::shared_ptr<InMemoryContactRecord>> _changedRecords;
  std::map<std::string, Row, std::less<>> _rowsReadInBulk;
};

/// The address book service of a process and its contact store.
class InMemoryAddressBookStore : public AddressBookStore, public ContactStore {
 public:
  InMemoryAddressBookStore(std::shared_ptr<InMemoryAddressBook> database, Process& process);

  bool belongsTo(const Process& process) const { return _link->process() == &process; }
  void announceChange();

  void performWithAddressBook(const std::function<void(AddressBook&)>& work) override;
  std::shared_ptr<AddressBook> openPrivateAddressBook() override;
  std::string addressBookChangedNotification() const override;
  std::optional<ContactsFall> contactsFall() override;
  void noteRefresh() override;
  void acceptContacts() override;
  bool shortNameFormatEnabled() const override;
  bool shortNamePreferNicknames() const override;
  std::uint32_t propertyType(RecordProperty property) const override;
  std::int32_t addMultiValueEntry(MultiValue& multiValue, std::string value, std::string label) const override;
  bool containsNonLatinCharacters(std::string_view text) const override;
  bool containsEmojiCharacters(std::string_view text) const override;

  RecordRef personFromContact(const Contact& contact) override;

 private:
  const std::shared_ptr<InMemoryAddressBook> _database;
  const std::shared_ptr<ProcessLink> _link;
  const std::shared_ptr<InMemoryAddressBookHandle> _sharedHandle;
};

}  // namespace pellor
