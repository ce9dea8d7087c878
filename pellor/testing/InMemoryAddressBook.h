// A contacts database in memory.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/platform/AddressBookStore.h"
#include "pellor/platform/ContactStore.h"
#include "pellor/runtime/Process.h"
#include "pellor/runtime/ThreadSafety.h"
#include "pellor/testing/SimulatedPhoneNumbers.h"
#include "pellor/testing/SimulatedText.h"
#include "pellor/testing/TestContact.h"

namespace pellor {

class InMemoryAddressBookStore;
class InMemoryContactIndex;

/// The one contacts database of a world. Contacts are named by their GUIDs. Each change raises the sequence number by
/// one and is announced to every process: `addressBookChangedNotification` is posted by a task on its main queue. Any
/// thread. Made with `std::make_shared`.
///
/// A name is found by its words: each word that is asked for begins a word of the contact's first or last name,
/// nickname or organisation, whatever the case. A phone number is found in every spelling that `SimulatedPhoneNumbers`
/// knows, an e-mail address in upper and lower case.
class InMemoryAddressBook : public std::enable_shared_from_this<InMemoryAddressBook> {
 public:
  /// How many lookups all processes have made.
  struct Lookups {
    std::uint64_t byGUID = 0;
    std::uint64_t byRecordID = 0;
    std::uint64_t byName = 0;
    std::uint64_t byDestination = 0;
    std::uint64_t allPeople = 0;
    std::uint64_t inBulk = 0;      ///< by many GUIDs at once
    std::uint64_t readInBulk = 0;  ///< by how many in all
    friend bool operator==(const Lookups&, const Lookups&) = default;
  };

  explicit InMemoryAddressBook(
      std::shared_ptr<SimulatedPhoneNumbers> phoneNumbers = std::make_shared<SimulatedPhoneNumbers>(),
      std::shared_ptr<SimulatedPersonNames> personNames = std::make_shared<SimulatedPersonNames>());
  ~InMemoryAddressBook();
  InMemoryAddressBook(const InMemoryAddressBook&) = delete;
  InMemoryAddressBook& operator=(const InMemoryAddressBook&) = delete;

  /// The service of a process. Main queue.
  std::shared_ptr<AddressBookStore> storeFor(Process& process);
  /// The contact store of a process: a contact's identifier is the GUID. Its records belong to the process's shared
  /// handle. Main queue.
  std::shared_ptr<ContactStore> contactStoreFor(Process& process);

  // Contacts

  /// Adds a contact and gives its GUID. A GUID or record identifier that is given is one that no other contact has.
  std::string add(TestContact contact);
  /// Adds many, as one change; gives their GUIDs in the order of the contacts.
  std::vector<std::string> addAll(std::vector<TestContact> contacts);
  /// Changes a contact, its identifiers too if `edit` changes them.
  void change(const std::string& guid, const std::function<void(TestContact&)>& edit);
  /// Changes the contact with that GUID into this one, but for its record identifier; adds it when there is none.
  void put(TestContact contact);
  void remove(const std::string& guid);
  /// The contact with that GUID; absent when there is none.
  std::optional<TestContact> contact(const std::string& guid) const;
  /// Links contacts with one another; the first one stands for the set. Each leaves the set that it was in.
  void link(const std::vector<std::string>& guids);
  /// Takes a contact out of its set; the other ones stay linked.
  void unlink(const std::string& guid);

  // The database

  /// Rebuilds the database: every contact gets another record identifier, in the opposite order.
  void rebuild();
  /// The database's identifier, at first "TestDatabase"; absent for handles that have no database. No change.
  void setDatabaseUID(std::optional<std::string> uid);
  /// At first 1, so that a process that has seen nothing yet differs.
  std::int32_t sequenceNumber() const;
  /// Whether the contacts can be read, at first true. While they cannot, handles find nothing and give the number 0.
  /// Each call is announced as a change is.
  void setReadable(bool isReadable);
  /// Whether `openPrivateAddressBook` fails.
  void setOpenFails(bool fails);
  /// Sets the wall clock by so many seconds forward. At first it shows the time of the scheduler. For `contactsFall`.
  void shiftWallClock(double seconds);

  // The user's settings. No change of the database. A contact's short name is its first name.

  void setShortNameFormatEnabled(bool isEnabled);
  void setShortNamePreferNicknames(bool prefersNicknames);

  // Records

  Lookups lookups() const;
  /// How many private handles were opened.
  std::uint64_t privateHandleCount() const;
  void clearRecords();

 private:
  friend class InMemoryAddressBookHandle;
  friend class InMemoryContactRecord;
  friend class InMemoryAddressBookStore;

