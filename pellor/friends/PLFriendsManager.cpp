#include "pellor/friends/PLFriendsManager.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "pellor/friends/PLBundle.h"
#include "pellor/friends/PLDestination.h"
#include "pellor/friends/internal/PLMainQueueCheck.h"
#include "pellor/friends/internal/PLMetadataSnapshot.h"
#include "pellor/friends/internal/PLPendingChanges.h"
#include "pellor/friends/internal/PLPersonIdentityChanges.h"
#include "pellor/friends/internal/PLPosting.h"
#include "pellor/friends/internal/PLReachability.h"
#include "pellor/friends/internal/PLSkipChecks.h"
#include "pellor/friends/internal/PLSlotRearrangement.h"
#include "pellor/runtime/Fatal.h"
#include "pellor/runtime/Scheduler.h"

namespace pellor {
namespace {

#ifdef PELLOR_CHECK_INVARIANTS
constexpr bool kChecksInvariants = true;
#else
constexpr bool kChecksInvariants = false;
#endif

constexpr double kAddressBookRefreshDelay = 0.2;
// How many friends' records are in memory at once during a refresh.
constexpr std::size_t kFriendsReadAtOnce = 1000;
// Between the attempts to read a store that fails.
constexpr BackOff::Pauses kLoadRetryPauses{.first = 0.1, .longest = 60};
// An edit that was overtaken is made again at once and then, while others keep writing, after random parts of these.
constexpr BackOff::Pauses kOvertakenPauses{.first = 0.005, .longest = 0.25};
// A bus that has not brought an own post back for so long is taken for gone.
constexpr double kEchoLimit = 2;

std::uint64_t saturatingProduct(std::uint64_t left, std::uint64_t right) {
  if (right != 0 && left > std::numeric_limits<std::uint64_t>::max() / right) {
    return std::numeric_limits<std::uint64_t>::max();
  }
  return left * right;
}

PreferencesStore& preferencesOf(Process& process) { return *platformOf(process).preferences; }

std::string prefixed(std::string_view name) { return std::string(PLVendorPrefix) + std::string(name); }

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

// --- 1  Registry, settings and persistence -------------------------------------------------------------------------

std::shared_ptr<PLFriendsManager> PLFriendsManager::managerForDomain(const std::string& domain) {
  Process& process = Process::current();
  process.requireMainQueue("managerForDomain");
  auto& managers = process.local<ManagerRegistry>().managers;
  if (auto known = managers.find(domain); known != managers.end()) return known->second;
  auto manager = initWithDomain(domain);
  managers.emplace(domain, manager);
  return manager;
}

namespace {

bool writeSetting(std::string_view key, Value value, const std::string& domain) {
  return plWriteDomainSetting(preferencesOf(Process::current()), key, std::move(value), domain);
}

}  // namespace

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

std::shared_ptr<PLFriendsManager> PLFriendsManager::initWithDomain(const std::optional<std::string>& domain) {
  Process& process = Process::current();
  process.requireMainQueue("initWithDomain");
  std::shared_ptr<PLFriendsManager> manager(
      new PLFriendsManager(Passkey{}, process, domain.value_or(std::string(TapnoteDomain))), EndOnMainQueue{process});
  // Observers and the first save hold the manager, which nobody can while it is being constructed.
  manager->_observe();
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
      _identifiersToPersonMap(_friendList.people()),
      _takeover(process, _friendList, _sourcedPersons, [this] { _addEmptyGroup(); }),
      _heldRefresh(process, [this] { _followAddressBook(weak_from_this()); }),
      _favorites(process, [this] { _bringFavoritesIfDue(); }),
      _loadRetryPauses(kLoadRetryPauses),
      _overtakenPauses(kOvertakenPauses, &process.scheduler()) {
  _process.addSettleParticipant(*this);
}

PLFriendsManager::~PLFriendsManager() {
  _observations.clear();
  if (_observesBus) {
    SystemNotifyBus& bus = *platformOf(_process).notifyBus;
    bus.removeObserver(this, _settings.friendsChangedExternallyNotificationName());
    if (!_settings.haveOneExternalName())
      bus.removeObserver(&_titlePostCount, _settings.friendGroupTitleChangedExternallyNotificationName());
  }
  _process.removeSettleParticipant(*this);
}

void PLFriendsManager::_observe() {
  std::weak_ptr<PLFriendsManager> weak = weak_from_this();
  _writer->setClient(std::shared_ptr<PLListWriterClient>(shared_from_this(), this));
  _reachability->setClient(std::shared_ptr<PLReachabilityClient>(shared_from_this(), this));
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
    _storeIsUnreadable = true;
    _retryLoadLater();
    return;
  }
  if (!_observesBus) {
    std::weak_ptr<PLFriendsManager> weak = weak_from_this();
    SystemNotifyBus& bus = *platformOf(_process).notifyBus;
    auto whenPosted = [weak](void (PLFriendsManager::*handle)()) {
      return [weak, handle] {
        if (auto self = weak.lock()) (self.get()->*handle)();
      };
    };
    bus.addObserver(this, whenPosted(&PLFriendsManager::_friendsChangedExternally),
                    _settings.friendsChangedExternallyNotificationName());
    // Under one name a post is of either.
    if (!_settings.haveOneExternalName()) {
      bus.addObserver(&_titlePostCount, whenPosted(&PLFriendsManager::_groupTitleChangedExternally),
                      _settings.friendGroupTitleChangedExternallyNotificationName());
    }
    _observesBus = true;
  }
  _loadFriendList();
}

bool PLFriendsManager::_readSettings() {
  auto settings = PLDomainSettings::read(preferencesOf(_process), _domain);
  if (!settings) return false;
  _settings = *std::move(settings);
  // A caller who has said already whether friends are refreshed is not overruled.
  if (!std::exchange(_refreshSettingIsReplaced, false)) {
    _refreshAgainstContactsEnabled = _settings.refreshesAgainstContactsOnInit();
  }
  return true;
}

void PLFriendsManager::_createEmptyFriendList() {
  _friendList.clear();
  _forgetGroupsFrom(0);
  _addEmptyGroup();
}

void PLFriendsManager::reloadFriendList() {
  checkMainQueue(_process, "reloadFriendList");
  _PLGetLogSystem().log("a friend list reload was requested");
  _loadAgain();
  _checkInvariants();
}

void PLFriendsManager::_loadAgain() { _didCompleteInitialLoading ? _loadFriendList() : _start(); }

void PLFriendsManager::_loadFriendList() {
  PLStoredList stored;
  const StoredList found = _readStoredList(stored);
  if (found == StoredList::unreadable) {
    _storeIsUnreadable = true;
    _writer->awaitLoad();
    _retryLoadLater();
    return;
  }
  const auto turn = _writer->beginLoad(stored.listVersion, stored.titlesVersion);
  if (turn == PLListWriter::Turn::later) return;
  _identifiersToPersonMap.beginRebuild();
  // Not before the store has answered: until then there are no groups to tell of.
  if (!_didCompleteInitialLoading) _createEmptyFriendList();
  _storeIsUnreadable = false;
  _loadRetryPauses.reset();
  _loadRetryTimer = nullptr;
  if (found == StoredList::loaded || found == StoredList::recovered) {
    _PLGetLogSystem().log("loaded friend list%@", _didCompleteInitialLoading ? "" : " for the first time");
    // What came out of the store damaged goes back whole.
    turn == PLListWriter::Turn::now ? _takeOver(stored) : _updateFriendGroups();
    if (found == StoredList::recovered) _markLayoutChanged();
  } else {
    if (!_didCompleteInitialLoading) {
      found == StoredList::none ? _startFirstList() : _startListInPlaceOfDamaged();
    }
    _updateFriendGroups();
    if (turn == PLListWriter::Turn::now) _beginOnEmptyStore(stored);
  }
  save();
  _finishLoad();
}

namespace {

// Of the list, its titles, and whether it waits for favorites.
const std::vector<std::string>& keysOfList() {
  static const std::vector<std::string> keys = {std::string(PLFriendListKey), std::string(PLGroupTitlesKey),
                                                std::string(PLFirstListIsDueKey)};
  return keys;
}

std::optional<LongArray> longArrayIn(const Value& value) {
  if (const LongArray* array = value.longArray()) return *array;
  const Array* array = value.array();
  return array ? std::optional<LongArray>(*array) : std::nullopt;
}

}  // namespace

PLFriendsManager::StoredList PLFriendsManager::_readStoredList(PLStoredList& stored) {
  const auto answer = preferencesOf(_process).read(keysOfList(), _domain);
  if (!answer.isReadable()) return StoredList::unreadable;
  const VersionedPreference &list = answer.value()->at(keysOfList()[0]), &titles = answer.value()->at(keysOfList()[1]);
  stored.listVersion = list.version;
  stored.titlesVersion = titles.version;
  if (titles.value && titles.value->array()) stored.titles = *titles.value->array();
  stored.awaitsFavorites = answer.value()->at(keysOfList()[2]).value == Value(true);
  auto array = list.value ? longArrayIn(*list.value) : std::nullopt;
  if (list.value && !array) return _recoverStoredList(*list.value, stored);
  _damagedList.reset();
  if (!array) return StoredList::none;
  stored.list = *std::move(array);
  return StoredList::loaded;
}

// A list that is none is kept in a dated copy before anything may take its place.
PLFriendsManager::StoredList PLFriendsManager::_recoverStoredList(const Value& damaged, PLStoredList& stored) {
  if (_damagedList != damaged) {
    const PutAside aside = preferencesOf(_process).putAside(PLFriendListKey, _domain);
    if (!aside.kept) return StoredList::unreadable;
    _damagedList = damaged;
    _recoveredList = aside.lastGood;
    _PLGetLogSystem().log(LogFormat("stored friend list is damaged and was put aside, %@").as("_loadFriendList"),
                          aside.lastGood ? "using its last good copy" : "there is no good copy of it");
  }
  auto lastGood = _recoveredList ? longArrayIn(*_recoveredList) : std::nullopt;
  if (!lastGood) return StoredList::damaged;
  stored.list = *std::move(lastGood);
  return StoredList::recovered;
}

void PLFriendsManager::_startFirstList() {
  _PLGetLogSystem().log(LogFormat("friend list does not yet exist, starting with an empty list").as("_loadFriendList"));
  _createEmptyFriendList();
  if (_domain == TapnoteDomain) {
    markFriendListAsNormalized();
    const auto curated = _curatedFriendList();
    _favorites.setDue(!curated.isReadable());
    _addCuratedFriends(curated.value());
  }
}

void PLFriendsManager::_startListInPlaceOfDamaged() { _createEmptyFriendList(); }

// What is stored, with the own edits that are not on top of it, becomes the list.
void PLFriendsManager::_takeOver(const PLStoredList& stored) {
  const PLMetadataSnapshot snapshot(_process.local<PLPersonChanges>());
  _publishList();
  const auto merged = _mergeOwnEdits(stored);
  _updateFriends(stored, merged ? &*merged : nullptr);
  _updateFriendGroups();
  _takeOverTitles(stored, merged ? &*merged : nullptr);
  _newBaseline->pages = _pageNumbersOfTheirs(stored, merged ? &*merged : nullptr);
  // Marked before the writer goes on, so that all of it goes out at once.
  _writer->clearMarks();
  _favorites.setDue(_writer->awaitsFavorites(stored));
  if (merged && merged->differsInLayout) _markLayoutChanged();
  const auto base = std::exchange(_newBaseline, nullptr);
  if (merged && merged->differsInTitles) _writer->markTitles(_titlesAfter(*base));
  _writer->takeOver(base, _friendList, _pageNumbers());
}

// There is no list in the store, or none that can be read: the live one is written there, with its titles where there
// are none.
void PLFriendsManager::_beginOnEmptyStore(const PLStoredList& stored) {
  auto base = std::make_shared<PLBaseline>();
  base->listVersion = stored.listVersion;
  base->titles = stored.titles;
  base->titlesVersion = stored.titlesVersion;
  base->pages = _pageNumbers();
  const bool hasOwnTitles = stored.titles.empty() && _hasTitles();
  if (!stored.titles.empty()) _takeOverTitles(stored, nullptr);
  _publishList();
  _writer->markLayout(hasOwnTitles ? std::optional(_titlesAfter(*base)) : std::nullopt,
                      _favorites.isDue() ? std::optional(true) : std::nullopt);
  _titlesMoved = false;
  _writer->takeOver(std::move(base), _friendList, _pageNumbers());
}

void PLFriendsManager::_finishLoad() {
  _lastLoadHadChanges = _pendingChanges->_changeLogCount() != 0;
  if (_didCompleteInitialLoading) {
    _PLGetLogSystem().log(LogFormat("friend list has%@ changes").as("_loadFriendList"),
                          _lastLoadHadChanges ? "" : " no");
  }
  _didCompleteInitialLoading = true;
  if (!refreshAgainstAddressBook()) {
    // A friend who is there twice may have become so by contacts that are gone for a while.
    if (!_heldRefresh.isHolding()) _cleanUpFriendListIfNecessary();
    _postChangeNotificationIfNecessary();
  }
  _createAddressToPersonDictionary();
  _tallyLogFriendCount();
  _tallyLogFriendGroupCount();
  _bringFavoritesIfDue();
}

void PLFriendsManager::_retryLoadLater() {
  std::weak_ptr<PLFriendsManager> weak = weak_from_this();
  _loadRetryTimer = Timer::after(_process.mainQueue(), _loadRetryPauses.next(), [weak] {
    if (auto self = weak.lock()) self->_loadAgain();
  });
}

void PLFriendsManager::save() {
  checkMainQueue(_process, "save");
  _publishList();
  _writer->save();
}

const std::shared_ptr<PLDelayedOperation>& PLFriendsManager::saveOperation() const PELLOR_UNCHECKED {
  _writer->saveQueue()->requireCurrent();
  return _writer->saveOperation();
}

void PLFriendsManager::setSaveOperation(std::shared_ptr<PLDelayedOperation> operation) PELLOR_UNCHECKED {
  _writer->saveQueue()->requireCurrent();
  _writer->setSaveOperation(std::move(operation));
}

void PLFriendsManager::listWasWritten(const PLAcceptedWrite& write) {
  _wasOvertaken = false;
  _overtakenPauses.reset();
  if (write.base) {
    _takeover.forgetRemovalsUntil(write.listVersion);
    _writer->dirtyChunks().forgetUntil(write.base->list->changes());
  }
  if (write.sequenceNumber == _ownSequenceNumber) _ownSequenceNumber.reset();
  if (write.hasList) _damagedList.reset();
  if (write.hasTitles) _noteStoredTitles(*_writer->base());
  // One post tells of both: a load of the list reads the titles.
  if (write.hasList) {
    _postExternally(_notificationForExternalListChange());
  } else if (write.hasTitles) {
    _postExternally(_settings.friendGroupTitleChangedExternallyNotificationName());
  }
}

void PLFriendsManager::listWasOvertaken() {
  if (!std::exchange(_wasOvertaken, true)) return loadIsDue();
  _overtakenTimer = Timer::after(_process.mainQueue(), _overtakenPauses.next(), [weak = weak_from_this()] {
    if (auto self = weak.lock()) self->loadIsDue();
  });
}

void PLFriendsManager::loadIsDue() {
  if (!_writer->awaitsLoad()) return _loadIfOther();
  _loadAgain();
  _checkInvariants();
}

void PLFriendsManager::_incrementExternalChangePostCount() { ++_postCount; }

void PLFriendsManager::_postExternally(const std::string& name) {
  if (name == _notificationForExternalListChange()) {
    _incrementExternalChangePostCount();
  } else {
    ++_titlePostCount;
  }
  _lastPost = _process.now();
  platformOf(_process).notifyBus->post(name);
}

// The bus delivers each own post once, so that the counts pair posts with echoes.
void PLFriendsManager::_friendsChangedExternally() {
  if (_postCount > 0) {
    --_postCount;
    return _loadIfOther();
  }
  _PLGetLogSystem().log("Handling external friends-changed event.");
  _loadAgain();
  if (_settings.haveOneExternalName()) _groupTitleChangedExternally();
  _checkInvariants();
}

// After an echo: a delivery of somebody else's may have been taken for it, or be lost. What is stored tells.
void PLFriendsManager::_loadIfOther() {
  const auto base = _writer->base();
  if (!base) return;
  const auto stored = preferencesOf(_process).read(keysOfList(), _domain);
  if (!stored.isReadable()) return;
  if (stored.value()->at(keysOfList()[0]).version != base->listVersion) {
    _loadAgain();
  } else if (stored.value()->at(keysOfList()[1]).version != base->titlesVersion) {
    _loadGroupTitles();
  }
  _checkInvariants();
}

void PLFriendsManager::_groupTitleChangedExternally() {
  if (!_settings.haveOneExternalName() && _titlePostCount > 0) {
    --_titlePostCount;
    return _loadIfOther();
  }
  _PLGetLogSystem().log("Handling external group-title-changed event.");
  if (_didCompleteInitialLoading) _loadGroupTitles();
}

// Titles are by the pages of the list that is stored: where that is another one than the baseline it is loaded with
// them.
void PLFriendsManager::_loadGroupTitles() {
  PLStoredList stored;
  const auto base = _writer->base();
  const StoredList found = _readStoredList(stored);
  if (!base || found == StoredList::unreadable) return;
  if (stored.listVersion != base->listVersion) return _loadFriendList();
  if (_writer->beginLoad(stored.listVersion, stored.titlesVersion) != PLListWriter::Turn::now) return;
  _writer->acceptIfWritten(stored);
  _noteStoredTitles(*_writer->base());
  const PLPageOrigins pages = _pagesInBase(*base);
  const auto groups = _friendGroups;
  for (std::size_t index = 0; index < groups.size(); ++index) {
    const auto page = pages.empty() ? std::optional<std::uint64_t>(index) : pages[index];
    if (page) _takeOverTitle(index, stored.titles, *page);
  }
  auto renamed = std::make_shared<PLBaseline>(*_writer->base());
  renamed->titles = stored.titles;
  renamed->titlesVersion = stored.titlesVersion;
  if (_writer->needsTitlesSync() || _havePagesMoved(*renamed)) _writer->markTitles(_titlesAfter(*renamed));
  _publishList();
  _writer->takeOver(std::move(renamed), _friendList, _pageNumbers());
  _writer->save();
}

// A title that was set here and is not stored stays; else it is the stored one, where there is one.
void PLFriendsManager::_takeOverTitle(std::uint64_t groupIndex, const Array& titles, std::uint64_t page) {
  const std::string* title = page < titles.size() ? titles[page].string() : nullptr;
  if (!title) return;
  const bool isSetHere = _isTitleSetHere(groupIndex);
  _pages[groupIndex].storedTitle = *title;
  if (!isSetHere) _friendGroups[groupIndex]->setTitle(*title);
}

// After a load of the list. Titles that were set here are among those of a merge.
void PLFriendsManager::_takeOverTitles(const PLStoredList& stored, const PLMergeResult* merged) {
  const Array& titles = merged ? merged->titles : stored.titles;
  if (_didCompleteInitialLoading) _dropTitlesFrom(titles.size());
  const auto groups = _friendGroups;
  for (std::size_t index = 0; index < groups.size(); ++index) {
    const std::string* title = index < titles.size() ? titles[index].string() : nullptr;
    // All that a page of ours was called is among those of a merge: what a group had besides was of a page that has
    // gone, or stands elsewhere.
    if (title || merged) groups[index]->setTitle(title ? std::optional(*title) : std::nullopt);
    const auto origin = _pageInTheirs(index, stored, merged);
    const std::string* known = origin && *origin < stored.titles.size() ? stored.titles[*origin].string() : nullptr;
    if (known) {
      _pages[index].storedTitle = *known;
    } else {
      _pages[index].storedTitle = title ? std::optional<std::string>() : groups[index]->title();
    }
  }
}

// A group at the place of a page that went further up gives up the title that it had from there.
void PLFriendsManager::_dropTitlesFrom(std::uint64_t index) {
  const auto base = _writer->base();
  if (!base) return;
  for (; index < std::min(_friendGroups.size(), base->titles.size()); ++index) {
    const std::string* known = base->titles[index].string();
    if (known && _friendGroups[index]->title() == *known) _friendGroups[index]->setTitle(std::nullopt);
  }
}

bool PLFriendsManager::_hasTitles() const {
  return std::ranges::any_of(_friendGroups, [](const auto& group) { return !group->title().value_or("").empty(); });
}

bool PLFriendsManager::_isTitleSetHere(std::uint64_t groupIndex) const {
  return _friendGroups[groupIndex]->title().value_or("") != _pages[groupIndex].storedTitle.value_or("");
}

// Whether a title was set since the last time that this was asked, and is not stored.
bool PLFriendsManager::_hasNewTitles() {
  const std::uint64_t assignments = _process.local<PLTitleAssignments>().count;
  if (std::exchange(_seenTitleAssignments, assignments) == assignments) {
    checkSkip("titles that a settle does not look at to be stored", [this] { return _areTitlesWritten(); });
    return false;
  }
  for (std::uint64_t index = 0; index < _friendGroups.size(); ++index) {
    if (_isTitleSetHere(index)) return true;
  }
  return false;
}

namespace {

const std::string* titleAt(const Array& titles, std::optional<std::uint64_t> page) {
  return page && *page < titles.size() ? titles[*page].string() : nullptr;
}

}  // namespace

// For the checks of what is skipped: all titles beside those that are stored. An empty page is each process's own.
bool PLFriendsManager::_areTitlesWritten() const {
  const auto base = _writer->base();
  if (!base || _writer->needsTitlesSync() || _writer->isSaving()) return true;
  const PLPageOrigins pages = _pagesInBase(*base);
  for (std::uint64_t index = 0; index < _friendGroups.size(); ++index) {
    const std::string* stored = titleAt(base->titles, pages.empty() ? index : pages[index]);
    const std::string title = _friendGroups[index]->title().value_or("");
    const bool isWritten = !_isTitleSetHere(index) || title == (stored ? *stored : "");
    if (!isWritten && _friendGroups[index]->count() > 0) return false;
  }
  return true;
}

// The titles as they are to be stored, beyond the groups those of `base`.
Array PLFriendsManager::_titlesAfter(const PLBaseline& base) const {
  Array titles;
  for (const auto& group : _friendGroups) titles.emplace_back(group->title().value_or(""));
  const std::size_t shown = base.pages ? base.pages->size() : 0;
  for (std::size_t page = shown; page < base.titles.size(); ++page) {
    const bool isOfBase = titles.size() == _friendGroups.size() + (page - shown);
    if (isOfBase) titles.push_back(base.titles[page]);
  }
  return titles;
}

// A load may come between a write and the news of it: what was written is set here no more.
void PLFriendsManager::_noteStoredTitles(const PLBaseline& base) {
  if (!base.pages) return;
  std::unordered_map<std::uint64_t, const std::string*> titles;
  for (std::size_t page = 0; page < std::min(base.pages->size(), base.titles.size()); ++page) {
    titles.emplace((*base.pages)[page], base.titles[page].string());
  }
  for (Page& page : _pages) {
    const auto title = titles.find(page.number);
    if (title != titles.end() && title->second) page.storedTitle = *title->second;
  }
}

void PLFriendsManager::saveFriendGroupTitles() {
  checkMainQueue(_process, "saveFriendGroupTitles");
  const auto base = _writer->base();
  // Before the list has been read there are no groups to name.
  if (!base) return;
  _publishList();
  _writer->markTitles(_titlesAfter(*base));
  _writer->save();
}

void PLFriendsManager::markFriendListAsNormalized() {
  checkMainQueue(_process, "markFriendListAsNormalized");
  _writer->markNormalized();
  _writer->save();
}

void PLFriendsManager::_tallySetValueForScalarKey(std::int64_t value, std::string_view key) {
  if (_domain == TapnoteDomain) platformOf(_process).counters->setValueForScalarKey(key, value);
}

void PLFriendsManager::_tallyLogFriendCount() {
  _tallySetValueForScalarKey(static_cast<std::int64_t>(_numberOfFriendsInList(_friendList)),
                             prefixed(".tn.friendList.size"));
}

// Not counting one group, the trailing one.
void PLFriendsManager::_tallyLogFriendGroupCount() {
  _tallySetValueForScalarKey(static_cast<std::int64_t>(_friendGroups.size()) - 1, prefixed(".tn.friendGroups.count"));
}

void PLFriendsManager::_publishList() { _writer->publish(_friendList, _pageNumbers()); }

void PLFriendsManager::_markLayoutChanged() {
  _publishList();
  const auto base = _writer->base();
  _writer->markLayout(_titlesMoved && base ? std::optional(_titlesAfter(*base)) : std::nullopt);
  _titlesMoved = false;
}

// Absent when there are none: then what is stored becomes the list as it is.
std::optional<PLMergeResult> PLFriendsManager::_mergeOwnEdits(const PLStoredList& stored) {
  if (!_writer->base()) return std::nullopt;
  _writer->acceptIfWritten(stored);
  std::shared_ptr<const PLBaseline> base = _writer->base();
  _noteStoredTitles(*base);
  const bool isOtherStore = base->listVersion.store != stored.listVersion.store;
  // A list of another store does not come from the baseline: nobody counts as removed there.
  if (isOtherStore) base = std::make_shared<const PLBaseline>();
  if (!isOtherStore && !_writer->isMarked() && _ownPages(*base).titleEdits.empty()) return std::nullopt;
  PLMergeResult merged = _takeover.merge(*base, stored, _ownPages(*base), _writer->dirtyChunks());
  _additionWasRefused = _additionWasRefused || !merged.leftOut.empty();
  _needsAddressBookRefresh = _needsAddressBookRefresh || merged.needsRefresh;
  return merged;
}

PLOwnPages PLFriendsManager::_ownPages(const PLBaseline& base) const {
  PLOwnPages pages;
  pages.pagesInBase = _pagesInBase(base);
  pages.groupCount = _friendGroups.size();
  pages.groupSize = _settings.maxFriendsPerGroup();
  pages.maxGroupCount = _settings.maxFriendGroups();
  for (std::uint64_t index = 0; index < _friendGroups.size(); ++index) {
    if (_isTitleSetHere(index)) pages.titleEdits.emplace(index, _friendGroups[index]->title().value_or(""));
  }
  return pages;
}

// Groups that were appended are the pages behind those of the baseline.
PLPageOrigins PLFriendsManager::_pagesInBase(const PLBaseline& base) const {
  if (base.pages && base.pages == _publishedPages) return {};
  std::unordered_map<std::uint64_t, std::uint64_t> known;
  for (std::uint64_t page = 0; base.pages && page < base.pages->size(); ++page)
    known.emplace((*base.pages)[page], page);
  PLPageOrigins origins;
  for (const Page& page : _pages) {
    const auto found = known.find(page.number);
    origins.push_back(found == known.end() ? std::nullopt : std::optional(found->second));
  }
  auto appended = origins.size();
  while (appended > 0 && !origins[appended - 1]) --appended;
  for (std::uint64_t next = known.size(); appended < origins.size(); ++appended) origins[appended] = next++;
  return origins;
}

// Whether titles have to go out with the pages that came or went since `base`: those of pages that moved further up.
bool PLFriendsManager::_havePagesMoved(const PLBaseline& base) const {
  const PLPageOrigins pages = _pagesInBase(base);
  if (pages.empty() || base.titles.empty()) return false;
  for (std::uint64_t index = 0; index < pages.size(); ++index) {
    if (pages[index] != index) return true;
  }
  return pages.size() < base.pages->size();
}

PLPageNumbers PLFriendsManager::_pageNumbers() {
  if (_publishedPages) return _publishedPages;
  auto numbers = std::make_shared<std::vector<std::uint64_t>>();
  numbers->reserve(_pages.size());
  for (const Page& page : _pages) numbers->push_back(page.number);
  return _publishedPages = std::move(numbers);
}

std::uint64_t PLFriendsManager::_pageCountOf(const LongArray& list) const {
  return (list.size() + _settings.maxFriendsPerGroup() - 1) / _settings.maxFriendsPerGroup();
}

// The page of the loaded list that a group shows. Groups behind the pages that were merged are pages behind that list.
std::optional<std::uint64_t> PLFriendsManager::_pageInTheirs(std::uint64_t groupIndex, const PLStoredList& theirs,
                                                             const PLMergeResult* merged) const {
  if (!merged) return groupIndex;
  const PLPageOrigins& origins = merged->theirPages;
  const std::uint64_t mergedCount = origins.empty() ? _pageCountOf(merged->list) : origins.size();
  if (groupIndex < mergedCount) return origins.empty() ? std::optional(groupIndex) : origins[groupIndex];
  const std::uint64_t theirCount = _pageCountOf(theirs.list);
  return groupIndex - mergedCount + (origins.empty() ? std::max(theirCount, mergedCount) : theirCount);
}

// The numbers of the groups that show the pages of what was loaded; those that no group shows get some of their own.
PLPageNumbers PLFriendsManager::_pageNumbersOfTheirs(const PLStoredList& theirs, const PLMergeResult* merged) {
  const std::uint64_t theirCount = _pageCountOf(theirs.list);
  const bool areTheSame = !merged || (merged->theirPages.empty() && _pageCountOf(merged->list) >= theirCount);
  if (areTheSame) return _pageNumbers();
  std::vector<std::uint64_t> numbers;
  const auto reach = [&](std::uint64_t count) {
    while (numbers.size() < count) numbers.push_back(++_lastPageNumber);
  };
  for (std::uint64_t index = 0; index < _pages.size(); ++index) {
    const auto page = _pageInTheirs(index, theirs, merged);
    if (!page) continue;
    reach(*page + 1);
    numbers[*page] = _pages[index].number;
  }
  reach(theirCount);
  return std::make_shared<const std::vector<std::uint64_t>>(std::move(numbers));
}

bool PLFriendsManager::isSettled() const {
  return _didCompleteInitialLoading && _postCount == 0 && _titlePostCount == 0 && !_writer->isMarked() &&
         !_writer->isSaving() && !_writer->hasFailed();
}

bool PLFriendsManager::isWritten() const {
  const bool isUnreadable = _storeIsUnreadable && !_didCompleteInitialLoading;
  return !_writer->hasFailed() && !isUnreadable && !_additionWasRefused;
}

// Edits that asked for no save are saved now.
void PLFriendsManager::prepareToSettle() {
  _awaitEchoes();
  if (!_didCompleteInitialLoading || _writer->hasFailed() || _writer->awaitsLoad()) return;
  if (_hasNewTitles()) _writer->markTitles(_titlesAfter(*_writer->base()));
  if (_writer->isMarked() && !_writer->isSaving()) save();
}

void PLFriendsManager::didSettle() { _additionWasRefused = false; }

// An echo that does not come is given up, so that nobody waits for a bus that is gone.
void PLFriendsManager::_awaitEchoes() {
  const bool isWaiting = _postCount > 0 || _titlePostCount > 0;
  if (!isWaiting || (_echoTimer && _echoTimer->isValid())) return;
  const double pause = std::max(0.0, _lastPost + kEchoLimit - _process.now());
  _echoTimer = Timer::after(_process.mainQueue(), pause, [weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self || self->_process.now() < self->_lastPost + kEchoLimit) return;
    self->_postCount = 0;
    self->_titlePostCount = 0;
  });
}

// --- 2  Group layout and positions ---------------------------------------------------------------------------------

// Takes the groups from `index` on out of the manager, which is then no longer their delegate. Their slots stay.
void PLFriendsManager::_forgetGroupsFrom(std::uint64_t index) {
  _firstGroupThatMayHaveRoom = std::min(_firstGroupThatMayHaveRoom, index);
  while (_friendGroups.size() > index) {
    _friendGroups.back()->setDelegate({});
    _groupIndexes.erase(_friendGroups.back().get());
    _friendGroups.pop_back();
    _pages.pop_back();
    _publishedPages = nullptr;
  }
}

void PLFriendsManager::_appendGroup() {
  auto group = PLFriendGroup::initWithDelegateGroupSize(shared_from_this(), _settings.maxFriendsPerGroup());
  _groupIndexes.emplace(group.get(), _friendGroups.size());
  _friendGroups.push_back(std::move(group));
  _pages.push_back({++_lastPageNumber, std::nullopt});
  _publishedPages = nullptr;
}

std::optional<std::uint64_t> PLFriendsManager::_indexOfGroup(const PLFriendGroup& group) const {
  auto known = _groupIndexes.find(&group);
  if (known == _groupIndexes.end()) return std::nullopt;
  return known->second;
}

std::vector<Slot> PLFriendsManager::_slotsOfGroup(std::uint64_t index) const {
  std::vector<Slot> group;
  group.reserve(_settings.maxFriendsPerGroup());
  const std::uint64_t first = index * _settings.maxFriendsPerGroup();
  for (std::uint64_t slot = first; slot < first + _settings.maxFriendsPerGroup(); ++slot)
    group.push_back(_friendList.at(slot));
  return group;
}

bool PLFriendsManager::_canAddFriendGroup() const { return _friendGroups.size() < _settings.maxFriendGroups(); }

bool PLFriendsManager::_shouldAddEmptyGroup() const {
  if (_friendGroups.empty()) return true;
  if (_canAddFriendGroup() && _friendGroups.back()->count() > 0) return _settings.shouldAddEmptyTrailingGroup();
  return false;
}

// The new group shows the slots that the list has at its place already: friends that no group showed come to light.
void PLFriendsManager::_addEmptyGroup() {
  const std::uint64_t index = _friendGroups.size();
  _appendGroup();
  while (_friendList.count() < (index + 1) * _settings.maxFriendsPerGroup()) _friendList.append(EmptySlot);
  _showSlots(index);
  _postGroupListChangedNotification();
}

// Of what groups are given only this is known to be what the list has.
void PLFriendsManager::_showSlots(std::uint64_t groupIndex) {
  const std::uint64_t& assignments = _process.local<PLUnreportedAssignments>().count;
  const bool wasLaidOut = assignments == _laidOutAssignments;
  _friendGroups[groupIndex]->setFriends(_slotsOfGroup(groupIndex));
  if (wasLaidOut) _laidOutAssignments = assignments;
  _firstGroupThatMayHaveRoom = std::min(_firstGroupThatMayHaveRoom, groupIndex);
}

// A group shows its slots as long as they are the same and nobody gave it others without a report.
void PLFriendsManager::_showChangedSlots(std::uint64_t firstNewGroup) {
  const std::uint64_t& assignments = _process.local<PLUnreportedAssignments>().count;
  const PLSlotSnapshot slots = _friendList.snapshot();
  std::vector<bool> isDue(_friendGroups.size(), assignments != _laidOutAssignments);
  std::fill(isDue.begin() + static_cast<std::ptrdiff_t>(firstNewGroup), isDue.end(), true);
  slots.forEachDifferingChunk(_laidOutList, [&](std::uint64_t chunk) {
    const std::uint64_t last = ((chunk + 1) * PLSlotSnapshot::ChunkSize - 1) / _settings.maxFriendsPerGroup();
    for (auto index = chunk * PLSlotSnapshot::ChunkSize / _settings.maxFriendsPerGroup();
         index <= last && index < isDue.size(); ++index) {
      isDue[index] = true;
    }
  });
  for (std::uint64_t index = 0; index < isDue.size(); ++index) {
    if (isDue[index]) _showSlots(index);
  }
  _laidOutList = slots;
  _laidOutAssignments = assignments;
  checkSkip("groups that are not laid out again to show their slots", [this] { return _doGroupsShowTheirSlots(); });
}

bool PLFriendsManager::_doGroupsShowTheirSlots() const {
  for (std::uint64_t index = 0; index < _friendGroups.size(); ++index) {
    if (_friendGroups[index]->friends() != _slotsOfGroup(index)) return false;
  }
  return true;
}

bool PLFriendsManager::_arePassedOverGroupsFull() const {
  const std::uint64_t count = std::min<std::uint64_t>(_firstGroupThatMayHaveRoom, _friendGroups.size());
  return std::ranges::all_of(std::span(_friendGroups).first(count), [](const auto& group) { return group->isFull(); });
}

void PLFriendsManager::_updateFriendGroups() {
  const std::uint64_t wanted =
      std::min(_friendList.count() / _settings.maxFriendsPerGroup(), _settings.maxFriendGroups());
  const bool removesGroups = _friendGroups.size() > wanted;
  _forgetGroupsFrom(wanted);
  const std::uint64_t firstNewGroup = _friendGroups.size();
  while (_friendGroups.size() < wanted) _appendGroup();
  _showChangedSlots(firstNewGroup);
  // Groups that were only appended are not announced.
  if (_shouldAddEmptyGroup()) {
    _addEmptyGroup();
  } else if (removesGroups) {
    _postGroupListChangedNotification();
  }
}

void PLFriendsManager::_removeGroupAtIndex(std::uint64_t index) {
  if (index >= _friendGroups.size()) return;
  _titlesMoved = _titlesMoved || _hasTitles();
  const auto removed = _friendGroups[index];
  removed->setDelegate({});
  _groupIndexes.erase(removed.get());
  _friendGroups.erase(_friendGroups.begin() + static_cast<std::ptrdiff_t>(index));
  _pages.erase(_pages.begin() + static_cast<std::ptrdiff_t>(index));
  _publishedPages = nullptr;
  for (std::uint64_t later = index; later < _friendGroups.size(); ++later) {
    _groupIndexes[_friendGroups[later].get()] = later;
  }
  _firstGroupThatMayHaveRoom = std::min(_firstGroupThatMayHaveRoom, index);
  _friendList.remove(index * _settings.maxFriendsPerGroup(), _settings.maxFriendsPerGroup());
  _postGroupListChangedNotification();
}

void PLFriendsManager::_postGroupListChangedNotification() {
  Process& process = _process;
  process.mainQueue().async([&process] {
    process.notificationCenter().post({std::string(PLFriendsManagerGroupListChanged), nullptr, {}});
  });
  _tallyLogFriendGroupCount();
}

void PLFriendsManager::purgeEmptyFriendGroups() {
  checkMainQueue(_process, "purgeEmptyFriendGroups");
  if (_friendGroups.size() < 2) return;
  const auto groupCount = _friendGroups.size();
  // The last group is spared: it is the one that new friends are dropped into.
  for (std::uint64_t next = groupCount - 1; next > 0; --next) {
    if (_friendGroups[next - 1]->count() == 0) _removeGroupAtIndex(next - 1);
  }
  if (_friendGroups.size() == groupCount) return;
  _markLayoutChanged();
  save();
  _checkInvariants();
}

void PLFriendsManager::syncFriendGroup(const std::shared_ptr<PLFriendGroup>& group) {
  checkMainQueue(_process, "syncFriendGroup");
  const auto groupIndex = _indexOfGroup(*group);
  if (!groupIndex) return;
  const std::vector<Slot> friends = group->friends();
  bool differs = false;
  for (std::uint64_t position = 0; position < std::min(_settings.maxFriendsPerGroup(), friends.size()); ++position) {
    const std::uint64_t index = *groupIndex * _settings.maxFriendsPerGroup() + position;
    if (_friendList.at(index) == friends[position]) continue;
    _friendList.set(index, friends[position]);
    differs = true;
    if (friends[position] == EmptySlot) continue;
    _PLGetLogSystem().log("%@ was moved to position %u in group %u", redactable(friends[position]->description()),
                          position, *groupIndex);
  }
  _firstGroupThatMayHaveRoom = std::min(_firstGroupThatMayHaveRoom, *groupIndex);
  // Before the save, which takes the new group's slots along.
  if (_shouldAddEmptyGroup()) _addEmptyGroup();
  if (differs) _markLayoutChanged();
  if (_writer->needsFriendListSync()) save();
  _checkInvariants();
}

void PLFriendsManager::friendGroupDidSetFriendAtPosition(const std::shared_ptr<PLFriendGroup>& group,
                                                         const std::shared_ptr<PLPerson>& person,
                                                         std::uint64_t position) {
  checkMainQueue(_process, "friendGroupDidSetFriendAtPosition");
  const std::uint64_t index = _indexForPositionInGroup(position, *group);
  if (index >= _friendList.count()) return;
  const auto heldPerson = person;
  _friendList.set(index, heldPerson);
  _sourcedPersons.remove(heldPerson.get());
  _pendingChanges->_addEntryToChangeLogForPersonChangeType(heldPerson, PLFriendsManagerPersonAdded);
  if (_shouldAddEmptyGroup()) _addEmptyGroup();
  _markLayoutChanged();
  _postChangeNotificationIfNecessary();
  save();
  _checkInvariants();
}

void PLFriendsManager::friendGroupDidRemoveFriendAtPosition(const std::shared_ptr<PLFriendGroup>& group,
                                                            const std::shared_ptr<PLPerson>& person,
                                                            std::uint64_t position) {
  checkMainQueue(_process, "friendGroupDidRemoveFriendAtPosition");
  const std::uint64_t index = _indexForPositionInGroup(position, *group);
  if (index >= _friendList.count()) return;
  const auto heldGroup = group;
  const auto heldPerson = person;
  const std::uint64_t groupIndex = index / _settings.maxFriendsPerGroup();
  _friendList.set(index, EmptySlot);
  _firstGroupThatMayHaveRoom = std::min(_firstGroupThatMayHaveRoom, groupIndex);
  if (heldPerson) {
    _pendingChanges->_addEntryToChangeLogForPersonChangeType(heldPerson, PLFriendsManagerPersonDeleted);
    _removePersonFromIdentifiersToPersonMap(*heldPerson);
    // A single group stays, empty: it is the only place for friends.
    if (heldGroup->count() == 0 && _settings.maxFriendGroups() >= 2) _removeGroupAtIndex(groupIndex);
  }
  _markLayoutChanged();
  if (heldPerson) _postChangeNotificationIfNecessary();
  save();
  _checkInvariants();
}

void PLFriendsManager::friendGroupDidMoveFriends(const std::shared_ptr<PLFriendGroup>& group,
                                                 const std::vector<std::shared_ptr<PLPerson>>& friends) {
  checkMainQueue(_process, "friendGroupDidMoveFriends");
  const auto groupIndex = _indexOfGroup(*group);
  if (!groupIndex) return;
  const std::vector<Slot> content = group->friends();
  for (std::uint64_t position = 0; position < std::min(_settings.maxFriendsPerGroup(), content.size()); ++position) {
    _friendList.set(*groupIndex * _settings.maxFriendsPerGroup() + position, content[position]);
  }
  _firstGroupThatMayHaveRoom = std::min(_firstGroupThatMayHaveRoom, *groupIndex);
  _markLayoutChanged();
  for (const auto& person : friends)
    _pendingChanges->_addEntryToChangeLogForPersonChangeType(person, PLFriendsManagerPersonMoved);
  _postChangeNotificationIfNecessary();
}

// Full groups are passed over once: a later look starts where the last one found room, or where room has come since.
std::shared_ptr<PLFriendGroup> PLFriendsManager::_firstGroupWithRoom() const {
  checkSkip("groups that are passed over to have no room", [this] { return _arePassedOverGroupsFull(); });
  while (_firstGroupThatMayHaveRoom < _friendGroups.size()) {
    const auto& group = _friendGroups[_firstGroupThatMayHaveRoom];
    if (!group->isFull()) return group;
    ++_firstGroupThatMayHaveRoom;
  }
  return nullptr;
}

bool PLFriendsManager::addFriend(const std::shared_ptr<PLPerson>& person) {
  checkMainQueue(_process, "addFriend");
  if (!person) return false;
  const auto group = _firstGroupWithRoom();
  if (!group) return false;
  std::uint32_t error = PLFriendGroupErrorNone;
  group->addFriend(person, error);
  return error == PLFriendGroupErrorNone;
}

bool PLFriendsManager::canAddFriend() const {
  checkMainQueue(_process, "canAddFriend");
  if (_canAddFriendGroup()) return _didCompleteInitialLoading;
  return _firstGroupWithRoom() != nullptr;
}

bool PLFriendsManager::isPersonFriend(const std::shared_ptr<PLPerson>& person) const {
  checkMainQueue(_process, "isPersonFriend");
  return person && _friendList.indexOf(person.get());
}

std::uint64_t PLFriendsManager::positionOfFriendInGroup(const std::shared_ptr<PLPerson>& person) const {
  checkMainQueue(_process, "positionOfFriendInGroup");
  const auto index = person ? _friendList.indexOf(person.get()) : std::nullopt;
  return index ? *index % _settings.maxFriendsPerGroup() : static_cast<std::uint64_t>(NotFound);
}

std::uint64_t PLFriendsManager::groupIndexContainingFriend(const std::shared_ptr<PLPerson>& person) const {
  checkMainQueue(_process, "groupIndexContainingFriend");
  const auto index = person ? _friendList.indexOf(person.get()) : std::nullopt;
  if (!index) return 1;
  return static_cast<std::uint64_t>(
      std::floor(static_cast<float>(*index) / static_cast<float>(_settings.maxFriendsPerGroup())));
}

// Of a group that this manager does not hold the index lies beyond every list.
std::uint64_t PLFriendsManager::_indexForPositionInGroup(std::uint64_t position, const PLFriendGroup& group) const {
  const auto groupIndex = _indexOfGroup(group);
  if (!groupIndex || position >= _settings.maxFriendsPerGroup()) return std::numeric_limits<std::uint64_t>::max();
  return slotIndex(*groupIndex, _settings.maxFriendsPerGroup(), position);
}

std::shared_ptr<PLPerson> PLFriendsManager::_friendAtPosition(std::uint64_t index) const {
  return index < _friendList.count() ? _friendList.at(index) : nullptr;
}

std::uint64_t PLFriendsManager::_slotCapacity() const {
  return saturatingProduct(_settings.maxFriendGroups(), _settings.maxFriendsPerGroup());
}

std::uint64_t PLFriendsManager::_firstEmptyPosition() const {
  return _friendList.firstEmptyIndex().value_or(static_cast<std::uint64_t>(NotFound));
}

std::uint64_t PLFriendsManager::_numberOfFriendsInList(const PLSlotList& list) const { return list.occupiedCount(); }

// --- 3  Indexes and lookup -----------------------------------------------------------------------------------------

void PLFriendsManager::_addPersonToIdentifiersToPersonMap(const std::shared_ptr<PLPerson>& person) {
  _identifiersToPersonMap.add(person);
}

void PLFriendsManager::_removePersonFromIdentifiersToPersonMap(const PLPerson& person) {
  _identifiersToPersonMap.remove(person);
}

// Sourced persons come last, so that they win a key that they share with a friend.
void PLFriendsManager::_createAddressToPersonDictionary() { _identifiersToPersonMap.rebuild(_sourcedPersons); }

void PLFriendsManager::_storeSourcedPerson(const std::shared_ptr<PLPerson>& person) {
  if (!_sourcedPersons.contains(person.get())) _sourcedPersons.append(person);
  _addPersonToIdentifiersToPersonMap(person);
}

// Some may be friends by now, who wait like others while most of the contacts are gone.
void PLFriendsManager::_lookUpAgain() {
  if (_unreadLookUps.isEmpty()) return;
  AddressBookStore& store = *platformOf(_process).addressBook;
  store.performWithAddressBook([&](AddressBook& addressBook) {
    if (!store.contactsFall()) _unreadLookUps.lookUpAgain(addressBook);
  });
}

std::shared_ptr<PLPerson> PLFriendsManager::_personUnder(const std::string& destination) const {
  std::string room;
  const auto canonical = plSanitizedDestination(destination, room);
  return canonical ? _identifiersToPersonMap.personFor(*canonical) : nullptr;
}

std::shared_ptr<PLPerson> PLFriendsManager::personWithDestinations(const std::vector<std::string>& destinations) {
  checkMainQueue(_process, "personWithDestinations");
  _lookUpAgain();
  // For one destination, as most callers have, no sets are made.
  if (destinations.size() == 1) {
    if (auto known = _personUnder(destinations.front())) return known;
  }
  const DestinationSet canonical = plSanitizedDestinationSet(std::span(destinations));
  if (auto known = _identifiersToPersonMap.firstPersonFor(canonical)) return known;
  std::shared_ptr<PLPerson> person;
  platformOf(_process).addressBook->performWithAddressBook([&](AddressBook& addressBook) {
    person = PLPerson::initWithDestinationsAddressBook({canonical.begin(), canonical.end()}, &addressBook);
    _unreadLookUps.note(person, addressBook);
  });
  if (person) _storeSourcedPerson(person);
  return person;
}

std::shared_ptr<PLPerson> PLFriendsManager::personWithABRecordGUID(const std::string& guid) {
  checkMainQueue(_process, "personWithABRecordGUID");
  _lookUpAgain();
  if (auto known = _identifiersToPersonMap.personFor(guid)) return known;
  std::shared_ptr<PLPerson> person;
  platformOf(_process).addressBook->performWithAddressBook([&](AddressBook& addressBook) {
    person = PLPerson::initWithABRecordGUIDAddressBook(guid, &addressBook);
    _unreadLookUps.note(person, addressBook);
  });
  if (person) _storeSourcedPerson(person);
  return person;
}

// The list itself is asked: in the identifier map a looked-up person may stand in a friend's place.
bool PLFriendsManager::containsFriendWithABRecordGUID(const std::optional<std::string>& guid) const {
  checkMainQueue(_process, "containsFriendWithABRecordGUID");
  return guid && _friendList.people().containsGUID(*guid);
}

std::shared_ptr<PLPerson> PLFriendsManager::personLikePerson(const std::shared_ptr<PLPerson>& person) const {
  checkMainQueue(_process, "personLikePerson");
  return person ? _friendList.firstLike(*person) : nullptr;
}

std::vector<std::shared_ptr<PLPerson>> PLFriendsManager::allPeople() const {
  checkMainQueue(_process, "allPeople");
  return _identifiersToPersonMap.allPersons();
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
    self->_tallyLogFriendCount();
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

void PLFriendsManager::forEachFriend(const std::function<void(const PLPerson&)>& visit) const {
  for (std::uint64_t index = 0; index < _friendList.count(); ++index) {
    if (const Slot& slot = _friendList.at(index)) visit(*slot);
  }
}

void PLFriendsManager::statusesWereUpdated(const DestinationStatuses& statuses) {
  postOnMainQueue(_process, PLFriendsManagerDestinationStatusUpdatedNotification, weak_from_this(),
                  Dictionary{{std::string(PLFriendsManagerDestinationStatusUpdatedDestinationsKey),
                              destinationStatusNumbers(statuses)}});
}

void PLFriendsManager::unreachableFriendsWereCounted(std::int64_t count) {
  _tallySetValueForScalarKey(count, prefixed(".tn.unreachableFriends.count"));
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
    auto self = weak.lock();
    if (!self) return;
    // Also while the timer is set: a refresh may have run since.
    self->_needsAddressBookRefresh = true;
    if (self->_addressBookRefreshTimer && self->_addressBookRefreshTimer->isValid()) return;
    self->_addressBookRefreshTimer =
        Timer::after(self->_process.mainQueue(), kAddressBookRefreshDelay, [weak] { _followAddressBook(weak); });
  });
}

