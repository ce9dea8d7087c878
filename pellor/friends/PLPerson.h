// One friend.
//
//  1  Creation            from a stored form, destinations, a record or a favorite
//  2  What a person is    name, destinations, identity
//  3  Persisted forms     the dictionary of the friend list, the keyed archive
//  4  Metadata            free-form entries, from any thread
//  5  Address book        reconciliation with the linked record
//  6  Contact values      what a record has to offer
//
// Threads: a person is used on the main queue of the process that made it, but for the metadata and the save flag (any
// thread) and `dictionaryRepresentation` (any thread: the save queue calls it while the main queue edits).
// Notifications: an operation that posts one says so.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/friends/PLDestination.h"
#include "pellor/friends/detail/PLPersonChanges.h"
#include "pellor/friends/detail/PLPersonForm.h"
#include "pellor/friends/detail/PLPersonRecord.h"
#include "pellor/platform/AddressBookStore.h"
#include "pellor/platform/FavoritesSource.h"
#include "pellor/runtime/KeyedCoder.h"
#include "pellor/runtime/Log.h"
#include "pellor/runtime/Object.h"
#include "pellor/runtime/Published.h"
#include "pellor/runtime/Queue.h"
#include "pellor/runtime/Value.h"

namespace pellor {

class RecordMatchDictionary;
struct PLAutomaticDecision;
struct PLLinkLimits;

/// Posted on the main queue after a person changed in a way that asks to be saved. Object: the person, null when it is
/// gone. No user info.
inline constexpr std::string_view PLPersonValuesChangedNotification = "PLPersonValuesChangedNotification";
/// Posted on the main queue when a person gave up its link to a record. Object: the person, null when it is gone. User
/// info: a `Dictionary` with the former GUID under PLPersonUnlinkedABGUIDKey.
inline constexpr std::string_view PLPersonUnlinkedFromAddressBookNotification =
    "PLPersonUnlinkedFromAddressBookNotification";
inline constexpr std::string_view PLPersonUnlinkedABGUIDKey = "UnlinkedABGUID";

class PLPerson : public Object, public std::enable_shared_from_this<PLPerson> {
  struct Passkey {};

 public:
  // --- 1  Creation ---
  // A person belongs to the current process. Creation announces no change; what it takes from an address book marks the
  // person as needing a save.

  /// A person without name and destinations, linked with no record.
  static std::shared_ptr<PLPerson> init();
  /// `initWithDictionaryRepresentation:addressBook:`. The person that a stored form describes, read as by
  /// `updateFromDictionaryRepresentation`. The address book is not asked.
  static std::shared_ptr<PLPerson> initWithDictionaryRepresentationAddressBook(const PersonDictionary& dictionary,
                                                                               AddressBook* addressBook);
  /// The person that the form, which was read already, describes.
  static std::shared_ptr<PLPerson> initWithForm(PLPersonForm& form);
  /// `initWithDestinations:addressBook:`. A person with these destinations as they are, reconciled with the address
  /// book; null: kept unlinked.
  static std::shared_ptr<PLPerson> initWithDestinationsAddressBook(const std::vector<std::string>& destinations,
                                                                   AddressBook* addressBook);
  /// `initWithABRecordGUID:addressBook:`. The person of a record. For a GUID that names no record, and with a null
  /// handle, it has this GUID and neither name nor destinations.
  static std::shared_ptr<PLPerson> initWithABRecordGUIDAddressBook(const std::string& guid, AddressBook* addressBook);
  /// `initWithFavorite:addressBook:`. The person behind a favorite: the one of its record or, when that is not there or
  /// the handle is null, one with the favorite's name and value.
  static std::shared_ptr<PLPerson> initWithFavoriteAddressBook(const FavoriteEntry& favorite, AddressBook* addressBook);
  /// The person in a keyed archive. What the archive lacks, or holds as another type, is absent; the record identifier
  /// is 0 then. Marks nothing.
  static std::shared_ptr<PLPerson> initWithCoder(const KeyedDecoder& decoder);

  explicit PLPerson(Passkey);
  ~PLPerson() override;

  /// This very person: there is one object for a friend.
  std::shared_ptr<PLPerson> copy() { return shared_from_this(); }

  // --- 2  What a person is ---

