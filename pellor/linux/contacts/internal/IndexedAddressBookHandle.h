// A handle to an indexed address book, and its records.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "pellor/linux/contacts/internal/ContactIndex.h"
#include "pellor/linux/contacts/internal/IndexedRecordOwner.h"
#include "pellor/linux/text/IcuText.h"
#include "pellor/platform/AddressBookStore.h"

namespace pellor {

class IndexedContactRecord;

/// Reads through the index. Main queue. Made with `std::make_shared`.
class IndexedAddressBookHandle final : public AddressBook,
                                       public IndexedRecordOwner,
                                       public std::enable_shared_from_this<IndexedAddressBookHandle> {
 public:
  /// `locale` may be empty: then names are written and ordered by no locale's rules.
  IndexedAddressBookHandle(std::shared_ptr<ContactIndex> index, LocaleSource locale);

  /// A handle to this address book with records of its own.
  std::shared_ptr<IndexedAddressBookHandle> another() const {
    return std::make_shared<IndexedAddressBookHandle>(_index, _locale);
  }

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

  /// The records that the user marked as favorites in their cards, one for each person: those with a place of their own
  /// by it, then the others by name.
  std::vector<RecordRef> markedFavorites();

  std::vector<RecordRef> linkedSet(std::int32_t linkID) override;
  bool writesSurnameFirst() const override { return _locale && pellor::writesSurnameFirst(_locale()); }
  std::optional<ContactPhoto> photoOf(std::int32_t recordID) override { return _index->photo(recordID); }
  void noteEdit() override { _hasEditedRecords = true; }

 private:
  /// What was read at once, for as long as it is used.
  struct Bulk {
    std::unordered_map<std::string, RecordRef> byGUID;
    std::unordered_map<std::int32_t, std::vector<RecordRef>> linkedSets;
  };

  Bulk readInBulk(std::span<const std::string_view> guids);
  RecordRef record(std::optional<IndexedContact> contact);
  std::vector<RecordRef> records(const std::vector<std::int32_t>& recordIDs);
  void forgetUnusedRecords();

  const std::shared_ptr<ContactIndex> _index;
  const LocaleSource _locale;
  std::map<std::int32_t, std::weak_ptr<IndexedContactRecord>> _records;
  std::size_t _recordsWorthForgetting = 0;
  Bulk _bulk;
  bool _hasEditedRecords = false;
};

}  // namespace pellor