// What had to wait for contacts that could not be read, too.
void PLFriendsManager::_followAddressBook(const std::weak_ptr<PLFriendsManager>& manager) {
  const auto self = manager.lock();
  if (!self) return;
  self->refreshAgainstAddressBook();
  self->_lookUpAgain();
  self->_bringFavoritesIfDue();
}

bool PLFriendsManager::refreshAgainstAddressBook() {
  checkMainQueue(_process, "refreshAgainstAddressBook");
  if (!_didCompleteInitialLoading) return false;
  const bool isDue = _needsAddressBookRefresh || _addressBookSequenceNumberDidChange();
  if (!isDue || !_refreshAgainstContactsEnabled) return false;
  bool didRefresh = false;
  platformOf(_process).addressBook->performWithAddressBook([&](AddressBook& addressBook) {
    didRefresh = addressBook.isReadable() && !_heldRefresh.holdsBack() && _refreshFriends(addressBook);
  });
  if (!didRefresh) return false;
  _cleanUpFriendListIfNecessary();
  _postChangeNotificationIfNecessary();
  _needsAddressBookRefresh = false;
  _checkInvariants();
  return true;
}

// A friend whom another look would change nothing of is passed over. Whether all could be looked up. The number is
// taken over only then, so that a refresh that was cut short stays due.
bool PLFriendsManager::_refreshFriends(AddressBook& addressBook) {
  _PLGetLogSystem().log("refreshing friends against address book");
  // Read before the records: what another process changes meanwhile is due after this refresh.
  const std::int32_t number = addressBook.sequenceNumber();
  _reconciledFriends.begin(*platformOf(_process).addressBook, addressBook, _friendList.count());
  const std::vector<std::uint64_t> indices = _indicesOfFriendsToRefresh(addressBook);
  for (std::size_t first = 0; first < indices.size(); first += kFriendsReadAtOnce) {
    const std::size_t count = std::min(kFriendsReadAtOnce, indices.size() - first);
    _refreshFriendsAtIndices(std::span(indices).subspan(first, count), addressBook);
  }
  const bool isComplete = addressBook.isReadable();
  _reconciledFriends.end(isComplete);
  if (!isComplete) return false;
  _updateLastKnownAddressBookSequenceNumber(number);
  _heldRefresh.noteRefresh();
  return true;
}