  // A contact keeps its row for life, whatever becomes of its identifiers.
  using Row = std::uint64_t;
  using Rows = std::vector<Row>;
  struct ContactData {
    TestContact contact;
    MultiValue phones;
    MultiValue emails;
  };
  using StoredRef = std::shared_ptr<const ContactData>;

  // Seen by handles. Each is atomic.
  StoredRef storedContact(Row row) const;
  std::optional<Row> rowWithGUID(std::string_view guid);
  /// Not a lookup in the address book.
  std::optional<Row> rowForContact(std::string_view identifier) const;
  std::optional<Row> rowWithRecordID(std::int32_t recordID);
  Rows rowsMatchingName(std::string_view name);
  Rows rowsWithDestination(std::string_view destination);
  Rows allRows();
  /// The rows linked with this one, itself included, the one that stands for the set first; empty without links.
  Rows linkedRows(Row row) const;
  /// As one lookup. By GUID.
  std::map<std::string, Row, std::less<>> rowsWithGUIDs(std::span<const std::string_view> guids);
  /// Absent for a number that is no earlier one, and for more than `limit`.
  std::optional<std::vector<std::string>> guidsChangedSince(std::int32_t sequenceNumber, std::size_t limit) const;
  std::optional<std::string> databaseUID() const;
  bool isReadable() const;
  std::int32_t newEntryIdentifier();

  // With the lock held
  std::string insert(TestContact contact) PELLOR_REQUIRES(_mutex);
  void store(Row row, TestContact contact) PELLOR_REQUIRES(_mutex);
  void forget(Row row) PELLOR_REQUIRES(_mutex);
  MultiValue multiValue(const std::vector<LabelledValue>& values, const MultiValue* before) PELLOR_REQUIRES(_mutex);
  Row existingRow(const std::string& guid) const PELLOR_REQUIRES(_mutex);
  std::optional<Row> findGUID(std::string_view guid) const PELLOR_REQUIRES(_mutex);
  void leaveLinkSet(Row row) PELLOR_REQUIRES(_mutex);
  bool standsForItsSet(Row row) const PELLOR_REQUIRES(_mutex);
  void touch(Row row) PELLOR_REQUIRES(_mutex);
  void didChange() PELLOR_REQUIRES(_mutex);
  void announce() PELLOR_REQUIRES(_mutex);
  InMemoryContactIndex& index() PELLOR_REQUIRES(_mutex);

  std::shared_ptr<InMemoryAddressBookStore> serviceOf(Process& process);

  const std::shared_ptr<SimulatedPersonNames> _personNames;

  mutable Mutex _mutex;
  std::map<Row, StoredRef> _contacts PELLOR_GUARDED_BY(_mutex);
  std::map<std::string, Row, std::less<>> _rowsByGUID PELLOR_GUARDED_BY(_mutex);
  std::map<std::int32_t, Row> _rowsByRecordID PELLOR_GUARDED_BY(_mutex);
  std::map<Row, std::shared_ptr<Rows>> _linkSets PELLOR_GUARDED_BY(_mutex);  // shared by the members
  Row _lastRow PELLOR_GUARDED_BY(_mutex) = 0;
  std::int32_t _lastRecordID PELLOR_GUARDED_BY(_mutex) = 0;
  std::int32_t _lastEntryIdentifier PELLOR_GUARDED_BY(_mutex) = -1;
  std::int32_t _sequenceNumber PELLOR_GUARDED_BY(_mutex) = 1;
  std::set<std::string> _touched PELLOR_GUARDED_BY(_mutex);                    // GUIDs, by the change under way
  std::map<std::string, std::int32_t> _lastChanges PELLOR_GUARDED_BY(_mutex);  // by GUID, also of removed contacts
  std::optional<std::string> _databaseUID PELLOR_GUARDED_BY(_mutex) = "TestDatabase";
  bool _isReadable PELLOR_GUARDED_BY(_mutex) = true;
  bool _openFails PELLOR_GUARDED_BY(_mutex) = false;
  bool _shortNameFormatEnabled PELLOR_GUARDED_BY(_mutex) = false;
  bool _shortNamePreferNicknames PELLOR_GUARDED_BY(_mutex) = false;
  Lookups _lookups PELLOR_GUARDED_BY(_mutex);
  RefreshHold _refreshHold PELLOR_GUARDED_BY(_mutex);
  double _wallClockShift PELLOR_GUARDED_BY(_mutex) = 0;
  std::uint64_t _privateHandleCount PELLOR_GUARDED_BY(_mutex) = 0;
  std::vector<std::weak_ptr<InMemoryAddressBookStore>> _services PELLOR_GUARDED_BY(_mutex);
  std::unique_ptr<InMemoryContactIndex> _index PELLOR_GUARDED_BY(_mutex);
};

}  // namespace pellor