  /// The name or, without one, the primary destination, a phone number in its short form. Absent without both.
  std::optional<std::string> displayName() const;
  /// Whether there is a name of at least one character.
  bool hasName() const;
  /// The first phone number or, without one, the first e-mail address; absent when there is none. Kept from the first
  /// time that it is asked for until reconciliation changes the destinations or finds another record.
  std::optional<std::string> primaryDestination() const;
  /// All destinations, as a set of the caller's; null when they were never set.
  std::shared_ptr<const DestinationSet> allValues() const;
  /// The number of destinations, 0 when they were never set.
  std::uint64_t allValuesCount() const;
  /// The monogram; absent or empty when there is none.
  std::optional<std::string> initials() const;
  /// The unique identifier of the linked record; absent without a link. An empty one counts as absent wherever persons
  /// are compared: strangers are nobody's duplicates.
  std::optional<std::string> abRecordGUID() const;
  /// The identifier of the database that the link belongs to; absent when no database was asked yet.
  std::optional<std::string> abDatabaseUID() const;
  /// Always false.
  bool hasUnreadMessages() const { return _hasUnreadMessages; }

  /// The caller's preference for replies to this friend, which the library keeps and does not interpret.
  std::optional<std::string> preferredReplyAs() const;
  /// Absent: none is preferred. Marks the person and posts PLPersonValuesChangedNotification when the preference is
  /// another one than before.
  void setPreferredReplyAs(std::optional<std::string> preferredReplyAs);

  /// The destination through which the user wants to reach this friend; absent when none was chosen. It is the user's
  /// choice alone: no contact changes it, and it stays when the friend has that destination no more. A caller that uses
  /// it looks first whether its canonical form is in `allValues`.
  std::optional<std::string> preferredDestination() const;
  /// Absent: none is chosen. Marks the person and posts PLPersonValuesChangedNotification when the choice is another
  /// one than before.
  void setPreferredDestination(std::optional<std::string> preferredDestination);

  /// What is persisted of the person but for the metadata, as the last operation left it. It shows the texts in place,
  /// until the next edit.
  const PLPersonRecord& record() const { return _published.own(); }
  /// Has the memory of the person, but not that of the record, brought near.
  void prefetch() const;
  /// The number of the last change of a persisted field, see PLPersonChanges. Any thread.
  std::uint64_t lastChange() const { return _lastChange.number(); }

  /// Whether `other` is this friend: the GUIDs are equal, or a destination is shared even if the GUIDs differ. False
  /// for null.
  bool isLikePerson(const std::shared_ptr<PLPerson>& other) const { return other && isLike(*other); }
  bool isLike(const PLPerson& other) const;
  /// Whether a stored form describes this person: the GUIDs are equal or, when neither has one, a destination is
  /// shared.
  bool isEqualToDictionaryRepresentation(const PersonDictionary& dictionary) const;
  bool isEqualToForm(const PLPersonForm& form) const;

  /// Class, address, display name and primary destination, for log lines; what is absent reads "(null)". Private
  /// information.
  std::string description() const;

  // --- 3  Persisted forms ---

  /// The form that the friend list stores, without what is absent, but for the monogram, which is empty then. What the
  /// form that was read last has under keys that the person does not know is written back. Any thread: it has what the
  /// last edit that ended published, and the metadata of all writes queued before the call.
  PersonDictionary dictionaryRepresentation() const;
  /// Takes over a stored form and tells whether anything changed. What the form lacks, or holds as another type, is
  /// cleared; an absent record identifier reads as 0, an absent monogram is made from the name. An empty monogram
  /// empties a set one, and leaves an absent one absent. Destinations that are other ones now and had to be corrected
  /// mark the person. Posts PLPersonUnlinkedFromAddressBookNotification when a GUID is replaced or cleared, and nothing
  /// else.
  bool updateFromDictionaryRepresentation(const PersonDictionary& dictionary);
  /// Takes over, as above, a form that was read already.
  bool updateFromForm(PLPersonForm& form);
  /// For a person that was looked up and turns out to be the friend of a stored form: takes over the stored reply
  /// preference and choice of destination, what it does not know, and the stored metadata that it has not. Marks, logs
  /// and posts nothing.
  void adoptPreferencesFromForm(PLPersonForm& form);

  /// Always true: of an archive only the classes that a key allows are read.
  static bool supportsSecureCoding() { return true; }
  /// Archives the person, without what is absent. Reply preference and choice of destination are not part of it, nor is
  /// what it does not know.
  void encodeWithCoder(KeyedEncoder& encoder) const;