std::vector<std::uint64_t> PLFriendsManager::_indicesOfFriendsToRefresh(AddressBook& addressBook) {
  std::vector<std::uint64_t> indices;
  for (std::uint64_t index = 0; index < _friendList.count(); ++index) {
    const auto person = _friendAtPosition(index);
    if (person && !_reconciledFriends.passOver(index, *person, addressBook)) indices.push_back(index);
  }
  return indices;
}

void PLFriendsManager::_refreshFriendsAtIndices(std::span<const std::uint64_t> indices, AddressBook& addressBook) {
  std::vector<std::string_view> guids;
  for (const std::uint64_t index : indices) {
    const std::string_view guid = _friendAtPosition(index)->record().identifyingGUID();
    if (!guid.empty()) guids.push_back(guid);
  }
  addressBook.withPeopleMatchingGUIDs(guids, [&] {
    for (const std::uint64_t index : indices) {
      const auto person = _friendAtPosition(index);
      person->refreshWithAddressBook(&addressBook);
      _reconciledFriends.note(index, *person);
    }
  });
}

void PLFriendsManager::setRefreshAgainstContactsEnabled(bool enabled) {
  checkMainQueue(_process, "setRefreshAgainstContactsEnabled");
  _refreshSettingIsReplaced = _refreshSettingIsReplaced || !_didCompleteInitialLoading;
  if (enabled == _refreshAgainstContactsEnabled) return;
  _refreshAgainstContactsEnabled = enabled;
  if (enabled) refreshAgainstAddressBook();
}

