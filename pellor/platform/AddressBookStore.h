// The contacts database.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "pellor/platform/ContactPhoto.h"
#include "pellor/platform/RefreshHold.h"

namespace pellor {

/// The record identifier that means that no record is linked.
inline constexpr std::int32_t InvalidRecordID = -1;

/// The named properties of a record.
enum class RecordProperty { kind, firstName, lastName, nickname, organization, note, phone, email };

/// The type codes of properties; the bit 0x100 marks a multi-value property.
inline constexpr std::uint32_t RecordPropertyTypeString = 0x1;
inline constexpr std::uint32_t RecordPropertyTypeMultiValue = 0x100;
inline constexpr std::uint32_t RecordPropertyTypeMultiString = RecordPropertyTypeMultiValue | RecordPropertyTypeString;

/// A property that holds an ordered list of labelled values.
struct MultiValue {
  struct Entry {
    std::int32_t identifier = 0;  ///< unique within the list, never used again for another entry
    std::string label;
    std::string value;
    friend bool operator==(const Entry&, const Entry&) = default;
  };
  std::uint32_t type = RecordPropertyTypeMultiString;
  std::vector<Entry> entries;
  friend bool operator==(const MultiValue&, const MultiValue&) = default;
};

using RecordValue = std::variant<std::string, MultiValue>;

class ContactRecord;
/// Records are compared by identity: a handle gives one object for one record, as long as that object is held.
using RecordRef = std::shared_ptr<ContactRecord>;

/// One record of an address book. Main queue, while the handle that it came from is open. What reads a record that has
/// vanished from the database since gives the values as they were.
class ContactRecord {
 public:
  virtual ~ContactRecord() = default;

  /// The record's identifier, never InvalidRecordID; may change when the database is rebuilt.
  virtual std::int32_t recordID() const = 0;
  /// The record's internal unique identifier, never empty; survives changes of the record identifier.
  virtual std::string recordGUID() const = 0;
  /// The identifier of the record that stands for this record's set of linked records; -1 when it is linked with none.
  virtual std::int32_t linkID() const = 0;
  /// All records linked with this one, itself included (as this very object); just itself when there are none. The
  /// record that `linkID` names comes first.
  virtual std::vector<RecordRef> allLinkedPeople() = 0;
  /// Among `allLinkedPeople` the one whose name is to be shown; null when none has a name.
  virtual RecordRef preferredLinkedPersonForName() = 0;

  /// The value of a single-value property; absent when unset.
  virtual std::optional<std::string> recordValue(RecordProperty property) const = 0;
  /// Whether the record is a person, as opposed to an organisation.
  virtual bool isPersonKind() const = 0;
  /// The full name in the order that the user's locale writes names, or the organisation's; absent when there is none.
  /// Changes with the record alone: the locale is that of the process's start.
  virtual std::optional<std::string> compositeName() const = 0;
  /// The short form of the name, as the user set it; absent when there is none.
  virtual std::optional<std::string> shortName() const = 0;
  virtual std::optional<std::string> nickname() const = 0;

  /// All values of the phone-number property, in the record's order; absent when it is unset.
  virtual std::optional<std::vector<std::string>> phoneValues() const = 0;
  /// All values of the e-mail property, in the record's order; absent when it is unset.
  virtual std::optional<std::vector<std::string>> emailValues() const = 0;

  /// The record's picture; absent without one, and when it cannot be read. May read a file. A port whose contacts have
  /// none leaves it as it is.
  virtual std::optional<ContactPhoto> photo() const { return std::nullopt; }

  /// A copy of a multi-value property that may be changed and set; absent when it is unset.
  virtual std::optional<MultiValue> copyMultiValue(RecordProperty property) const = 0;
  /// Sets the property on this handle's view of the record; nothing reaches the database. Failures are ignored.
  virtual void setRecordValue(RecordProperty property, RecordValue value) = 0;
};

/// A handle to an address book.
class AddressBook {
 public:
  virtual ~AddressBook() = default;