  /// Whether the person changed since it was last taken for a save. Any thread.
  ///
  /// An edit publishes its data first and sets the flag second (release); a save takes the flag (acquire) before it
  /// reads the data. Nothing else clears it, but for a load that finds a looked-up person stored as it is. Reading a
  /// stored form does not, even one with nothing to correct: the flag may stand for an edit that no save has seen yet.
  bool needsSave() const { return _needsSave.load(std::memory_order_acquire); }
  /// Sets or clears the flag. Any thread.
  void setNeedsSave(bool needsSave);
  /// Clears the flag and tells whether it was set: for a save, which sets it again if it fails. Any thread.
  bool takeNeedsSave() { return _needsSave.exchange(false, std::memory_order_acquire); }

  // --- 4  Metadata ---
  // Any thread. A write is queued: it changes the metadata, marks the person and posts
  // PLPersonValuesChangedNotification, or does nothing when the person is gone by then. Every one counts as a change,
  // even if it changes nothing. One after which the metadata could not be stored (nested more than 125 deep, or longer
  // than 4 MiB) is refused: it changes, marks and posts nothing, and the log says so. A read sees all writes that were
  // queued before it. Reads are fatal from a task of the metadata queue.

  /// The queue of the metadata of all persons of the current process.
  static ConcurrentQueue& sharedMetadataQueue();
  /// The value under a key; absent when there is none.
  std::optional<Value> metadataValueForKey(const std::string& key) const;
  /// All entries, as they are now.
  Dictionary metadata() const;
  /// `setMetadataValue:forKey:`. Sets one entry. An absent value is ignored: single entries cannot be removed.
  void setMetadataValueForKey(std::optional<Value> value, const std::string& key);
  /// Sets all entries of the dictionary, in place of the entries under these keys.
  void addMetadataEntriesFromDictionary(const Dictionary& dictionary);
  /// Removes all entries.
  void removeAllMetadataValues();

  // --- 5  Address book ---

  /// Brings the person in line with the address book: with the record that its GUID names, else with the record that
  /// fits its name and destinations best; when there is none it is unlinked and keeps both. Null: nothing happens. A
  /// person that is not found because the contacts cannot be read stays as it is.
  ///
  /// Posts PLPersonUnlinkedFromAddressBookNotification when the GUID is replaced or cleared. When anything changed,
  /// marks the person and posts PLPersonValuesChangedNotification. A record found again that says what the person says
  /// already changes nothing: two processes would tell each other of it for ever.
  void refreshWithAddressBook(AddressBook* addressBook);
  /// Likewise, within limits that a user set. What was decided about the link; absent: nothing.
  std::optional<PLAutomaticDecision> refreshWithAddressBook(AddressBook* addressBook, const PLLinkLimits& limits);
  /// The record that the GUID names, to be used while the handle is open; null when there is none, no GUID or no
  /// handle.
  RecordRef copyABPersonWithAddressBook(AddressBook* addressBook) const;

  // --- 6  Contact values ---
  // Main queue, as all use of records.

  /// The name that the user's settings choose for a record: the nickname, the short or the composite name. Absent for
  /// no record and when there is none.
  static std::optional<std::string> preferredNameForPerson(const RecordRef& record);
  /// The destinations of a record and of all records linked with it, in canonical form. Absent for no record.
  static std::optional<DestinationSet> allValuesForPerson(const RecordRef& record);
  /// `addValue:withLabel:toPerson:property:`. Adds an entry to a multi-value property of the handle's view of a record,
  /// not null, and gives its identifier. A property of a single value is replaced, and the result is -1. Nothing is
  /// saved.
  static std::int32_t addValueWithLabelToPersonProperty(const std::string& value, const std::string& label,
                                                        const RecordRef& record, RecordProperty property);

 private:
  // How an operation reports that a field changes: before it does, with the person as the operation names it.
  struct ChangeReport {
    const PLPerson& person;
    enum class Subject { description, guid } subject;
    bool isWanted;
    void operator()(const LogFormat& format, const LogArgument& oldValue, const LogArgument& newValue) const;
  };
  struct Reconciliation;
  struct FoundRecord;
  struct RecordValues;

  // Edits
  static std::shared_ptr<PLPerson> _make();
  Process& _process() const { return _metadataQueue.process(); }
  std::optional<std::string> _text(PLPersonRecord::Text which) const;
  void _publish();
  bool _adopt(PLPersonRecord::Text which, std::optional<std::string_view> text, const ChangeReport& report,
              const LogFormat& format);
  bool _adoptInitials(std::optional<std::string_view> initials, const ChangeReport& report, const LogFormat& format);
  bool _adoptUnknownEntries(const std::shared_ptr<const Dictionary>& entries);
  void _setPreference(PLPersonRecord::Text which, const std::optional<std::string>& text, const LogFormat& format);
  bool _adoptAllValues(const DestinationSet& values, const ChangeReport& report, const LogFormat& format);
  void _setABRecordGUID(std::optional<std::string_view> guid);
  void _clearDerivedValues();
  void _postChangeNotification();