// Absent when the store cannot be read: then nobody knows whether the contacts changed, and nothing is written.
std::optional<std::int32_t> PLFriendsManager::_lastKnownAddressBookSequenceNumber() {
  if (_ownSequenceNumber) return _ownSequenceNumber;
  preferencesOf(_process).synchronize(_domain);
  const auto answer = preferencesOf(_process).integerValue(PLAddressBookSequenceNumberKey, _domain);
  if (!answer.isReadable()) return std::nullopt;
  return static_cast<std::int32_t>(answer.value().value_or(0));
}

// It goes out with the list that the refresh changed: stored before it, others would take the list for refreshed.
void PLFriendsManager::_updateLastKnownAddressBookSequenceNumber(std::int32_t number) {
  const auto known = _lastKnownAddressBookSequenceNumber();
  if (!known || *known == number) return;
  _ownSequenceNumber = number;
  _writer->keepSequenceNumber(number);
}

bool PLFriendsManager::_addressBookSequenceNumberDidChange() {
  bool didChange = false;
  platformOf(_process).addressBook->performWithAddressBook([&](AddressBook& addressBook) {
    const auto known = _lastKnownAddressBookSequenceNumber();
    const std::int32_t number = addressBook.sequenceNumber();
    didChange = known && *known != number && addressBook.isReadable();
  });
  return didChange;
}

