#include "pellor/friends/PLFriendsManager.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "pellor/friends/PLBundle.h"
#include "pellor/friends/PLChangeLog.h"
#include "pellor/friends/PLDelayedOperation.h"
#include "pellor/friends/PLDestination.h"
#include "pellor/friends/PLDestinationStatus.h"
#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/PLListEditor.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/friends/internal/PLFriendsManagerParts.h"
#include "pellor/friends/internal/PLListWriter.h"
#include "pellor/friends/internal/PLMainQueueCheck.h"
#include "pellor/friends/internal/PLMetadataSnapshot.h"
#include "pellor/friends/internal/PLPendingChanges.h"
#include "pellor/friends/internal/PLPersonIdentityChanges.h"
#include "pellor/friends/internal/PLPosting.h"
#include "pellor/friends/internal/PLReachability.h"
#include "pellor/friends/internal/PLSkipChecks.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/Fatal.h"
#include "pellor/runtime/Process.h"
#include "pellor/runtime/Scheduler.h"

namespace pellor {
namespace {

#ifdef PELLOR_CHECK_INVARIANTS
constexpr bool ChecksInvariants = true;
#else
constexpr bool ChecksInvariants = false;
#endif

PreferencesStore& preferencesOf(Process& process) { return *platformOf(process).preferences; }

bool writeSetting(std::string_view key, Value value, const std::string& domain) {
  return plWriteDomainSetting(preferencesOf(Process::current()), key, std::move(value), domain);
}

// Every manager that is made once a domain, in the order of the domains. What managers and their friends use until they
// end is made before it, so that it outlives them.
struct ManagerRegistry {
  ManagerRegistry() {
    Process& process = Process::current();
    _PLGetLogSystem();
    process.local<PLPersonIdentityChanges>();
    process.local<PLPersonChanges>();
    PLPerson::sharedMetadataQueue();
  }
  std::map<std::string, std::shared_ptr<PLFriendsManager>> managers;
};

// Ends a manager on the main queue, whichever thread drops the last reference.
struct EndOnMainQueue {
  Process& process;
  void operator()(PLFriendsManager* manager) const {
    auto owned = std::make_shared<std::unique_ptr<PLFriendsManager>>(manager);
    if (process.mainQueue().isCurrent()) return;
    process.mainQueue().async([owned] { owned->reset(); });
  }
};

}  // namespace

// What the parts tell, and what a settle asks.
class PLFriendsManager::PartsClient final : public PLListWriterClient,
                                            public PLReachabilityClient,
                                            public SettleParticipant {
 public:
  explicit PartsClient(PLFriendsManager& manager) : _manager(manager) {}

  void listWasWritten(const PLAcceptedWrite& write) override {
    PLFriendsManagerParts& parts = *_manager._parts;
    parts.storeFailures.noteAccepted();
    if (write.base) {
      parts.takeover.forgetRemovalsUntil(write.listVersion);
      writer().dirtyChunks().forgetUntil(write.base->list->changes());
    }
    parts.contactsRefresh.noteWritten(write.sequenceNumber);
    if (write.hasList) parts.listReader.noteWritten();
    if (write.hasList) parts.steps.forgetDecisions();
    if (write.hasTitles) parts.titles.noteStored(*writer().base());
    if (write.hasArrays) writer().attachedArrays().shareStoredChunks();
    // One post tells of both: a load of the list reads the titles.
    if (write.hasList || write.hasArrays) {
      parts.ownPosts.postList();
    } else if (write.hasTitles) {
      parts.ownPosts.postTitles();
    }
    parts.steps.noteStored(write.step);
  }
  void stepsNeededNoWrite(std::uint64_t last) override { _manager._parts->steps.noteStored(last); }
  void listWasOvertaken() override { _manager._parts->storeFailures.noteOvertaken(); }
  void writeTroubleChanged() override { _manager._parts->storeFailures.noteWrites(); }
  void loadIsDue() override { _manager._loadIsDue(); }

  void forEachFriend(const std::function<void(const PLPerson&)>& visit) const override {
    const PLSlotList& friends = _manager._parts->friendList;
    for (std::uint64_t index = 0; index < friends.count(); ++index) {
      if (const Slot& slot = friends.at(index)) visit(*slot);
    }
  }
  void statusesWereUpdated(const DestinationStatuses& statuses) override {
    postOnMainQueue(_manager._process, PLFriendsManagerDestinationStatusUpdatedNotification, _manager.weak_from_this(),
                    Dictionary{{std::string(PLFriendsManagerDestinationStatusUpdatedDestinationsKey),
                                destinationStatusNumbers(statuses)}});
  }
  void unreachableFriendsWereCounted(std::int64_t count) override {
    _manager._parts->counters._tallyUnreachableFriends(count);
  }

  bool isSettled() const override {
    return _manager.isLoaded() && _manager._parts->ownPosts.haveAllEchoes() && !writer().isMarked() &&
           !writer().isSaving() && !writer().hasFailed() && !_manager._parts->steps.areUntold();
  }
  bool isWritten() const override {
    const bool isUnreadable = _manager._parts->storeFailures.isUnreadable() && !_manager.isLoaded();
    return !writer().hasFailed() && !isUnreadable && !_manager._additionWasRefused;
  }
  // Edits that asked for no save are saved now.
  void prepareToSettle() override {
    PLFriendsManagerParts& parts = *_manager._parts;
    parts.ownPosts.awaitEchoes();
    if (!_manager.isLoaded() || writer().hasFailed() || writer().awaitsLoad()) return;
    _manager._parts->markNewTitles();
    if (writer().isMarked() && !writer().isSaving()) _manager.save();
  }
  void didSettle() override { _manager._additionWasRefused = false; }

 private:
  PLListWriter& writer() const { return *_manager._writer; }

  PLFriendsManager& _manager;
};

// --- 1  Registry, settings and persistence -------------------------------------------------------------------------

std::shared_ptr<PLFriendsManager> PLFriendsManager::managerForDomain(const std::string& domain,
                                                                     const BeforeLoad& beforeLoad) {
  Process& process = Process::current();
  process.requireMainQueue("managerForDomain");
  auto& managers = process.local<ManagerRegistry>().managers;
  if (auto known = managers.find(domain); known != managers.end()) return known->second;
  auto manager = initWithDomain(domain, beforeLoad);
  managers.emplace(domain, manager);
  return manager;
}

bool PLFriendsManager::setMaxGroupCountDomain(std::uint64_t count, const std::string& domain) {
  return writeSetting(PLMaxGroupCountKey, count, domain);
}

bool PLFriendsManager::setGroupSizeDomain(std::uint64_t size, const std::string& domain) {
  return writeSetting(PLGroupSizeKey, size, domain);
}

bool PLFriendsManager::setEnableEmptyTrailingGroupDomain(bool enable, const std::string& domain) {
  return writeSetting(PLEmptyTrailingGroupEnabledKey, enable, domain);
}

bool PLFriendsManager::setRefreshAgainstContactsOnInitEnabledDomain(bool enable, const std::string& domain) {
  return writeSetting(PLRefreshAgainstContactsOnInitEnabledKey, enable, domain);
}

bool PLFriendsManager::setFriendsChangedExternallyNotificationNameDomain(const std::string& name,
                                                                         const std::string& domain) {
  return writeSetting(PLFriendsChangedExternallyNotificationKey, name, domain);
}

bool PLFriendsManager::setFriendGroupTitleChangedExternallyNotificationNameDomain(const std::string& name,
                                                                                  const std::string& domain) {
  return writeSetting(PLFriendGroupTitleChangedExternallyNotificationKey, name, domain);
}

std::shared_ptr<PLFriendsManager> PLFriendsManager::initWithDomain(const std::optional<std::string>& domain,
                                                                   const BeforeLoad& beforeLoad) {
  Process& process = Process::current();
  process.requireMainQueue("initWithDomain");
  std::shared_ptr<PLFriendsManager> manager(
      new PLFriendsManager(Passkey{}, process, domain.value_or(std::string(TapnoteDomain))), EndOnMainQueue{process});
  // Observers and the first save hold the manager, which nobody can while it is being constructed.
  manager->_observe();
  if (beforeLoad) beforeLoad(manager);
  manager->_start();
  manager->_checkInvariants();
  return manager;
}

PLFriendsManager::PLFriendsManager(Passkey, Process& process, std::string domain)
    : _process(process),
      _domain(std::move(domain)),
      _writer(PLListWriter::make(process, _domain)),
      _pendingChanges(PLPendingChanges::make()),
      _reachability(PLReachability::make(process, _domain)),
      _client(std::make_unique<PartsClient>(*this)),
      _parts(std::make_unique<PLFriendsManagerParts>(
          process, _domain, *_writer,
          PLFriendsManagerParts::Handlers{
              [this] { _postGroupListChangedNotification(); },
              [this] { _followAddressBook(weak_from_this()); },
              [this](const PLAutomaticDecision& decision) { _parts->steps.tellDecision(decision); },
              [this] { _bringFavoritesIfDue(); },
              {[this] { _loadAgain(); }, [this] { _loadIsDue(); },
               [this] {
                 postOnMainQueue(_process, PLFriendsManagerStoreTroubleChangedNotification, weak_from_this());
               }},
          })),
      _editor([this] {
        PLListEditor::Handlers handlers;
        handlers.isLoaded = [this] { return isLoaded(); };
        handlers.postChanges = [this] { _postChangeNotificationIfNecessary(); };
        handlers.checkInvariants = [this] { _checkInvariants(); };
        return std::unique_ptr<PLListEditor>(
            new PLListEditor(_process, *_parts, *_pendingChanges, std::move(handlers)));
      }()) {
  _process.addSettleParticipant(*_client);
}

PLFriendsManager::~PLFriendsManager() {
  _observations.clear();
  _process.removeSettleParticipant(*_client);
}

void PLFriendsManager::_observe() {
  std::weak_ptr<PLFriendsManager> weak = weak_from_this();
  _writer->setClient(std::shared_ptr<PLListWriterClient>(shared_from_this(), _client.get()));
  _reachability->setClient(std::shared_ptr<PLReachabilityClient>(shared_from_this(), _client.get()));
  _parts->pages.setDelegate(weak);
  NotificationCenter& center = _process.notificationCenter();
  _observations.push_back(center.addObserver(platformOf(_process).addressBook->addressBookChangedNotification(),
                                             [weak](const Notification& notification) {
                                               if (auto self = weak.lock()) self->_addressBookChanged(notification);
                                             }));
  _observations.push_back(
      center.addObserver(std::string(PLPersonValuesChangedNotification), [weak](const Notification& notification) {
        if (auto self = weak.lock()) self->_personValuesChanged(notification);
      }));
}

// Everything after the settings waits for a store that answers: a manager that took defaults for settings which it
// could not read would lay the list out wrongly and save it so.
void PLFriendsManager::_start() {
  if (!_readSettings()) {
    _parts->storeFailures.noteUnreadable();
    return;
  }
  const auto whenPosted = [weak = weak_from_this()](void (PLFriendsManager::*handle)()) {
    return [weak, handle] {
      if (auto self = weak.lock()) (self.get()->*handle)();
    };
  };
  _parts->ownPosts.observe(whenPosted(&PLFriendsManager::_friendsChangedExternally),
                           whenPosted(&PLFriendsManager::_groupTitleChangedExternally));
  _loadFriendList();
}

bool PLFriendsManager::_readSettings() {
  auto settings = PLDomainSettings::read(preferencesOf(_process), _domain);
  if (!settings) return false;
  _parts->settings = *std::move(settings);
  _parts->contactsRefresh.readSetting(_parts->settings.refreshesAgainstContactsOnInit());
  return true;
}

void PLFriendsManager::_createEmptyFriendList() {
  _parts->friendList.clear();
  _parts->pages.dropGroupsFrom(0);
  _parts->pages._addEmptyGroup();
}

std::uint64_t PLFriendsManager::groupSize() const { return _parts->settings.maxFriendsPerGroup(); }

std::uint64_t PLFriendsManager::maxGroupCount() const { return _parts->settings.maxFriendGroups(); }

// What a group was given without a report shows in the group alone.
std::uint64_t PLFriendsManager::layoutVersion() const {
  return _parts->friendList.version() + _parts->pages.version() + _process.local<PLUnreportedAssignments>().count;
}

std::optional<PLStoreTrouble> PLFriendsManager::storeTrouble() const { return _parts->storeFailures.trouble(); }

std::string PLFriendsManager::listVersion() const {
  const auto base = _writer->base();
  if (!base) return {};
  std::string text;
  for (const PreferenceVersion& version : {base->listVersion, base->titlesVersion})
    text += std::to_string(version.store) + "." + std::to_string(version.count) + ".";
  return text;
}

bool PLFriendsManager::isEmptyTrailingGroupEnabled() const { return _parts->settings.shouldAddEmptyTrailingGroup(); }

const std::vector<std::shared_ptr<PLFriendGroup>>& PLFriendsManager::friendGroups() const {
  return _parts->pages.friendGroups();
}

void PLFriendsManager::reloadFriendList() {
  checkMainQueue(_process, "reloadFriendList");
  _PLGetLogSystem().log("a friend list reload was requested");
  _loadAgain();
  _checkInvariants();
}

// Held until the end of the load, which tells others. Nobody holds a manager that is about to end.
void PLFriendsManager::_loadAgain() {
  const auto self = weak_from_this().lock();
  if (!self) return;
  _didCompleteInitialLoading ? _loadFriendList() : _start();
}

void PLFriendsManager::_loadIsDue() {
  const auto self = weak_from_this().lock();
  if (!self) return;
  if (!_writer->awaitsLoad()) return _loadIfOther();
  _loadAgain();
  _checkInvariants();
}

void PLFriendsManager::_loadFriendList() {
  PLStoredList stored;
  const PLListReader::Answer found = _parts->listReader.read(stored);
  if (found == PLListReader::Answer::unreadable) {
    _parts->storeFailures.noteUnreadable();
    _writer->awaitLoad();
    return;
  }
  const auto turn = _writer->beginLoad(stored.listVersion, stored.titlesVersion, stored.attached);
  if (turn == PLListWriter::Turn::later) return;
  const bool isRead = found == PLListReader::Answer::loaded || found == PLListReader::Answer::recovered;
  if (isRead && turn == PLListWriter::Turn::now) _parts->judgeSteps(stored);
  const auto origin =
      _didCompleteInitialLoading ? plOriginOf(_writer->base().get(), stored) : std::optional(PLChangeOrigin::load);
  if (turn == PLListWriter::Turn::now) _writer->attachedArrays().takeOver(stored.attached);
  _parts->lookUp.beginRebuild();
  // Not before the store has answered: until then there are no groups to tell of.
  if (!_didCompleteInitialLoading) _createEmptyFriendList();
  _parts->storeFailures.noteRead();
  if (isRead) {
    _PLGetLogSystem().log("loaded friend list%@", _didCompleteInitialLoading ? "" : " for the first time");
    // What came out of the store damaged goes back whole.
    turn == PLListWriter::Turn::now ? _takeOver(stored) : _parts->pages._updateFriendGroups();
    if (found == PLListReader::Answer::recovered) _parts->markLayoutChanged();
  } else {
    if (!_didCompleteInitialLoading) {
      found == PLListReader::Answer::none ? _startFirstList() : _createEmptyFriendList();
    }
    _parts->pages._updateFriendGroups();
    if (turn == PLListWriter::Turn::now) _beginOnEmptyStore(stored);
  }
  save();
  _finishLoad(origin);
}

void PLFriendsManager::_startFirstList() {
  _PLGetLogSystem().log(LogFormat("friend list does not yet exist, starting with an empty list").as("_loadFriendList"));
  _createEmptyFriendList();
  if (_domain == TapnoteDomain) {
    markFriendListAsNormalized();
    const auto curated = _parts->favorites._curatedFriendList(_parts->pages._slotCapacity());
    _parts->favorites.setDue(!curated.isReadable());
    if (!curated.value()) return;
    _addCuratedFriends(curated.value()->friends);
    _parts->steps.noteLeftOut(curated.value()->leftOut);
  }
}

// What is stored, with the own edits that are not on top of it, becomes the list.
void PLFriendsManager::_takeOver(const PLStoredList& stored) {
  const PLMetadataSnapshot snapshot(_process.local<PLPersonChanges>());
  _parts->publishList();
  const auto merged = _mergeOwnEdits(stored);
  const auto base = _updateFriends(stored, merged ? &*merged : nullptr);
  _parts->pages._updateFriendGroups();
  const auto known = _didCompleteInitialLoading ? _writer->base() : nullptr;
  _parts->titles.takeOver(stored, merged ? &*merged : nullptr, known.get());
  base->pages = _parts->pages.pageNumbersOfTheirs(stored.list, merged ? &*merged : nullptr);
  // Marked before the writer goes on, so that all of it goes out at once.
  _writer->clearMarks();
  _parts->favorites.setDue(_writer->awaitsFavorites(stored));
  if (merged && merged->differsInLayout) _parts->markLayoutChanged();
  if (merged && merged->differsInTitles) _writer->markTitles(_parts->titles.storedAfter(*base));
  _writer->takeOver(base, _parts->friendList, _parts->pages.pageNumbers());
}

// There is no list in the store, or none that can be read: the live one is written there, with its titles where there
// are none.
void PLFriendsManager::_beginOnEmptyStore(const PLStoredList& stored) {
  auto base = std::make_shared<PLBaseline>();
  base->listVersion = stored.listVersion;
  base->titles = stored.titles;
  base->titlesVersion = stored.titlesVersion;
  base->pages = _parts->pages.pageNumbers();
  const bool hasOwnTitles = stored.titles.empty() && _parts->titles.haveAny();
  const auto known = _didCompleteInitialLoading ? _writer->base() : nullptr;
  if (!stored.titles.empty()) _parts->titles.takeOver(stored, nullptr, known.get());
  _parts->publishList();
  _writer->markLayout(hasOwnTitles ? std::optional(_parts->titles.storedAfter(*base)) : std::nullopt,
                      _parts->favorites.isDue() ? std::optional(true) : std::nullopt);
  _parts->titles.takeMoved();
  _writer->takeOver(std::move(base), _parts->friendList, _parts->pages.pageNumbers());
}

void PLFriendsManager::_finishLoad(std::optional<PLChangeOrigin> origin) {
  _lastLoadHadChanges = _pendingChanges->_changeLogCount() != 0;
  if (_didCompleteInitialLoading) {
    _PLGetLogSystem().log(LogFormat("friend list has%@ changes").as("_loadFriendList"),
                          _lastLoadHadChanges ? "" : " no");
  }
  _didCompleteInitialLoading = true;
  if (origin) _parts->steps.tellChange(*origin);
  _parts->steps.tellLeftOut();
  if (!refreshAgainstAddressBook()) {
    _cleanUpAfterLoad();
    _postChangeNotificationIfNecessary();
  }
  _parts->lookUp._createAddressToPersonDictionary();
  _parts->counters._tallyLogFriendCount();
  _parts->counters._tallyLogFriendGroupCount();
  _bringFavoritesIfDue();
}

void PLFriendsManager::save() {
  checkMainQueue(_process, "save");
  _parts->save();
}

const std::shared_ptr<PLDelayedOperation>& PLFriendsManager::saveOperation() const PELLOR_UNCHECKED {
  _writer->saveQueue()->requireCurrent();
  return _writer->saveOperation();
}

void PLFriendsManager::setSaveOperation(std::shared_ptr<PLDelayedOperation> operation) PELLOR_UNCHECKED {
  _writer->saveQueue()->requireCurrent();
  _writer->setSaveOperation(std::move(operation));
}

// The bus delivers each own post once, so that the counts pair posts with echoes.
void PLFriendsManager::_friendsChangedExternally() {
  if (_parts->ownPosts.takeListEcho()) return _loadIfOther();
  _PLGetLogSystem().log("Handling external friends-changed event.");
  _loadAgain();
  if (_parts->settings.haveOneExternalName()) _groupTitleChangedExternally();
  _checkInvariants();
}

// After an echo: a delivery of somebody else's may have been taken for it, or be lost. What is stored tells.
void PLFriendsManager::_loadIfOther() {
  const auto base = _writer->base();
  if (!base) return;
  const auto stored = _parts->listReader.versions();
  if (!stored) return;
  if (stored->list != base->listVersion || !_writer->attachedArrays().areKnown(stored->attached)) {
    _loadAgain();
  } else if (stored->titles != base->titlesVersion) {
    _loadGroupTitles();
  }
  _checkInvariants();
}

void PLFriendsManager::_groupTitleChangedExternally() {
  if (_parts->ownPosts.takeTitlesEcho()) return _loadIfOther();
  _PLGetLogSystem().log("Handling external group-title-changed event.");
  if (_didCompleteInitialLoading) _loadGroupTitles();
}

// Titles are by the pages of the list that is stored: where that is another one than the baseline it is loaded with
// them.
void PLFriendsManager::_loadGroupTitles() {
  PLStoredList stored;
  const auto base = _writer->base();
  const PLListReader::Answer found = _parts->listReader.read(stored);
  if (!base || found == PLListReader::Answer::unreadable) return;
  if (stored.listVersion != base->listVersion || _parts->steps.areToBeJudged(*base, stored)) return _loadFriendList();
  if (_writer->beginLoad(stored.listVersion, stored.titlesVersion, stored.attached) != PLListWriter::Turn::now) return;
  _parts->judgeSteps(stored);
  _writer->attachedArrays().takeOver(stored.attached);
  const auto origin = plOriginOf(_writer->base().get(), stored);
  _parts->titles.noteStored(*_writer->base());
  _parts->titles.takeOverRenamed(stored.titles, *base);
  auto renamed = std::make_shared<PLBaseline>(*_writer->base());
  renamed->titles = stored.titles;
  renamed->titlesVersion = stored.titlesVersion;
  if (_writer->needsTitlesSync() || _parts->titles.haveMoved(*renamed))
    _writer->markTitles(_parts->titles.storedAfter(*renamed));
  _parts->publishList();
  _writer->takeOver(std::move(renamed), _parts->friendList, _parts->pages.pageNumbers());
  save();
  if (origin) _parts->steps.tellChange(*origin);
}

void PLFriendsManager::saveFriendGroupTitles() {
  checkMainQueue(_process, "saveFriendGroupTitles");
  const auto base = _writer->base();
  // Before the list has been read there are no groups to name.
  if (!base) return;
  _parts->publishList();
  _writer->markTitles(_parts->titles.storedAfter(*base));
  _writer->save();
}

void PLFriendsManager::markFriendListAsNormalized() {
  checkMainQueue(_process, "markFriendListAsNormalized");
  _writer->markNormalized();
  _writer->save();
}

// Absent when there are none: then what is stored becomes the list as it is.
std::optional<PLMergeResult> PLFriendsManager::_mergeOwnEdits(const PLStoredList& stored) {
  if (!_writer->base()) return std::nullopt;
  _writer->acceptIfWritten(stored);
  std::shared_ptr<const PLBaseline> base = _writer->base();
  _parts->titles.noteStored(*base);
  const bool isOtherList = !comesFrom(*base, stored);
  // Nobody counts as removed there.
  if (isOtherList) base = std::make_shared<const PLBaseline>();
  if (!isOtherList && !_writer->isMarked() && _parts->titles.edits().empty()) return std::nullopt;
  PLMergeResult merged = _parts->takeover.merge(*base, stored, _parts->ownPages(*base), _writer->dirtyChunks());
  _additionWasRefused = _additionWasRefused || !merged.leftOut.empty();
  if (merged.needsRefresh) _parts->contactsRefresh.noteDue();
  return merged;
}

// --- 2  Group layout and positions ---------------------------------------------------------------------------------

void PLFriendsManager::_postGroupListChangedNotification() {
  Process& process = _process;
  process.mainQueue().async([&process] {
    process.notificationCenter().post({std::string(PLFriendsManagerGroupListChanged), nullptr, {}});
  });
  _parts->counters._tallyLogFriendGroupCount();
}

void PLFriendsManager::syncFriendGroup(const std::shared_ptr<PLFriendGroup>& group) {
  checkMainQueue(_process, "syncFriendGroup");
  const auto groupIndex = _parts->pages.indexOfGroup(*group);
  if (!groupIndex) return;
  const std::vector<Slot> friends = group->friends();
  bool differs = false;
  for (std::uint64_t position = 0; position < std::min(_parts->settings.maxFriendsPerGroup(), friends.size());
       ++position) {
    const std::uint64_t index = *groupIndex * _parts->settings.maxFriendsPerGroup() + position;
    if (_parts->friendList.at(index) == friends[position]) continue;
    _parts->friendList.set(index, friends[position]);
    differs = true;
    if (friends[position] == EmptySlot) continue;
    _PLGetLogSystem().log("%@ was moved to position %u in group %u", redactable(friends[position]->description()),
                          position, *groupIndex);
  }
  _parts->pages.noteRoom(*groupIndex);
  // Before the save, which takes the new group's slots along.
  if (_parts->pages._shouldAddEmptyGroup()) _parts->pages._addEmptyGroup();
  if (differs) _parts->markLayoutChanged();
  if (_writer->needsFriendListSync()) save();
  _checkInvariants();
}

void PLFriendsManager::friendGroupDidSetFriendAtPosition(const std::shared_ptr<PLFriendGroup>& group,
                                                         const std::shared_ptr<PLPerson>& person,
                                                         std::uint64_t position) {
  checkMainQueue(_process, "friendGroupDidSetFriendAtPosition");
  const std::uint64_t index = _parts->pages._indexForPositionInGroup(position, *group);
  if (index >= _parts->friendList.count()) return;
  const auto heldPerson = person;
  _parts->friendList.set(index, heldPerson);
  _parts->lookUp.noteFriend(heldPerson.get());
  _pendingChanges->_addEntryToChangeLogForPersonChangeType(heldPerson, PLFriendsManagerPersonAdded);
  if (_parts->pages._shouldAddEmptyGroup()) _parts->pages._addEmptyGroup();
  _parts->markLayoutChanged();
  _postChangeNotificationIfNecessary();
  save();
  _checkInvariants();
}

void PLFriendsManager::friendGroupDidRemoveFriendAtPosition(const std::shared_ptr<PLFriendGroup>& group,
                                                            const std::shared_ptr<PLPerson>& person,
                                                            std::uint64_t position) {
  checkMainQueue(_process, "friendGroupDidRemoveFriendAtPosition");
  const std::uint64_t index = _parts->pages._indexForPositionInGroup(position, *group);
  if (index >= _parts->friendList.count()) return;
  const auto heldGroup = group;
  const auto heldPerson = person;
  const std::uint64_t groupIndex = index / _parts->settings.maxFriendsPerGroup();
  _parts->friendList.set(index, EmptySlot);
  _parts->pages.noteRoom(groupIndex);
  if (heldPerson) {
    _pendingChanges->_addEntryToChangeLogForPersonChangeType(heldPerson, PLFriendsManagerPersonDeleted);
    _parts->lookUp._removePersonFromIdentifiersToPersonMap(*heldPerson);
    // A single group stays, empty: it is the only place for friends.
    const bool isToGo = _parts->settings.maxFriendGroups() >= 2 && !_parts->steps.keepsEmptiedGroups();
    if (heldGroup->count() == 0 && isToGo) _parts->_removeGroupAtIndex(groupIndex);
  }
  _parts->markLayoutChanged();
  if (heldPerson) _postChangeNotificationIfNecessary();
  save();
  _checkInvariants();
}

void PLFriendsManager::friendGroupDidMoveFriends(const std::shared_ptr<PLFriendGroup>& group,
                                                 const std::vector<std::shared_ptr<PLPerson>>& friends) {
  checkMainQueue(_process, "friendGroupDidMoveFriends");
  const auto groupIndex = _parts->pages.indexOfGroup(*group);
  if (!groupIndex) return;
  const std::vector<Slot> content = group->friends();
  for (std::uint64_t position = 0; position < std::min(_parts->settings.maxFriendsPerGroup(), content.size());
       ++position) {
    _parts->friendList.set(*groupIndex * _parts->settings.maxFriendsPerGroup() + position, content[position]);
  }
  _parts->pages.noteRoom(*groupIndex);
  _parts->markLayoutChanged();
  for (const auto& person : friends)
    _pendingChanges->_addEntryToChangeLogForPersonChangeType(person, PLFriendsManagerPersonMoved);
  _postChangeNotificationIfNecessary();
}

void PLFriendsManager::purgeEmptyFriendGroups() {
  checkMainQueue(_process, "purgeEmptyFriendGroups");
  const auto groupCount = _parts->pages.count();
  if (groupCount < 2) return;
  // The last group is spared: it is the one that new friends are dropped into.
  for (std::uint64_t next = groupCount - 1; next > 0; --next) {
    if (friendGroups()[next - 1]->count() == 0) _parts->_removeGroupAtIndex(next - 1);
  }
  if (_parts->pages.count() == groupCount) return;
  _parts->markLayoutChanged();
  save();
  _checkInvariants();
}

bool PLFriendsManager::addFriend(const std::shared_ptr<PLPerson>& person) {
  checkMainQueue(_process, "addFriend");
  if (!person) return false;
  const auto group = _parts->pages.firstGroupWithRoom();
  if (!group) return false;
  std::uint32_t error = PLFriendGroupErrorNone;
  group->addFriend(person, error);
  return error == PLFriendGroupErrorNone;
}

bool PLFriendsManager::canAddFriend() const {
  checkMainQueue(_process, "canAddFriend");
  if (_parts->pages._canAddFriendGroup()) return _didCompleteInitialLoading;
  return _parts->pages.firstGroupWithRoom() != nullptr;
}

bool PLFriendsManager::isPersonFriend(const std::shared_ptr<PLPerson>& person) const {
  checkMainQueue(_process, "isPersonFriend");
  return person && _parts->friendList.indexOf(person.get());
}

std::uint64_t PLFriendsManager::positionOfFriendInGroup(const std::shared_ptr<PLPerson>& person) const {
  checkMainQueue(_process, "positionOfFriendInGroup");
  const auto index = person ? _parts->friendList.indexOf(person.get()) : std::nullopt;
  return index ? *index % _parts->settings.maxFriendsPerGroup() : static_cast<std::uint64_t>(NotFound);
}

std::uint64_t PLFriendsManager::groupIndexContainingFriend(const std::shared_ptr<PLPerson>& person) const {
  checkMainQueue(_process, "groupIndexContainingFriend");
  const auto index = person ? _parts->friendList.indexOf(person.get()) : std::nullopt;
  if (!index) return 1;
  return static_cast<std::uint64_t>(
      std::floor(static_cast<float>(*index) / static_cast<float>(_parts->settings.maxFriendsPerGroup())));
}

// --- 3  Indexes and lookup -----------------------------------------------------------------------------------------

std::shared_ptr<PLPerson> PLFriendsManager::personWithDestinations(const std::vector<std::string>& destinations) {
  checkMainQueue(_process, "personWithDestinations");
  return _parts->lookUp.personWithDestinations(destinations);
}

std::shared_ptr<PLPerson> PLFriendsManager::personWithABRecordGUID(const std::string& guid) {
  checkMainQueue(_process, "personWithABRecordGUID");
  return _parts->lookUp.personWithABRecordGUID(guid);
}

// The list itself is asked: in the identifier map a looked-up person may stand in a friend's place.
bool PLFriendsManager::containsFriendWithABRecordGUID(const std::optional<std::string>& guid) const {
  checkMainQueue(_process, "containsFriendWithABRecordGUID");
  return guid && _parts->friendList.people().containsGUID(*guid);
}

std::shared_ptr<PLPerson> PLFriendsManager::personLikePerson(const std::shared_ptr<PLPerson>& person) const {
  checkMainQueue(_process, "personLikePerson");
  return person ? _parts->friendList.firstLike(*person) : nullptr;
}

std::vector<std::shared_ptr<PLPerson>> PLFriendsManager::friendsWithIdentifier(const std::string& identifier) const {
  checkMainQueue(_process, "friendsWithIdentifier");
  std::set<std::uint64_t> slots;
  _parts->friendList.people().forEachWithIdentifier(identifier, [&](const PLPerson& person) {
    if (const auto slot = _parts->friendList.indexOf(&person)) slots.insert(*slot);
  });
  std::vector<std::shared_ptr<PLPerson>> friends;
  for (const std::uint64_t slot : slots) friends.push_back(_parts->friendList.at(slot));
  return friends;
}

std::vector<std::shared_ptr<PLPerson>> PLFriendsManager::allPeople() const {
  checkMainQueue(_process, "allPeople");
  return _parts->lookUp.allPeople();
}

// --- 4  Change log and notifications -------------------------------------------------------------------------------

const std::optional<PLChangeLog>& PLFriendsManager::changeLog() const PELLOR_UNCHECKED {
  _pendingChanges->queue()->requireReader();
  return _pendingChanges->changeLog();
}

void PLFriendsManager::setChangeLog(std::optional<PLChangeLog> log) PELLOR_UNCHECKED {
  _pendingChanges->queue()->requireCurrent();
  _pendingChanges->setChangeLog(std::move(log));
}

void PLFriendsManager::_postChangeNotificationIfNecessary() {
  _process.mainQueue().async([weak = weak_from_this(), didCompleteInitialLoading = _didCompleteInitialLoading] {
    auto self = weak.lock();
    if (!self) return;
    auto log = self->_pendingChanges->_copyAndResetChangeLog();
    if (!log) return;
    if (didCompleteInitialLoading) {
      _PLGetLogSystem().log("posting %@ with %u changelog %@", PLFriendsManagerChangedNotification, log->count(),
                            log->count() == 1 ? "entry" : "entries");
    }
    self->_process.notificationCenter().post({std::string(PLFriendsManagerChangedNotification), self, std::move(*log)});
    self->_parts->counters._tallyLogFriendCount();
  });
}

PLChangeLog PLFriendsManager::collapseChangeLogsIntoChangeLog(const std::vector<PLChangeLog>& logs) {
  return mergedChangeLogs(logs);
}

// --- 5  Reachability -----------------------------------------------------------------------------------------------

const std::optional<std::string>& PLFriendsManager::serviceName() const { return _reachability->serviceName(); }

void PLFriendsManager::setServiceName(std::optional<std::string> serviceName) {
  checkMainQueue(_process, "setServiceName");
  _reachability->setServiceName(std::move(serviceName));
}

void PLFriendsManager::refreshDestinationStatuses() {
  checkMainQueue(_process, "refreshDestinationStatuses");
  _reachability->refreshDestinationStatuses();
}

DestinationStatus PLFriendsManager::statusForPersonRequery(const std::shared_ptr<PLPerson>& person, bool requery) {
  checkMainQueue(_process, "statusForPersonRequery");
  return _reachability->statusForPersonRequery(person.get(), requery);
}

DestinationSet PLFriendsManager::reachableDestinationsForPerson(const std::shared_ptr<PLPerson>& person) const {
  checkMainQueue(_process, "reachableDestinationsForPerson");
  return _reachability->reachableDestinationsForPerson(person.get());
}

void PLFriendsManager::idStatusUpdatedForDestinations(const std::optional<DestinationStatuses>& statuses) {
  checkMainQueue(_process, "idStatusUpdatedForDestinations");
  if (statuses) _reachability->idStatusUpdatedForDestinations(*statuses);
}

// --- 6  Loading, refresh and clean-up ------------------------------------------------------------------------------

// Strangers are reported too; only a friend's change asks for a save.
void PLFriendsManager::_personValuesChanged(const Notification& notification) {
  const auto person = notification.objectAs<PLPerson>();
  _pendingChanges->_addEntryToChangeLogForPersonChangeType(person, PLFriendsManagerPersonUpdated);
  _postChangeNotificationIfNecessary();
  if (isPersonFriend(person)) save();
}

void PLFriendsManager::_addressBookChanged(const Notification& notification) {
  _PLGetLogSystem().log("received %@", notification.name);
  _process.mainQueue().async([weak = weak_from_this()] {
    if (auto self = weak.lock()) self->_parts->contactsRefresh.noteContactsChanged();
  });
}

// What had to wait for contacts that could not be read, too.
void PLFriendsManager::_followAddressBook(const std::weak_ptr<PLFriendsManager>& manager) {
  const auto self = manager.lock();
  if (!self) return;
  self->refreshAgainstAddressBook();
  self->_parts->lookUp.lookUpAgain();
  self->_bringFavoritesIfDue();
}

bool PLFriendsManager::refreshAgainstAddressBook() {
  checkMainQueue(_process, "refreshAgainstAddressBook");
  if (!_didCompleteInitialLoading) return false;
  if (!_parts->contactsRefresh.isToRun()) return false;
  bool didRefresh = false;
  _tellIfChangedByContacts([&] {
    didRefresh = _parts->contactsRefresh.refreshFriends();
    if (didRefresh) _cleanUpFriendListIfNecessary();
  });
  if (!didRefresh) return false;
  _postChangeNotificationIfNecessary();
  _parts->contactsRefresh.noteRan();
  _checkInvariants();
  return true;
}

bool PLFriendsManager::isRefreshAgainstContactsEnabled() const { return _parts->contactsRefresh.isEnabled(); }

void PLFriendsManager::setRefreshAgainstContactsEnabled(bool enabled) {
  checkMainQueue(_process, "setRefreshAgainstContactsEnabled");
  const bool wasEnabled = isRefreshAgainstContactsEnabled();
  _parts->contactsRefresh.setEnabled(enabled, !_didCompleteInitialLoading);
  if (enabled && !wasEnabled) refreshAgainstAddressBook();
}

// Gives the baseline on which the list is then built, but for the groups' numbers.
std::shared_ptr<PLBaseline> PLFriendsManager::_updateFriends(const PLStoredList& stored, const PLMergeResult* merged) {
  AddressBookStore& store = *platformOf(_process).addressBook;
  const auto known = _writer->base();
  static const PLBaseline nothing;
  std::shared_ptr<PLBaseline> base;
  store.performWithAddressBook([&](AddressBook& shared) {
    // A shared handle without a database cannot name the records that stored friends belong to.
    const auto ownHandle = shared.databaseUID() ? nullptr : store.openPrivateAddressBook();
    auto result =
        _parts->takeover._updateFriends(stored, merged, known ? *known : nothing, ownHandle ? ownHandle.get() : &shared,
                                        _parts->settings.maxFriendsPerGroup());
    _pendingChanges->addChanges(std::move(result.changes));
    base = std::move(result.base);
    save();
  });
  // A refresh that is due already, perhaps for as long as refreshing is disabled, stays due.
  if (_pendingChanges->_changeLogContainsFriendAdditionsOrUpdates()) _parts->contactsRefresh.noteDue();
  return base;
}

// --- Invariants ----------------------------------------------------------------------------------------------------

// A look at all slots for each of many edits would make them take as many times as long as there are slots: of a long
// list some edits are checked, as many as keep it in proportion.
void PLFriendsManager::_checkInvariants() const {
  if constexpr (ChecksInvariants) {
    constexpr std::uint64_t slotsCheckedEachTime = 1024;
    if (_parts->friendList.occupiedCount() % (1 + _parts->friendList.count() / slotsCheckedEachTime) != 0) return;
    if (const auto violation = _indexViolation()) fatal(*violation);
  }
}

// The part that holds even while a group waits to be synchronised.
std::optional<std::string> PLFriendsManager::_indexViolation() const {
  if (auto violation = _parts->pages.violation()) return violation;
  std::uint64_t occupied = 0;
  for (std::uint64_t index = 0; index < _parts->friendList.count(); ++index) {
    const Slot& person = _parts->friendList.at(index);
    if (person == EmptySlot) continue;
    ++occupied;
    if (_parts->friendList.indexOf(person.get(), index) != index) return "every friend found in its slot";
  }
  if (occupied != _parts->pages._numberOfFriendsInList()) return "the number of friends counted";
  const std::uint64_t firstEmpty = _parts->pages._firstEmptyPosition();
  if (firstEmpty < _parts->friendList.count() && _parts->friendList.at(firstEmpty) != EmptySlot)
    return "the first empty slot empty";
  return std::nullopt;
}

std::optional<std::string> PLFriendsManager::invariantViolation() const {
  if (auto violation = _indexViolation()) return violation;
  if (!_parts->pages.haveGroupsTheirSlots()) return "group and list with the same slots";
  if (!_parts->pages.areSkippedGroupsFull()) return "no room in the groups passed over";
  return std::nullopt;
}

}  // namespace pellor