  // Persisted forms
  static PersonDictionary _cardOf(const PLPersonRecord& record);
  bool _updateFromDictionaryRepresentationShouldLogUpdates(PLPersonForm& form, bool shouldLogUpdates);
  bool _adoptMetadata(const Dictionary& metadata, const ChangeReport& report, const LogFormat& format);

  // Metadata. None takes no memory.
  const Dictionary& _metadataDictionary() const PELLOR_REQUIRES_READER(_metadataQueue);
  // Ends a change that began when it was queued.
  void _setMetadataDictionary(Dictionary entries) PELLOR_REQUIRES(_metadataQueue);
  // Of a person that nobody else knows yet.
  void _createMetadata(const Dictionary& entries) PELLOR_UNCHECKED;
  void _writeMetadata(std::function<void(Dictionary&)> write);
  void _keepForSnapshot() PELLOR_REQUIRES(_metadataQueue);
  // Null while nobody has edited the metadata since the snapshot was made that lives.
  const Dictionary* _metadataInSnapshot() const PELLOR_REQUIRES_READER(_metadataQueue);

  // Address book
  std::optional<PLAutomaticDecision> _reconcileCanPostChangeNotificationShouldLogUpdates(AddressBook* addressBook,
                                                                                         bool canPostChangeNotification,
                                                                                         bool shouldLogUpdates,
                                                                                         const PLLinkLimits& limits);
  std::optional<std::string> _refreshFromRecord(Reconciliation& reconciliation, const RecordValues& values);
  FoundRecord _searchRecord(const Reconciliation& reconciliation) const;
  FoundRecord _searchRecordByName(const Reconciliation& reconciliation) const;
  FoundRecord _searchRecordByDestinations(const Reconciliation& reconciliation) const;
  FoundRecord _bestOf(const RecordMatchDictionary& candidates, const Reconciliation& reconciliation) const;
  std::optional<std::string> _adoptRecord(Reconciliation& reconciliation, const FoundRecord& found,
                                          const RecordValues& values);
  std::optional<std::string> _unlink(Reconciliation& reconciliation);
  static RecordMatchDictionary _recordMatchDictionaryFromCFArrayFollowLinksAddressBook(
      const std::vector<RecordRef>& records, bool followLinks, AddressBook& addressBook);
  float _allValuesMatchScore(const DestinationSet& candidate) const;
  RecordRef _bestRecordMatchFromDictionaryAddressBook(const RecordMatchDictionary& candidates,
                                                      AddressBook& addressBook) const;

  // Contact values
  static std::optional<std::vector<std::string>> _allPhoneValuesForRecord(const RecordRef& record);
  static std::optional<std::vector<std::string>> _allEmailValuesForRecord(const RecordRef& record);
  static std::optional<std::vector<std::string>> _allPhoneValuesInSet(const DestinationSet* destinations);
  static std::optional<std::vector<std::string>> _allEmailValuesInSet(const DestinationSet* destinations);

  // Of the process, looked up once: a task of the metadata queue must not wait for the guard of `Process::local`.
  ConcurrentQueue& _metadataQueue;
  PLPersonChanges& _changes;

  // Main queue. What was asked for, or archived, and is kept.
  struct ExtraValues {
    std::optional<std::string> _primaryDestination;
    std::optional<Value> _phoneNumberCount;   // a number that is archived, and that nothing computes
    std::optional<Value> _emailAddressCount;  // another such number
  };
  ExtraValues& _keep() const;
  mutable std::unique_ptr<ExtraValues> _kept;  // null while nothing is kept
  // Main queue. The published record, or while an operation runs perhaps the next one.
  PLPersonRecord _record;
  const bool _hasUnreadMessages = false;
  bool _wasPublished = false;

  // Any thread.
  std::atomic<bool> _needsSave{false};  // set by edits, on the main queue and in the metadata queue; taken by saves
  PLChangeNumber _lastChange;
  Published<PLPersonRecord> _published;  // written on the main queue

  std::unique_ptr<const Dictionary> _metadata PELLOR_GUARDED_BY(_metadataQueue);
  // What it was in a snapshot, if it was edited since.
  struct MetadataCache {
    std::uint64_t snapshot;
    Dictionary entries;
  };
  std::unique_ptr<const MetadataCache> _keptMetadata PELLOR_GUARDED_BY(_metadataQueue);
};

}  // namespace pellor