void PLFriendsManager::_updateFriends(const PLStoredList& stored, const PLMergeResult* merged) {
  AddressBookStore& store = *platformOf(_process).addressBook;
  const auto known = _writer->base();
  static const PLBaseline nothing;
  store.performWithAddressBook([&](AddressBook& shared) {
    // A shared handle without a database cannot name the records that stored friends belong to.
    const auto ownHandle = shared.databaseUID() ? nullptr : store.openPrivateAddressBook();
    auto result = _takeover._updateFriends(stored, merged, known ? *known : nothing,
                                           ownHandle ? ownHandle.get() : &shared, _settings.maxFriendsPerGroup());
    _pendingChanges->addChanges(std::move(result.changes));
    _newBaseline = std::move(result.base);
    save();
  });
  // A refresh that is due already, perhaps for as long as refreshing is disabled, stays due.
  if (_pendingChanges->_changeLogContainsFriendAdditionsOrUpdates()) _needsAddressBookRefresh = true;
}

void PLFriendsManager::_cleanUpFriendListIfNecessary() {
  _deduplicateFriendListIfNecessary();
  _removeDestinationlessFriendsIfNecessary();
  save();
}

void PLFriendsManager::_deduplicateFriendListIfNecessary() {
  const bool mayHaveRepeated =
      _friendList.people().sharedGUIDCount() != 0 || _friendList.people().places().repeatedPersonCount() != 0;
  if (!_settings.shouldDeduplicateFriendList() || !(mayHaveRepeated || areSkipsChecked())) return;
  std::set<std::string> seen;
  std::vector<std::uint64_t> repeated;
  for (std::uint64_t index = 0; index < _friendList.count(); ++index) {
    const auto person = _friendAtPosition(index);
    const auto guid = person ? person->abRecordGUID() : std::nullopt;
    if (!guid || guid->empty() || seen.insert(*guid).second) continue;
    repeated.push_back(index);
    _PLGetLogSystem().log(
        "deduplicating friend [%@] [ABGUID=%@] at index %lu as it is already present in the set of friend ABGUIDs "
        "analyzed so far: %@",
        redactable(person->displayName()), guid, index, seen);
  }
  require(mayHaveRepeated || repeated.empty(), "nobody twice in a list that is not deduplicated");
  _removeFriendsAtIndices(repeated);
}

