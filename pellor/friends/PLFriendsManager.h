// The friend list of one preferences domain: the product of this library.
//
//   1  Registry, settings and persistence   the domain, the stored list and titles, saving, other processes' edits
//   2  Group layout and positions           the pages over the flat list, adding, moving and removing friends
//   3  Indexes and lookup                   the person behind a destination or a GUID
//   4  Change log and notifications         what changed, gathered and reported
//   5  Reachability                         which destinations of friends can receive messages, as far as is known
//   6  Loading, refresh and clean-up        merging a stored list, following the contacts, duplicates
//   7  Favorites import                     the first list of the default domain, checks of additions
//   8  Steps                                edits that are stored together (PLListEditor.h)
//
// Threads: a manager is used on the main queue alone. Writes run on its save queue, the change log lives on its
// change-log queue, and all notifications are posted on the main queue. Nothing here blocks on input or output but what
// has to read the store or the contacts: loading, refreshing, importing, and looking up somebody unknown.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "pellor/friends/PLFriendGroupDelegate.h"
#include "pellor/friends/PLFriendsManagerKeys.h"
#include "pellor/friends/PLStepClient.h"
#include "pellor/platform/ReachabilityService.h"
#include "pellor/runtime/Object.h"

namespace pellor {

class ContactStore;
class Observation;
class PLChangeLog;
class PLDelayedOperation;
class PLFriendGroup;
class PLListEditor;
class PLListWriter;
class PLPendingChanges;
class PLPerson;
class PLReachability;
class Process;
struct Contact;
struct Notification;
struct PLBaseline;
struct PLFriendsManagerParts;
struct PLFavoritesImport;
struct PLMergeResult;
struct PLStoredList;

/// One ordered list of friends, laid out in pages of slots, shared by all processes of the user, kept in step with the
/// contacts and reported on by change logs.
///
/// A manager whose store cannot be read has no groups and takes no friend; it asks again, with growing pauses, and then
/// starts as if it had been made at that moment.
class PLFriendsManager : public Object,
                         public PLFriendGroupDelegate,
                         public std::enable_shared_from_this<PLFriendsManager> {
  struct Passkey {};

 public:
  // --- 1  Registry, settings and persistence ---

  /// The one manager of that domain in the current process, made on the first request and kept until the process ends.
  /// `beforeLoad`, which may be empty, is called with one that is made, before it loads the list: what follows the
  /// load can be observed from there.
  using BeforeLoad = std::function<void(const std::shared_ptr<PLFriendsManager>& manager)>;
  static std::shared_ptr<PLFriendsManager> managerForDomain(const std::string& domain,
                                                            const BeforeLoad& beforeLoad = {});

  // Settings for managers that are made later, in practice in other processes or after a restart: each writes its key
  // of `domain` and synchronises it; no live manager is touched and nothing is posted. True when it is written.
  // Main queue.
  /// `setMaxGroupCount:domain:`. How many groups a list may have: taken as it stands, 20 when absent.
  static bool setMaxGroupCountDomain(std::uint64_t count, const std::string& domain);
  /// `setGroupSize:domain:`. Slots per group, 1 to 65,536; others are stored as given, and read as the default of 12.
  static bool setGroupSizeDomain(std::uint64_t size, const std::string& domain);
  /// `setEnableEmptyTrailingGroup:domain:`. Whether an empty group is kept behind the last one that holds a friend.
  static bool setEnableEmptyTrailingGroupDomain(bool enable, const std::string& domain);
  /// `setRefreshAgainstContactsOnInitEnabled:domain:`. Whether managers begin with refreshing enabled.
  static bool setRefreshAgainstContactsOnInitEnabledDomain(bool enable, const std::string& domain);
  /// `setFriendsChangedExternallyNotificationName:domain:` and
  /// `setFriendGroupTitleChangedExternallyNotificationName:domain:`. The cross-process names, which may be one name;
  /// the empty one is read as the built-in name.
  static bool setFriendsChangedExternallyNotificationNameDomain(const std::string& name, const std::string& domain);
  static bool setFriendGroupTitleChangedExternallyNotificationNameDomain(const std::string& name,
                                                                         const std::string& domain);

  /// A manager outside the registry. `domain` absent: TapnoteDomain. Reads the settings once, observes the contacts,
  /// the persons and the two cross-process names, loads the list and the titles, posts what that changed. The last
  /// reference may be dropped on any thread: the manager ends on the main queue, its observers first.
  static std::shared_ptr<PLFriendsManager> initWithDomain(const std::optional<std::string>& domain,
                                                          const BeforeLoad& beforeLoad = {});
  PLFriendsManager(Passkey, Process& process, std::string domain);
  ~PLFriendsManager() override;

  const std::string& domain() const { return _domain; }
  /// Whether the store has answered, so that there is a list.
  bool isLoaded() const { return _didCompleteInitialLoading; }
  /// What the store fails at; absent while it works. It is tried again until it works. Each change is posted as
  /// PLFriendsManagerStoreTroubleChangedNotification, in a task of its own.
  std::optional<PLStoreTrouble> storeTrouble() const;
  /// How many slots each group has, and how many groups there may be.
  std::uint64_t groupSize() const;
  std::uint64_t maxGroupCount() const;
  /// Whether an empty group is kept behind the last one that holds a friend.
  bool isEmptyTrailingGroupEnabled() const;
  /// Another number than before once friends stand elsewhere, came or left, or groups did.
  std::uint64_t layoutVersion() const;

  /// The groups in order: the live array, which changes with the next edit.
  const std::vector<std::shared_ptr<PLFriendGroup>>& friendGroups() const;

  /// Loads the stored list again. Logs; posts the change notification if friends changed, and
  /// PLFriendsManagerGroupListChanged if groups vanished or an empty one was added. A store that cannot be read changes
  /// nothing: it is asked again.
  void reloadFriendList();

  /// Asks for a write of the list and returns at once; the write happens on the save queue, where it costs nothing when
  /// nothing changed. After it the list-changed name is posted to all processes, and every manager but this one
  /// reloads. A write that fails is tried again. When another process wrote first, the edits that are not stored are
  /// merged with what it wrote, and then written: that happens on the main queue, which an application has to serve for
  /// its edits to be stored while others edit.
  void save();
  /// Writes the titles of all groups as they are now and returns at once; ignored while the store has not answered.
  /// After it the title-changed name is posted to all processes, or the list-changed name if the list goes out with
  /// them. A title that was set counts as an edit, also without this call, which `Process::settle` makes up for.
  void saveFriendGroupTitles();
  /// Tells other readers of the domain that stored destinations are in canonical form. Returns at once, posts nothing;
  /// a write that fails is tried again.
  void markFriendListAsNormalized();

  /// Whether refreshing is enabled, see `setRefreshAgainstContactsEnabled`.
  bool isRefreshAgainstContactsEnabled() const;
  /// Whether the last load found differences.
  bool didLastLoadHaveChanges() const { return _lastLoadHadChanges; }
  void setLastLoadHadChanges(bool hadChanges) { _lastLoadHadChanges = hadChanges; }
  /// The save that was requested last. Save queue.
  const std::shared_ptr<PLDelayedOperation>& saveOperation() const;
  void setSaveOperation(std::shared_ptr<PLDelayedOperation> operation);
  /// The log of changes that nobody was told of yet; absent when there are none. From barriers and reads of the
  /// change-log queue.
  const std::optional<PLChangeLog>& changeLog() const;
  void setChangeLog(std::optional<PLChangeLog> log);

  // --- 2  Group layout and positions ---

  /// Whether one more friend fits somewhere, be it into a group that could still be made.
  bool canAddFriend() const;
  /// Puts the person into the lowest empty slot of the first group that is not full; false when every group is full,
  /// when there is no group and for no person. Logs, records an addition, posts, saves.
  bool addFriend(const std::shared_ptr<PLPerson>& person);
  /// Whether the person occupies a slot; false for none.
  bool isPersonFriend(const std::shared_ptr<PLPerson>& person) const;
  /// The person's position within its group; `NotFound` for a person in no slot.
  std::uint64_t positionOfFriendInGroup(const std::shared_ptr<PLPerson>& person) const;
  /// The index of the person's group. 1, not `NotFound`, for a person in no slot: ask `isPersonFriend` first.
  std::uint64_t groupIndexContainingFriend(const std::shared_ptr<PLPerson>& person) const;
  /// Copies a group's slots, after `setFriends:` of the group, into the list, and saves if anything differs. Records
  /// and posts no change; adds an empty trailing group where one is due, and posts that. Ignored for a group that is
  /// not of this manager. Until it is called the manager does not look at what the group was given.
  void syncFriendGroup(const std::shared_ptr<PLFriendGroup>& group);
  /// Removes the empty groups but the last one. If there were any, posts PLFriendsManagerGroupListChanged for each, and
  /// saves.
  void purgeEmptyFriendGroups();

  // What groups report: each is taken over into the list and the change log, and the change notification is posted.
  // Ignored for a group that is not of this manager and for a position that it does not have.
  /// `friendGroup:didSetFriend:atPosition:`. Adds an empty trailing group where one is due. Saves.
  void friendGroupDidSetFriendAtPosition(const std::shared_ptr<PLFriendGroup>& group,
                                         const std::shared_ptr<PLPerson>& person, std::uint64_t position) override;
  /// `friendGroup:didRemoveFriend:atPosition:`. A group that held nobody else is removed with its slots, unless there
  /// may be one group alone. For a null person only the slot is emptied: no group is removed, nothing is recorded or
  /// posted. Saves.
  void friendGroupDidRemoveFriendAtPosition(const std::shared_ptr<PLFriendGroup>& group,
                                            const std::shared_ptr<PLPerson>& person, std::uint64_t position) override;
  /// `friendGroup:didMoveFriends:`. Takes over the order of the group's slots, after `setFriends:` of the group, and
  /// reports each of `friends` as moved. Requests no save: the next one writes the order. The caller that rearranges a
  /// group sends it.
  void friendGroupDidMoveFriends(const std::shared_ptr<PLFriendGroup>& group,
                                 const std::vector<std::shared_ptr<PLPerson>>& friends) override;

  // --- 3  Indexes and lookup ---

  // Nothing here changes the list or posts.

  /// The friend, or the person looked up before, that has one of these destinations, however they are written; of
  /// several the one whose key comes first. Else a person made from them and the contacts, which the manager keeps and
  /// finds again from then on. Never null; a new person each time when none of them is a number or an address.
  std::shared_ptr<PLPerson> personWithDestinations(const std::vector<std::string>& destinations);
  /// The person found, or made, likewise by the GUID of a record. For one that names no record the person has this GUID
  /// and nothing else; for the empty one it is a new person each time.
  std::shared_ptr<PLPerson> personWithABRecordGUID(const std::string& guid);
  /// Whether a friend, not a merely looked-up person, has this GUID; false for none and for the empty one.
  bool containsFriendWithABRecordGUID(const std::optional<std::string>& guid) const;
  /// The first friend that is like the person; null when none is and for none.
  std::shared_ptr<PLPerson> personLikePerson(const std::shared_ptr<PLPerson>& person) const;
  /// The friends who have it as their GUID or as one of their destinations, in canonical form, in the order of slots.
  std::vector<std::shared_ptr<PLPerson>> friendsWithIdentifier(const std::string& identifier) const;
  /// Friends and looked-up persons, each once for every destination and GUID under which it is found, by that key.
  std::vector<std::shared_ptr<PLPerson>> allPeople() const;

  // --- 4  Change log and notifications ---

  /// The logs of several change notifications as one. A later deletion wipes what came before it; an addition after a
  /// deletion counts as what the later log says; else the sets are united. Without logs an empty one. Any thread.
  static PLChangeLog collapseChangeLogsIntoChangeLog(const std::vector<PLChangeLog>& logs);

  // --- 5  Reachability ---

  // A service that answers no queries is stood in for: five seconds after a query every destination that was asked for
  // counts as valid. A real service may answer in parts; one that says nothing for 30 seconds, be it after a part, is
  // given up.

  /// The name of the messaging service for reachability queries; absent while none is set.
  const std::optional<std::string>& serviceName() const;
  /// Sets the name; absent, as at first: no status is checked and every friend counts as reachable. Asks for nothing.
  void setServiceName(std::optional<std::string> serviceName);
  /// Asks for the statuses of all friends' destinations and returns at once. While destinations of a
  /// `statusForPersonRequery` wait for their answer nothing is asked, now or later: ask again after it. Posts
  /// PLFriendsManagerDestinationStatusUpdatedNotification with each answer.
  void refreshDestinationStatuses();
  /// `statusForPerson:requery:`. The best status of the person's destinations, as far as it is known: valid, unknown,
  /// invalid, unspecified, from best to worst. Invalid for a person without destinations and for none; valid for
  /// everybody while statuses are not checked: without a service name, and in processes that skip the check. With
  /// `requery` the statuses are asked for again, before batches, unspecified becomes unknown, and the answer is posted
  /// as PLFriendsManagerDestinationStatusUpdatedNotification.
  /// The first manager of a process that has a service name and is asked decides for all: the check is skipped if the
  /// process's own defaults for its domain have true under PLSkipHasSatelliteCheckKey.
  DestinationStatus statusForPersonRequery(const std::shared_ptr<PLPerson>& person, bool requery);
  /// The person's destinations that are known to be valid, whether or not statuses are checked; empty for none.
  std::set<std::string> reachableDestinationsForPerson(const std::shared_ptr<PLPerson>& person) const;
  /// Takes over statuses by destination, in any spelling; the others stay as they were. Absent: nothing happens. Posts
  /// PLFriendsManagerDestinationStatusUpdatedNotification, and counts the friends without a valid destination, zero
  /// while nothing at all is known to be valid.
  void idStatusUpdatedForDestinations(const std::optional<DestinationStatuses>& statuses);

  // --- 6  Loading, refresh and clean-up ---

  /// Brings every friend in step with the contacts, if they changed since the last time or a load asked for it, takes
  /// out friends that are there twice, saves, and posts the change notification; whether a refresh ran. Does nothing,
  /// and leaves a refresh due, while refreshing is disabled, before there is a list and while the contacts cannot be
  /// read. One that cannot read them to its end stays due as well, and counts as none. While most of the contacts are
  /// gone (`AddressBookStore::contactsFall`) it is held back, the list is not cleaned up either, and it runs by itself
  /// when it may.
  bool refreshAgainstAddressBook();
  /// Enables or disables refreshing in this manager, until it ends; enabling it starts a refresh that is due. Before
  /// the store has answered it takes the place of the setting.
  void setRefreshAgainstContactsEnabled(bool enabled);

  // --- 7  Favorites import ---

  /// Adds the favorites of the phone that are no friends yet, in the user's order, each to the lowest empty slot of the
  /// first group that is not full; groups that get one get the title of an import where they have none. Posts and logs
  /// as `addFriend` does, and PLFriendGroupTitleChangedNotification; saves. Does nothing while favorites or contacts
  /// cannot be read and before there is a list. Main queue.
  ///
  /// The first list of the default domain is made of the favorites. Where these cannot be read then, it begins empty,
  /// can be edited, and waits for them, also over restarts: this is called once they can be read.
  PLFavoritesImport importFavorites();
  /// Whether the first list waits for favorites.
  bool isFirstListDue() const;
  /// `shouldAllowAddingContact:withContactStore:personValueCache:`. Whether a contact may be added: it is no friend yet
  /// and has a destination. The number of its destinations is taken from `personValueCache`, and entered there when it
  /// is missing. False for a contact that is gone. Posts nothing.
  bool shouldAllowAddingContactWithContactStorePersonValueCache(
      const Contact& contact, ContactStore& contactStore,
      std::map<std::int32_t, std::uint64_t>& personValueCache) const;

  // --- 8  Steps ---

  /// Edits that are stored together, groups that come and go, what else is stored. Lives as long as the manager.
  PLListEditor& editor() const { return *_editor; }
  /// Names the version of the list and of its titles that is stored, as far as this process knows: equal in all
  /// processes, and another text for each version. Empty before the store has answered.
  std::string listVersion() const;

  // --- Invariants ---

  /// What is wrong with the list; absent when it is sound: groups and list describe the same slots, groups know their
  /// manager, the indexes find what the list holds. The list has to be at rest, every `setFriends:` of a group followed
  /// by its report. Debug builds check the part that always holds after each operation.
  std::optional<std::string> invariantViolation() const;

 private:
  class PartsClient;
  // 1  Registry, settings and persistence
  void _start();
  bool _readSettings();
  void _observe();
  void _createEmptyFriendList();
  void _loadAgain();
  void _loadFriendList();
  void _startFirstList();
  void _takeOver(const PLStoredList& stored);
  void _beginOnEmptyStore(const PLStoredList& stored);
  void _finishLoad(std::optional<PLChangeOrigin> origin);
  void _loadIsDue();
  void _friendsChangedExternally();
  void _loadIfOther();
  void _loadGroupTitles();
  void _groupTitleChangedExternally();
  std::optional<PLMergeResult> _mergeOwnEdits(const PLStoredList& stored);
  // 2  Group layout and positions
  void _postGroupListChangedNotification();
  // 4  Change log and notifications
  void _postChangeNotificationIfNecessary();
  // 6  Loading, refresh and clean-up
  void _personValuesChanged(const Notification& notification);
  void _addressBookChanged(const Notification& notification);
  static void _followAddressBook(const std::weak_ptr<PLFriendsManager>& manager);
  std::shared_ptr<PLBaseline> _updateFriends(const PLStoredList& stored, const PLMergeResult* merged);
  void _cleanUpAfterLoad();
  void _cleanUpFriendListIfNecessary();
  void _deduplicateFriendListIfNecessary();
  void _removeDestinationlessFriendsIfNecessary();
  void _removeFriendsAtIndices(const std::vector<std::uint64_t>& indices);
  void _tellRemovals(PLDecisionKind kind, const std::vector<std::uint64_t>& indices);
  void _tellIfChangedByContacts(const std::function<void()>& follow);
  // 7  Favorites import
  void _addCuratedFriends(const std::vector<std::shared_ptr<PLPerson>>& friends);
  void _bringFavoritesIfDue();

  void _checkInvariants() const;
  std::optional<std::string> _indexViolation() const;

  // Set when the manager is made; read on any queue.
  Process& _process;
  const std::string _domain;
  const std::shared_ptr<PLListWriter> _writer;
  const std::shared_ptr<PLPendingChanges> _pendingChanges;

  // All from here on belongs to the main queue, as do the operations without an annotation: their public callers tell
  // by `checkMainQueue`.
  const std::shared_ptr<PLReachability> _reachability;
  const std::unique_ptr<PartsClient> _client;
  const std::unique_ptr<PLFriendsManagerParts> _parts;
  const std::unique_ptr<PLListEditor> _editor;
  std::vector<std::shared_ptr<Observation>> _observations;

  bool _didCompleteInitialLoading = false;
  bool _lastLoadHadChanges = false;
  bool _additionWasRefused = false;  // there was no room for it among others' edits
};

}  // namespace pellor