  /// Whether the contacts can be read. Once a lookup has failed this is false until the `performWithAddressBook` around
  /// it ends. While it is false lookups find nothing and the sequence number says nothing: nothing is to be concluded
  /// from either. When the contacts can be read again the change notification is posted.
  virtual bool isReadable() = 0;
  /// The database's unique identifier; absent when the handle has no database.
  virtual std::optional<std::string> databaseUID() = 0;
  /// A number that changes with every change to the database, whichever process made it or noticed it.
  virtual std::int32_t sequenceNumber() = 0;

  /// The record with that internal unique identifier; null when there is none.
  virtual RecordRef copyPersonMatchingGUID(std::string_view guid) = 0;
  /// The record with that identifier; null when there is none.
  virtual RecordRef personForRecordID(std::int32_t recordID) = 0;
  /// The records whose name matches, by record identifier; absent when there are none.
  virtual std::optional<std::vector<RecordRef>> copyPeopleMatchingName(std::string_view name) = 0;
  /// The records that hold that phone number or e-mail address, however it is written, in one fixed order: the
  /// preferred record of each linked set first, then by record identifier; absent when there are none.
  virtual std::optional<std::vector<RecordRef>> orderedPeopleForDestination(std::string_view destination) = 0;
  /// All records, by record identifier.
  virtual std::vector<RecordRef> allPeople() = 0;

  /// Runs `work` before it returns, once the records with these GUIDs and all that are linked with them have been read
  /// at once: inside, `copyPersonMatchingGUID` with one of these GUIDs and the links of the records that it gives ask
  /// the database no more. Not to be nested.
  virtual void withPeopleMatchingGUIDs(std::span<const std::string_view> guids, const std::function<void()>& work) = 0;
  /// The GUIDs, ascending, of the records that may be other ones than when the database had that sequence number: they
  /// came, went or changed, or a record that they are or were linked with did. Absent when this cannot be told, as when
  /// values were set on this handle, and when there are more than `limit`: the caller then has to look at the records.
  virtual std::optional<std::vector<std::string>> guidsOfPeopleChangedSince(std::int32_t sequenceNumber,
                                                                            std::size_t limit) = 0;
};

/// The address book service. Main queue, but for the text tests, which run on any thread.
class AddressBookStore {
 public:
  virtual ~AddressBookStore() = default;

  /// Runs `work` before it returns, with the process-wide shared handle, serialised with all other users of the handle.
  /// Re-entrant on its thread.
  virtual void performWithAddressBook(const std::function<void(AddressBook&)>& work) = 0;
  /// A handle of the caller's own, closed with its last reference; null when it cannot be opened.
  virtual std::shared_ptr<AddressBook> openPrivateAddressBook() = 0;
  /// The name of the in-process notification that is posted on the main queue after the database changed, and when it
  /// can be read after it could not.
  virtual std::string addressBookChangedNotification() const = 0;

  /// Whether so many contacts are gone that friends are not to be brought in step with those that are left, as
  /// RefreshHold says; absent when friends may be, and while the contacts cannot be read. The first look at a fall is
  /// remembered over restarts.
  virtual std::optional<ContactsFall> contactsFall() = 0;
  /// The friends are in step with the contacts as they are now. Ignored while these cannot be read.
  virtual void noteRefresh() = 0;
  /// The user accepts that contacts are gone: friends may be brought in step with those that are left. Ignored while
  /// they cannot be read. Posts nothing.
  virtual void acceptContacts() = 0;

  /// Whether the user turned short names on.
  virtual bool shortNameFormatEnabled() const = 0;
  /// Whether short names prefer nicknames.
  virtual bool shortNamePreferNicknames() const = 0;
  /// The type code of a property.
  virtual std::uint32_t propertyType(RecordProperty property) const = 0;
  /// Adds an entry at the end and gives its new identifier.
  virtual std::int32_t addMultiValueEntry(MultiValue& multiValue, std::string value, std::string label) const = 0;

  /// Whether the text holds a letter of another script than Latin.
  virtual bool containsNonLatinCharacters(std::string_view text) const = 0;
  /// Whether the text holds an emoji. Digits are none.
  virtual bool containsEmojiCharacters(std::string_view text) const = 0;
};

}  // namespace pellor