void PLFriendsManager::_removeDestinationlessFriendsIfNecessary() {
  const bool mayHaveUnreachable = _friendList.people().destinationlessPersonCount() != 0;
  if (!_settings.shouldRemoveDestinationlessFriends() || !(mayHaveUnreachable || areSkipsChecked())) return;
  std::vector<std::uint64_t> unreachable;
  for (std::uint64_t index = 0; index < _friendList.count(); ++index) {
    const auto person = _friendAtPosition(index);
    if (!person || person->allValuesCount() != 0) continue;
    unreachable.push_back(index);
    _PLGetLogSystem().log("culling friend [%@] [ABGUID=%@] since its destination set has become empty",
                          redactable(person->displayName()), person->abRecordGUID());
  }
  require(mayHaveUnreachable || unreachable.empty(), "destinations of everybody in a list that is not culled");
  _removeFriendsAtIndices(unreachable);
}

// `indices`, ascending, name slots of the list as it is on entry. A group that empties vanishes with its slots, and the
// later slots move down by that much.
void PLFriendsManager::_removeFriendsAtIndices(const std::vector<std::uint64_t>& indices) {
  std::uint64_t vanished = 0;
  for (const std::uint64_t named : indices) {
    const std::uint64_t index = named - vanished;
    const auto person = _friendAtPosition(index);
    _pendingChanges->_addEntryToChangeLogForPersonChangeType(person, PLFriendsManagerPersonDeleted);
    const std::uint64_t groupIndex = index / _settings.maxFriendsPerGroup();
    if (groupIndex >= _friendGroups.size()) continue;
    const auto group = _friendGroups[groupIndex];
    _takeover.noteAutomaticRemoval(person);
    group->removeFriendAtPosition(index % _settings.maxFriendsPerGroup());
    if (!_indexOfGroup(*group)) vanished += _settings.maxFriendsPerGroup();
  }
}

// --- Invariants ----------------------------------------------------------------------------------------------------

// A look at all slots for each of many edits would make them take as many times as long as there are slots: of a long
// list some edits are checked, as many as keep it in proportion.
void PLFriendsManager::_checkInvariants() const {
  if constexpr (kChecksInvariants) {
    constexpr std::uint64_t slotsCheckedEachTime = 1024;
    if (_friendList.occupiedCount() % (1 + _friendList.count() / slotsCheckedEachTime) != 0) return;
    if (const auto violation = _indexViolation()) fatal(*violation);
  }
}

// The part that holds even while a group waits to be synchronised.
std::optional<std::string> PLFriendsManager::_indexViolation() const {
  if (_groupIndexes.size() != _friendGroups.size()) return "one index entry per group";
  if (_pages.size() != _friendGroups.size()) return "one page per group";
  for (std::uint64_t index = 0; index < _friendGroups.size(); ++index) {
    if (_indexOfGroup(*_friendGroups[index]) != index) return "every group known by its place";
    if (_friendGroups[index]->delegate().get() != static_cast<const PLFriendGroupDelegate*>(this)) {
      return "every group reporting to its manager";
    }
  }
  if (_friendList.count() < saturatingProduct(_friendGroups.size(), _settings.maxFriendsPerGroup()))
    return "slots for every group";
  std::uint64_t occupied = 0;
  for (std::uint64_t index = 0; index < _friendList.count(); ++index) {
    const Slot& person = _friendList.at(index);
    if (person == EmptySlot) continue;
    ++occupied;
    if (_friendList.indexOf(person.get(), index) != index) return "every friend found in its slot";
  }
  if (occupied != _numberOfFriendsInList(_friendList)) return "the number of friends counted";
  const std::uint64_t firstEmpty = _firstEmptyPosition();
  if (firstEmpty < _friendList.count() && _friendList.at(firstEmpty) != EmptySlot) return "the first empty slot empty";
  return std::nullopt;
}

std::optional<std::string> PLFriendsManager::invariantViolation() const {
  if (auto violation = _indexViolation()) return violation;
  if (!_doGroupsShowTheirSlots()) return "group and list with the same slots";
  if (!_arePassedOverGroupsFull()) return "no room in the groups passed over";
  return std::nullopt;
}

}  // namespace pellor
