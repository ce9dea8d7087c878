#include "Pellor/PLFriendsManager.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "Pellor/PLBundle.h"
#include "Pellor/PLDestination.h"
#include "Pellor/PLMainQueueCheck.h"
#include "Pellor/PLPersonIdentityChanges.h"
#include "Pellor/PLPosting.h"
#include "Pellor/PLSkipChecks.h"
#include "Pellor/PLSlotRearrangement.h"
#include "runtime/Fatal.h"

namespace pellor {
namespace {

#ifdef PELLOR_CHECK_INVARIANTS
constexpr bool kChecksInvariants = true;
#else
constexpr bool kChecksInvariants = false;
#endif

constexpr std::string_view kAddressBookSequenceNumberKey = "ABSequenceNumber";
constexpr std::int64_t kLargestGroupSize = 65536;
constexpr std::uint64_t kDefaultGroupSize = 12;
constexpr std::uint64_t kDefaultGroupCount = 20;

constexpr double kSaveDelay = 0.1;
constexpr double kAddressBookRefreshDelay = 0.2;
// How many friends' records are in memory at once during a refresh.
constexpr std::size_t kFriendsReadAtOnce = 1000;
constexpr double kDefaultAnswerDelay = 5.0;
constexpr double kRelayQueryTimeout = 30.0;
// A store that fails is asked again after pauses that double from the first to the longest of these, in seconds.
constexpr double kFirstRetryPause = 0.1;
constexpr double kLongestRetryPause = 60;

std::uint64_t saturatingProduct(std::uint64_t left, std::uint64_t right) {
  if (right != 0 && left > std::numeric_limits<std::uint64_t>::max() / right) {
    return std::numeric_limits<std::uint64_t>::max();
  }
  return left * right;
}

double longerPause(double pause) { return std::min(pause * 2, kLongestRetryPause); }

PreferencesStore& preferencesOf(Process& process) { return *platformOf(process).preferences; }

std::string prefixed(std::string_view name) { return std::string(PLVendorPrefix) + std::string(name); }

// The text of a format with one %u, filled in.
std::string filledIn(std::string format, std::uint64_t number) {
  const auto place = format.find("%u");
  return place == std::string::npos ? format : format.replace(place, 2, std::to_string(number));
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
  PreferencesStore& preferences = preferencesOf(Process::current());
  preferences.setValue(key, std::move(value), domain);
  return preferences.synchronize(domain);
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
      _preferencesSyncManager(platformOf(process).preferencesSync),
      _saveQueue(SerialQueue::make(prefixed(".Pellor.PLFriendsManager.Save"))),
      _changeLogQueue(ConcurrentQueue::make(prefixed(".Pellor.PLFriendsManager.ChangeLog"))),
      _identifiersToPersonMap(_friendList.people()),
      _loadRetryPause(kFirstRetryPause),
      _touchedLeaves(process.local<PLPersonChanges>()),
      _saveRetryPause(kFirstRetryPause) {
  _publishedList.store(std::make_shared<const PLSlotSnapshot>(_friendList.snapshot()));
  _process.addSettleParticipant(*this);
}

PLFriendsManager::~PLFriendsManager() {
  _observations.clear();
  if (_observesBus) {
    SystemNotifyBus& bus = *platformOf(_process).notifyBus;
    bus.removeObserver(this, _friendsChangedExternallyNotificationName);
    bus.removeObserver(&_friendGroupTitleChangedExternallyNotificationName,
                       _friendGroupTitleChangedExternallyNotificationName);
  }
  _process.removeSettleParticipant(*this);
}

void PLFriendsManager::_observe() {
  std::weak_ptr<PLFriendsManager> weak = weak_from_this();
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
                    _friendsChangedExternallyNotificationName);
    // Another observer, so that both are called when the domain gives both the same name.
    bus.addObserver(&_friendGroupTitleChangedExternallyNotificationName,
                    whenPosted(&PLFriendsManager::_groupTitleChangedExternally),
                    _friendGroupTitleChangedExternallyNotificationName);
    _observesBus = true;
  }
  _loadFriendList();
}

namespace {

// Reads settings and remembers whether each of them could be read.
class SettingsReader {
 public:
  SettingsReader(PreferencesStore& preferences, const std::string& domain)
      : _preferences(preferences), _domain(domain) {}

  std::optional<std::int64_t> integer(std::string_view key) { return noted(_preferences.integerValue(key, _domain)); }
  bool boolean(std::string_view key, bool absent) {
    return noted(_preferences.booleanValue(key, _domain)).value_or(absent);
  }
  std::string name(std::string_view key, std::string_view absent) {
    auto value = noted(_preferences.copyValue(key, _domain));
    const std::string* text = value ? value->string() : nullptr;
    return text && !text->empty() ? *text : std::string(absent);
  }
  bool couldReadAll() const { return _couldReadAll; }

 private:
  template <class T>
  std::optional<T> noted(const PreferenceAnswer<T>& answer) {
    _couldReadAll = _couldReadAll && answer.isReadable();
    return answer.value();
  }

  PreferencesStore& _preferences;
  const std::string& _domain;
  bool _couldReadAll = true;
};

}  // namespace

bool PLFriendsManager::_readSettings() {
  SettingsReader settings(preferencesOf(_process), _domain);
  const auto groupCount = settings.integer(PLMaxGroupCountKey);
  const auto groupSize = settings.integer(PLGroupSizeKey);
  _maxFriendGroups = groupCount ? static_cast<std::uint64_t>(*groupCount) : kDefaultGroupCount;
  _shouldAddEmptyTrailingGroup = settings.boolean(PLEmptyTrailingGroupEnabledKey, true);
  _friendsChangedExternallyNotificationName =
      settings.name(PLFriendsChangedExternallyNotificationKey, PLFriendsChangedExternallyNotification);
  _friendGroupTitleChangedExternallyNotificationName = settings.name(PLFriendGroupTitleChangedExternallyNotificationKey,
                                                                     PLFriendGroupTitleChangedExternallyNotification);
  _shouldDeduplicateFriendList = settings.boolean(PLDeduplicateFriendListEnabledKey, true);
  // The one boolean that is off when absent: removing friends has to be asked for.
  _shouldRemoveDestinationlessFriends = settings.boolean(PLRemoveDestinationlessFriendsEnabledKey, false);
  _refreshAgainstContactsEnabled = settings.boolean(PLRefreshAgainstContactsOnInitEnabledKey, true);
  if (!settings.couldReadAll()) return false;
  const bool isUsable = groupSize && *groupSize >= 1 && *groupSize <= kLargestGroupSize;
  _maxFriendsPerGroup = isUsable ? static_cast<std::uint64_t>(*groupSize) : kDefaultGroupSize;
  if (groupSize && !isUsable) {
    _PLGetLogSystem().log("group size %d is not between 1 and %d, using %lu", *groupSize, kLargestGroupSize,
                          kDefaultGroupSize);
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
  preferencesOf(_process).synchronize(_domain);
  LongArray elements;
  const StoredList found = _copyStoredList(elements);
  if (found == StoredList::unreadable) {
    _storeIsUnreadable = true;
    _retryLoadLater();
    return;
  }
  _identifiersToPersonMap.beginRebuild();
  // Not before the store has answered: until then there are no groups to tell of.
  if (!_didCompleteInitialLoading) _createEmptyFriendList();
  const bool couldNotBeRead = _storeIsUnreadable.exchange(false);
  _loadRetryPause = kFirstRetryPause;
  _loadRetryTimer = nullptr;
  switch (found) {
    case StoredList::loaded:
    case StoredList::recovered:
      // Edits that waited for the store are not given up for what it has.
      if (couldNotBeRead && _hasUnsavedEdits()) break;
      _PLGetLogSystem().log("loaded friend list%@", _didCompleteInitialLoading ? "" : " for the first time");
      _updateFriends(elements);
      break;
    case StoredList::none:
      // The titles are likely to be gone as well.
      _titlesMoved = _didCompleteInitialLoading && _hasTitles();
      _didCompleteInitialLoading ? _markLayoutChanged() : _startFirstList();
      break;
    default:
      _didCompleteInitialLoading ? _markLayoutChanged() : _startListInPlaceOfDamaged();
      break;
  }
  // What came out of the store damaged, or not at all, goes back whole; and edits that waited for the store go out.
  if (found == StoredList::recovered) _markLayoutChanged();
  if (found != StoredList::loaded || couldNotBeRead) save();
  _finishLoad();
}

namespace {

std::optional<LongArray> longArrayIn(const Value& value) {
  if (const LongArray* array = value.longArray()) return *array;
  const Array* array = value.array();
  return array ? std::optional<LongArray>(*array) : std::nullopt;
}

}  // namespace

PLFriendsManager::StoredList PLFriendsManager::_copyStoredList(LongArray& elements) {
  const auto answer = preferencesOf(_process).copyValue(PLFriendListKey, _domain);
  if (!answer.isReadable()) return StoredList::unreadable;
  auto array = answer.value() ? longArrayIn(*answer.value()) : std::nullopt;
  if (answer.value() && !array) return _recoverStoredList(*answer.value(), elements);
  _damagedList.reset();
  if (!array) return StoredList::none;
  elements = *std::move(array);
  return StoredList::loaded;
}

// A list that is none is kept in a dated copy before anything may take its place.
PLFriendsManager::StoredList PLFriendsManager::_recoverStoredList(const Value& damaged, LongArray& elements) {
  if (_damagedList != damaged) {
    const PutAside aside = preferencesOf(_process).putAside(PLFriendListKey, _domain);
    if (!aside.kept) return StoredList::unreadable;
    _damagedList = damaged;
    _recoveredList = aside.lastGood;
    _PLGetLogSystem().log("stored friend list is damaged and was put aside, %@",
                          aside.lastGood ? "using its last good copy" : "there is no good copy of it");
  }
  auto lastGood = _recoveredList ? longArrayIn(*_recoveredList) : std::nullopt;
  if (!lastGood) return StoredList::damaged;
  elements = *std::move(lastGood);
  return StoredList::recovered;
}

void PLFriendsManager::_startFirstList() {
  _PLGetLogSystem().log("friend list does not yet exist, starting with an empty list");
  _createEmptyFriendList();
  if (_domain == TapnoteDomain) {
    markFriendListAsNormalized();
    _addCuratedFriends(_curatedFriendList());
  }
  _markLayoutChanged();
}

void PLFriendsManager::_startListInPlaceOfDamaged() {
  _createEmptyFriendList();
  _markLayoutChanged();
}

void PLFriendsManager::_finishLoad() {
  _updateFriendGroups();
  _lastLoadHadChanges = _changeLogCount() != 0;
  if (_didCompleteInitialLoading) {
    _PLGetLogSystem().log("friend list has%@ changes", _lastLoadHadChanges ? "" : " no");
    _loadGroupTitlesOfLaterLoad();
  } else {
    // Before the clean-up, which takes the titles along when it removes groups.
    _loadGroupTitles();
  }
  _didCompleteInitialLoading = true;
  if (!refreshAgainstAddressBook()) {
    _cleanUpFriendListIfNecessary();
    _postChangeNotificationIfNecessary();
  }
  _createAddressToPersonDictionary();
  _tallyLogFriendCount();
  _tallyLogFriendGroupCount();
}

void PLFriendsManager::_retryLoadLater() {
  std::weak_ptr<PLFriendsManager> weak = weak_from_this();
  _loadRetryTimer = Timer::after(_process.mainQueue(), _loadRetryPause, [weak] {
    if (auto self = weak.lock()) self->_loadAgain();
  });
  _loadRetryPause = longerPause(_loadRetryPause);
}

void PLFriendsManager::save() {
  checkMainQueue(_process, "save");
  _publishList();
  if (_mayHaveUnsavedChanges()) return _requestSave();
  // No thread is woken for nothing. What is marked behind this request, without one of its own, goes out with it.
  if (std::exchange(_saveIsDue, true)) return;
  _process.mainQueue().async([self = shared_from_this()] {
    self->_saveIsDue = false;
    if (self->_mayHaveUnsavedChanges()) self->_requestSave();
  });
}

// Whoever comes into the list with a flag comes by an edit, or is marked again as it comes. Asked last whether a save
// is under way: it has taken the flags, and may set them again.
bool PLFriendsManager::_mayHaveUnsavedChanges() const {
  const bool isMarked = _needsFriendListSync || _needsTitlesSync || _needsNormalizationMark ||
                        _savedMarks != _process.local<PLPersonChanges>().marks;
  return isMarked || _isSaving || _writeFailed || _storeIsUnreadable;
}

void PLFriendsManager::_requestSave() {
  _saveQueue->async([self = shared_from_this()] {
    self->_saveQueue->requireCurrent();
    if (self->_saveOperation) self->_saveOperation->invalidate();
    std::weak_ptr<PLFriendsManager> weak = self;
    self->setSaveOperation(PLDelayedOperation::initWithQueueDelayBlock(self->_saveQueue, kSaveDelay, [weak] {
      if (auto manager = weak.lock()) manager->_save();
    }));
    self->_saveOperation->execute();
  });
}

// What one save writes: the flags that it took, and the list as it was after they were taken.
struct PLFriendsManager::Write {
  bool layoutChanged = false;
  bool titlesChanged = false;
  bool marksNormalized = false;
  std::vector<std::shared_ptr<PLPerson>> persons;  // whose own changes it takes along
  std::shared_ptr<const PLSlotSnapshot> list;
  std::shared_ptr<const TitlesVersion> titles;
  std::uint64_t mergeCount = 0;
  std::uint64_t elsewhere = 0;  // touches of persons, counted before any flag was taken
  std::uint64_t changes = 0;    // of persons, counted before any of them was looked at and after its flag was taken
  bool knowsTouched = false;    // whether all of these are in leaves that were gathered

  bool writesList() const { return layoutChanged || titlesChanged || !persons.empty(); }
};

void PLFriendsManager::_save() {
  _saveQueue->requireCurrent();
  _isSaving = true;
  _writeUnsavedChanges();
  _isSaving = false;
}

void PLFriendsManager::_writeUnsavedChanges() {
  // The flags stay set: they go out after the store has been read again.
  if (_storeIsUnreadable) {
    _writeFailed = true;
    return;
  }
  Write write;
  if (!_takeUnsavedChanges(write)) {
    if (!write.knowsTouched || _touchedLeaves.isLong()) _touchedLeaves.beginAt(write.changes, write.elsewhere);
    _writeFailed = false;
    return;
  }
  if (!_perform(write)) {
    _keepUnsavedChanges(write);
    _retrySaveLater();
    return;
  }
  _writeFailed = false;
  _saveRetryPause = kFirstRetryPause;
  if (write.titlesChanged) _savedTitlesEdition = write.titles->edition;
  if (!write.writesList()) return;
  _touchedLeaves.beginAt(write.changes, write.elsewhere);
  _PLGetLogSystem().log("friend list saved");
  std::weak_ptr<PLFriendsManager> weak = weak_from_this();
  _process.mainQueue().async(
      [weak, titlesEdition = write.titlesChanged ? write.titles->edition : 0, mergeCount = write.mergeCount] {
        auto self = weak.lock();
        if (!self) return;
        self->_titlesWereWritten(titlesEdition);
        self->_damagedList.reset();
        self->_incrementExternalChangePostCount();
        platformOf(self->_process).notifyBus->post(self->_notificationForExternalListChange());
        // Another process's list was merged while this write was under way and went over it: everybody takes what was
        // written, this process too.
        if (mergeCount != self->_mergeCount) self->_loadFriendList();
      });
}

// Each flag is taken before what it stands for is read: a change that comes in between is written now, and once more by
// the save that it asks for, rather than never. False when there is nothing to write.
bool PLFriendsManager::_takeUnsavedChanges(Write& write) {
  write.layoutChanged = _needsFriendListSync.exchange(false, std::memory_order_acq_rel);
  write.titlesChanged = _needsTitlesSync.exchange(false, std::memory_order_acq_rel);
  write.marksNormalized = _needsNormalizationMark.exchange(false, std::memory_order_acq_rel);
  write.mergeCount = _mergeCount.load(std::memory_order_acquire);
  _touchedLeaves.gather();
  write.list = _publishedList.load();
  write.titles = _publishedTitles.load();
  _takeUnsavedPersons(write);
  // After the flags of the persons: what they stand for is counted then, and no stored form of before passes for
  // theirs.
  write.changes = _process.local<PLPersonChanges>().changes.load(std::memory_order_acquire);
  write.knowsTouched = _touchedLeaves.isComplete();
  return write.writesList() || write.marksNormalized;
}

// When it is known who was marked since the last save looked, only they and who came into the list since may carry a
// flag.
void PLFriendsManager::_takeUnsavedPersons(Write& write) {
  const auto takeFlag = [&](const Slot& person) {
    if (person != EmptySlot && person->needsSave() && person->takeNeedsSave()) write.persons.push_back(person);
  };
  const PLPersonChanges& changes = _process.local<PLPersonChanges>();
  write.elsewhere = changes.touches.countElsewhere();
  const std::uint64_t marks = changes.marks.load(std::memory_order_acquire);
  if (_savedList && (marks == _savedMarks || _touchedLeaves.isComplete())) {
    _touchedLeaves.visit(*write.list, *_savedList, takeFlag);
  } else {
    write.list->forEach(takeFlag);
  }
  _savedMarks = marks;
  _savedList = write.list;
}

void PLFriendsManager::_keepUnsavedChanges(const Write& write) {
  _writeFailed = true;
  for (const auto& person : write.persons) person->setNeedsSave(true);
  if (write.layoutChanged) _needsFriendListSync.store(true, std::memory_order_release);
  if (write.titlesChanged) _needsTitlesSync.store(true, std::memory_order_release);
  if (write.marksNormalized) _needsNormalizationMark.store(true, std::memory_order_release);
}

bool PLFriendsManager::_perform(const Write& write) {
  PreferencesStore& preferences = preferencesOf(_process);
  std::set<std::string> pushed;
  std::shared_ptr<PLStoredVersion> written;
  if (write.writesList()) {
    const auto known = _storedVersion.load();
    const auto* touched = known && write.knowsTouched ? _touchedLeaves.since(known->changes()) : nullptr;
    written = std::make_shared<PLStoredVersion>(
        PLStoredVersion::made(known ? *known : PLStoredVersion(), *write.list, write.changes, touched));
    preferences.setValue(PLFriendListKey, written->array(), _domain);
    // A write that only persons' own changes caused is not pushed to the paired device.
    if (write.layoutChanged || write.titlesChanged) pushed.emplace(PLFriendListKey);
  }
  if (write.titlesChanged) {
    preferences.setValue(PLGroupTitlesKey, write.titles->titles, _domain);
    pushed.emplace(PLGroupTitlesKey);
  }
  if (write.marksNormalized) {
    preferences.setValue(PLDidNormalizeFriendListDestinationsKey, true, _domain);
    pushed.emplace(PLDidNormalizeFriendListDestinationsKey);
  }
  if (!preferences.synchronize(_domain)) return false;
  if (written) _knowWritten(std::move(written));
  if (!pushed.empty() && _preferencesSyncManager->hasCompletedInitialSync()) {
    _preferencesSyncManager->synchronizeDomainKeys(_domain, pushed);
  }
  return true;
}

// The store keeps the list in a form of its own, which the next save builds on.
void PLFriendsManager::_knowWritten(std::shared_ptr<PLStoredVersion> written) {
  const auto stored = preferencesOf(_process).copyValue(PLFriendListKey, _domain).value();
  written->takeOver(stored && stored->longArray() ? *stored->longArray() : LongArray());
  _storedVersion.store(std::move(written));
}

void PLFriendsManager::_retrySaveLater() {
  std::weak_ptr<PLFriendsManager> weak = weak_from_this();
  _saveRetryTimer = Timer::after(*_saveQueue, _saveRetryPause, [weak] {
    if (auto self = weak.lock()) self->_save();
  });
  _saveRetryPause = longerPause(_saveRetryPause);
}

void PLFriendsManager::_incrementExternalChangePostCount() { ++_postCount; }

// The bus delivers each own post once, so that the count pairs posts with echoes.
void PLFriendsManager::_friendsChangedExternally() {
  if (_postCount > 0) {
    --_postCount;
    return;
  }
  _PLGetLogSystem().log("Handling external friends-changed event.");
  _loadAgain();
  _checkInvariants();
}

void PLFriendsManager::_groupTitleChangedExternally() {
  _PLGetLogSystem().log("Handling external group-title-changed event.");
  // Titles of this process that are on the way to the store are not given up for what it has until then.
  _titleLoadIsDue = _hasTitlesUnderWay();
  if (!_titleLoadIsDue) _loadGroupTitles();
}

void PLFriendsManager::_loadGroupTitles() {
  preferencesOf(_process).synchronize(_domain);
  const auto answer = preferencesOf(_process).copyValue(PLGroupTitlesKey, _domain);
  const Array* titles = answer.value() ? answer.value()->array() : nullptr;
  if (titles) _applyGroupTitles(*titles);
}

// Titles move with their pages when another process removes a page. They are taken from the store when it has others
// than this process knows of, and not while this process has titles of its own on the way there.
void PLFriendsManager::_loadGroupTitlesOfLaterLoad() {
  if (_hasTitlesUnderWay()) return;
  const auto answer = preferencesOf(_process).copyValue(PLGroupTitlesKey, _domain);
  const Array* titles = answer.value() ? answer.value()->array() : nullptr;
  if (!titles || _storedTitles == *titles) return;
  _dropTitlesFrom(titles->size());
  _applyGroupTitles(*titles);
}

// A group at the place of a page that went further up gives up the title that it had from there.
void PLFriendsManager::_dropTitlesFrom(std::uint64_t index) {
  if (!_storedTitles) return;
  for (; index < std::min(_friendGroups.size(), _storedTitles->size()); ++index) {
    const std::string* known = (*_storedTitles)[index].string();
    if (known && _friendGroups[index]->title() == *known) _friendGroups[index]->setTitle(std::nullopt);
  }
}

void PLFriendsManager::_applyGroupTitles(const Array& titles) {
  _storedTitles = titles;
  const auto groups = _friendGroups;
  for (std::size_t index = 0; index < std::min(groups.size(), titles.size()); ++index) {
    if (const std::string* title = titles[index].string()) groups[index]->setTitle(*title);
  }
}

bool PLFriendsManager::_hasTitles() const {
  return std::ranges::any_of(_friendGroups, [](const auto& group) { return !group->title().value_or("").empty(); });
}

Array PLFriendsManager::_titles() const {
  Array titles;
  for (const auto& group : _friendGroups) titles.emplace_back(group->title().value_or(""));
  return titles;
}

void PLFriendsManager::_publishTitles() {
  _storedTitles = _titles();
  _publishedTitles.store(std::make_shared<const TitlesVersion>(++_titlesEdition, *_storedTitles));
}

bool PLFriendsManager::_hasTitlesUnderWay() const { return _titlesMoved || _writtenTitlesEdition < _titlesEdition; }

void PLFriendsManager::_titlesWereWritten(std::uint64_t edition) {
  _writtenTitlesEdition = std::max(_writtenTitlesEdition, edition);
  if (!_titleLoadIsDue || _hasTitlesUnderWay()) return;
  _titleLoadIsDue = false;
  _loadGroupTitles();
}

void PLFriendsManager::saveFriendGroupTitles() {
  checkMainQueue(_process, "saveFriendGroupTitles");
  // Before the list has been read there are no groups to name.
  if (!_didCompleteInitialLoading && _storeIsUnreadable) return;
  _publishTitles();
  _saveQueue->async([self = shared_from_this(), version = _publishedTitles.load()] { self->_saveTitles(*version); });
}

void PLFriendsManager::_saveTitles(const TitlesVersion& version) {
  _saveQueue->requireCurrent();
  if (_storeIsUnreadable) _needsTitlesSync.store(true, std::memory_order_release);
  // Titles that moved with a removed group go out with the list that they belong to, and none after newer ones.
  if (_needsTitlesSync) return _save();
  if (version.edition < _savedTitlesEdition) return;
  PreferencesStore& preferences = preferencesOf(_process);
  preferences.setValue(PLGroupTitlesKey, version.titles, _domain);
  if (!preferences.synchronize(_domain)) {
    _needsTitlesSync.store(true, std::memory_order_release);
    _writeFailed = true;
    return _retrySaveLater();
  }
  if (_preferencesSyncManager->hasCompletedInitialSync()) {
    _preferencesSyncManager->synchronizeDomainKeys(_domain, {std::string(PLGroupTitlesKey)});
  }
  _savedTitlesEdition = version.edition;
  _process.mainQueue().async([weak = weak_from_this(), edition = version.edition] {
    if (auto self = weak.lock()) self->_titlesWereWritten(edition);
  });
}

void PLFriendsManager::markFriendListAsNormalized() {
  checkMainQueue(_process, "markFriendListAsNormalized");
  _saveQueue->async([self = shared_from_this()] {
    self->_saveQueue->requireCurrent();
    Write write;
    write.marksNormalized = true;
    if (!self->_storeIsUnreadable && self->_perform(write)) return;
    self->_keepUnsavedChanges(write);
    self->_retrySaveLater();
  });
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

void PLFriendsManager::_publishList() {
  _touchedLeaves.name(_friendList);
  if (_publishedListVersion == _friendList.version()) return;
  _publishedListVersion = _friendList.version();
  _publishedList.store(std::make_shared<const PLSlotSnapshot>(_friendList.snapshot()));
}

// The data first, the flags second, the titles' flag before the list's: a save that sees a flag sees what it stands
// for.
void PLFriendsManager::_markLayoutChanged() {
  _publishList();
  if (_titlesMoved) {
    _publishTitles();
    _titlesMoved = false;
    _needsTitlesSync.store(true, std::memory_order_release);
  }
  _needsFriendListSync.store(true, std::memory_order_release);
}

bool PLFriendsManager::_hasUnsavedEdits() const {
  if (_needsFriendListSync) return true;
  for (std::uint64_t index = 0; index < _friendList.count(); ++index) {
    if (_friendList.at(index) != EmptySlot && _friendList.at(index)->needsSave()) return true;
  }
  return false;
}

bool PLFriendsManager::isSettled() const { return _didCompleteInitialLoading && !_writeFailed && _postCount == 0; }

bool PLFriendsManager::isWritten() const { return !_writeFailed; }

// --- 2  Group layout and positions ---------------------------------------------------------------------------------

std::shared_ptr<PLFriendGroup> PLFriendsManager::_makeGroup() {
  return PLFriendGroup::initWithDelegateGroupSize(shared_from_this(), _maxFriendsPerGroup);
}

// Takes the groups from `index` on out of the manager, which is then no longer their delegate. Their slots stay.
void PLFriendsManager::_forgetGroupsFrom(std::uint64_t index) {
  _firstGroupThatMayHaveRoom = std::min(_firstGroupThatMayHaveRoom, index);
  while (_friendGroups.size() > index) {
    _friendGroups.back()->setDelegate({});
    _groupIndexes.erase(_friendGroups.back().get());
    _friendGroups.pop_back();
  }
}

std::optional<std::uint64_t> PLFriendsManager::_indexOfGroup(const PLFriendGroup& group) const {
  auto known = _groupIndexes.find(&group);
  if (known == _groupIndexes.end()) return std::nullopt;
  return known->second;
}

std::vector<Slot> PLFriendsManager::_slotsOfGroup(std::uint64_t index) const {
  std::vector<Slot> group;
  group.reserve(_maxFriendsPerGroup);
  const std::uint64_t first = index * _maxFriendsPerGroup;
  for (std::uint64_t slot = first; slot < first + _maxFriendsPerGroup; ++slot) group.push_back(_friendList.at(slot));
  return group;
}

bool PLFriendsManager::_canAddFriendGroup() const { return _friendGroups.size() < _maxFriendGroups; }

bool PLFriendsManager::_shouldAddEmptyGroup() const {
  if (_friendGroups.empty()) return true;
  if (_canAddFriendGroup() && _friendGroups.back()->count() > 0) return _shouldAddEmptyTrailingGroup;
  return false;
}

// The new group shows the slots that the list has at its place already: friends that no group showed come to light.
void PLFriendsManager::_addEmptyGroup() {
  const std::uint64_t index = _friendGroups.size();
  auto group = _makeGroup();
  _groupIndexes.emplace(group.get(), index);
  _friendGroups.push_back(group);
  while (_friendList.count() < (index + 1) * _maxFriendsPerGroup) _friendList.append(EmptySlot);
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
  slots.forEachDifferingLeaf(_laidOutList, [&](std::uint64_t leaf) {
    const std::uint64_t last = ((leaf + 1) * PLSlotSnapshot::LeafSize - 1) / _maxFriendsPerGroup;
    for (auto index = leaf * PLSlotSnapshot::LeafSize / _maxFriendsPerGroup; index <= last && index < isDue.size();
         ++index) {
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
  const std::uint64_t wanted = std::min(_friendList.count() / _maxFriendsPerGroup, _maxFriendGroups);
  const bool removesGroups = _friendGroups.size() > wanted;
  _forgetGroupsFrom(wanted);
  const std::uint64_t firstNewGroup = _friendGroups.size();
  while (_friendGroups.size() < wanted) {
    auto group = _makeGroup();
    _groupIndexes.emplace(group.get(), _friendGroups.size());
    _friendGroups.push_back(std::move(group));
  }
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
  for (std::uint64_t later = index; later < _friendGroups.size(); ++later) {
    _groupIndexes[_friendGroups[later].get()] = later;
  }
  _firstGroupThatMayHaveRoom = std::min(_firstGroupThatMayHaveRoom, index);
  _friendList.remove(index * _maxFriendsPerGroup, _maxFriendsPerGroup);
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
  for (std::uint64_t position = 0; position < std::min(_maxFriendsPerGroup, friends.size()); ++position) {
    const std::uint64_t index = *groupIndex * _maxFriendsPerGroup + position;
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
  if (_needsFriendListSync) save();
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
  _addEntryToChangeLogForPersonChangeType(heldPerson, PLFriendsManagerPersonAdded);
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
  const std::uint64_t groupIndex = index / _maxFriendsPerGroup;
  _friendList.set(index, EmptySlot);
  _firstGroupThatMayHaveRoom = std::min(_firstGroupThatMayHaveRoom, groupIndex);
  if (heldPerson) {
    _addEntryToChangeLogForPersonChangeType(heldPerson, PLFriendsManagerPersonDeleted);
    _removePersonFromIdentifiersToPersonMap(*heldPerson);
    // A single group stays, empty: it is the only place for friends.
    if (heldGroup->count() == 0 && _maxFriendGroups >= 2) _removeGroupAtIndex(groupIndex);
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
  for (std::uint64_t position = 0; position < std::min(_maxFriendsPerGroup, content.size()); ++position) {
    _friendList.set(*groupIndex * _maxFriendsPerGroup + position, content[position]);
  }
  _firstGroupThatMayHaveRoom = std::min(_firstGroupThatMayHaveRoom, *groupIndex);
  _markLayoutChanged();
  for (const auto& person : friends) _addEntryToChangeLogForPersonChangeType(person, PLFriendsManagerPersonMoved);
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
  return index ? *index % _maxFriendsPerGroup : static_cast<std::uint64_t>(NotFound);
}

std::uint64_t PLFriendsManager::groupIndexContainingFriend(const std::shared_ptr<PLPerson>& person) const {
  checkMainQueue(_process, "groupIndexContainingFriend");
  const auto index = person ? _friendList.indexOf(person.get()) : std::nullopt;
  if (!index) return 1;
  return static_cast<std::uint64_t>(std::floor(static_cast<float>(*index) / static_cast<float>(_maxFriendsPerGroup)));
}

// Of a group that this manager does not hold the index lies beyond every list.
std::uint64_t PLFriendsManager::_indexForPositionInGroup(std::uint64_t position, const PLFriendGroup& group) const {
  const auto groupIndex = _indexOfGroup(group);
  if (!groupIndex || position >= _maxFriendsPerGroup) return std::numeric_limits<std::uint64_t>::max();
  return slotIndex(*groupIndex, _maxFriendsPerGroup, position);
}

std::shared_ptr<PLPerson> PLFriendsManager::_friendAtPosition(std::uint64_t index) const {
  return index < _friendList.count() ? _friendList.at(index) : nullptr;
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

std::shared_ptr<PLPerson> PLFriendsManager::_personUnder(const std::string& destination) const {
  std::string room;
  const auto canonical = plSanitizedDestination(destination, room);
  return canonical ? _identifiersToPersonMap.personFor(*canonical) : nullptr;
}

std::shared_ptr<PLPerson> PLFriendsManager::personWithDestinations(const std::vector<std::string>& destinations) {
  checkMainQueue(_process, "personWithDestinations");
  // For one destination, as most callers have, no sets are made.
  if (destinations.size() == 1) {
    if (auto known = _personUnder(destinations.front())) return known;
  }
  const DestinationSet canonical = plSanitizedDestinationSet(std::span(destinations));
  if (auto known = _identifiersToPersonMap.firstPersonFor(canonical)) return known;
  std::shared_ptr<PLPerson> person;
  platformOf(_process).addressBook->performWithAddressBook([&](AddressBook& addressBook) {
    person = PLPerson::initWithDestinationsAddressBook({canonical.begin(), canonical.end()}, &addressBook);
  });
  if (person) _storeSourcedPerson(person);
  return person;
}

std::shared_ptr<PLPerson> PLFriendsManager::personWithABRecordGUID(const std::string& guid) {
  checkMainQueue(_process, "personWithABRecordGUID");
  if (auto known = _identifiersToPersonMap.personFor(guid)) return known;
  std::shared_ptr<PLPerson> person;
  platformOf(_process).addressBook->performWithAddressBook(
      [&](AddressBook& addressBook) { person = PLPerson::initWithABRecordGUIDAddressBook(guid, &addressBook); });
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

void PLFriendsManager::_addEntryToChangeLogForPersonChangeType(const std::shared_ptr<PLPerson>& person,
                                                               std::string_view changeType) {
  if (!person) return;
  PLChangeLog changes;
  changes.add(person, changeType);
  _addToChangeLog(std::move(changes));
}

void PLFriendsManager::_addToChangeLog(PLChangeLog changes) {
  if (changes.isEmpty()) return;
  _changeLogQueue->briefBarrier([weak = weak_from_this(), changes = std::move(changes)] {
    auto self = weak.lock();
    if (!self) return;
    self->_changeLogQueue->requireCurrent();
    if (!self->_changeLog) self->_changeLog.emplace();
    self->_changeLog->add(changes);
  });
}

std::uint64_t PLFriendsManager::_changeLogCount() const {
  std::uint64_t count = 0;
  _changeLogQueue->sync([&] {
    _changeLogQueue->requireReader();
    count = _changeLog ? _changeLog->count() : 0;
  });
  return count;
}

bool PLFriendsManager::_changeLogContainsFriendAdditionsOrUpdates() const {
  bool contains = false;
  _changeLogQueue->sync([&] {
    _changeLogQueue->requireReader();
    contains = _changeLog && _changeLog->containsAdditionsOrUpdates();
  });
  return contains;
}

std::optional<PLChangeLog> PLFriendsManager::_copyAndResetChangeLog() {
  std::optional<PLChangeLog> drained;
  _changeLogQueue->sync([&] {
    _changeLogQueue->requireReader();
    if (!_changeLog || _changeLog->isEmpty()) return;
    drained = _changeLog;
    _changeLogQueue->briefBarrier([weak = weak_from_this()] {
      const auto self = weak.lock();
      if (!self) return;
      self->_changeLogQueue->requireCurrent();
      self->setChangeLog(std::nullopt);
    });
  });
  return drained;
}

void PLFriendsManager::_postChangeNotificationIfNecessary() {
  _process.mainQueue().async([weak = weak_from_this(), didCompleteInitialLoading = _didCompleteInitialLoading] {
    auto self = weak.lock();
    if (!self) return;
    auto log = self->_copyAndResetChangeLog();
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

namespace {

// Whether statuses are checked in this process, decided once.
struct DestinationStatusCheck {
  std::optional<bool> isSkipped;
};

bool isTrue(const std::optional<Value>& value) {
  if (!value) return false;
  return value->boolean().value_or(value->integer().value_or(0) != 0);
}

std::string joined(const DestinationSet& destinations) {
  std::string text;
  for (const std::string& destination : destinations) text += (text.empty() ? "" : ", ") + destination;
  return text;
}

DestinationStatuses allValid(const DestinationSet& destinations) {
  DestinationStatuses statuses;
  for (const std::string& destination : destinations) statuses.emplace(destination, DestinationStatus::valid);
  return statuses;
}

}  // namespace

void PLFriendsManager::setServiceName(std::optional<std::string> serviceName) {
  checkMainQueue(_process, "setServiceName");
  if (serviceName == _serviceName) return;
  _serviceName = std::move(serviceName);
  _PLGetLogSystem().log("setting service name for reachability queries to %@", _serviceName);
}

DestinationSet PLFriendsManager::_destinations() const {
  DestinationSet identifiers;
  for (std::uint64_t index = 0; index < _friendList.count(); ++index) {
    const auto person = _friendAtPosition(index);
    const auto values = person ? person->allValues() : nullptr;
    if (!values) continue;
    for (const std::string& value : *values) {
      if (auto identifier = plMessageRelayIdentifier(value)) identifiers.insert(*std::move(identifier));
    }
  }
  return identifiers;
}

void PLFriendsManager::refreshDestinationStatuses() {
  checkMainQueue(_process, "refreshDestinationStatuses");
  if (!_highPriorityDestinations.empty()) {
    _PLGetLogSystem().log("not starting batch query because high priority query is in progress for [ %@ ]",
                          redactable(joined(_highPriorityDestinations)));
    _pendingDestinations = _destinations();
    return;
  }
  if (_startQuery(_destinations(), false)) return;
  // The answer is about the friends that there are when it comes.
  _process.mainQueue().asyncAfter(kDefaultAnswerDelay, [self = shared_from_this()] {
    const DestinationStatuses statuses = allValid(self->_destinations());
    _PLGetLogSystem().log("faking Relay status update");
    self->idStatusUpdatedForDestinations(statuses);
  });
}

void PLFriendsManager::_queryDestinations(const DestinationSet& destinations) {
  if (_startQuery(destinations, true)) return;
  _process.mainQueue().asyncAfter(kDefaultAnswerDelay, [self = shared_from_this(), destinations] {
    _PLGetLogSystem().log("faking Relay status update for [ %@ ]", redactable(joined(destinations)));
    self->idStatusUpdatedForDestinations(allValid(destinations));
  });
}

// False when the service answers no queries.
bool PLFriendsManager::_startQuery(const DestinationSet& destinations, bool hasPriority) {
  const std::shared_ptr<ReachabilityClient> client(shared_from_this(), this);
  return platformOf(_process).reachability->queryStatusForDestinations(destinations, _serviceName, hasPriority, client);
}

void PLFriendsManager::queryDidStart(const DestinationSet& destinations, bool hasPriority) {
  checkMainQueue(_process, "queryDidStart");
  if (hasPriority) _highPriorityDestinations.insert(destinations.begin(), destinations.end());
  _startRelayQueryTimeoutTimer();
}

void PLFriendsManager::queryDidAnswer(const DestinationStatuses& statuses) { idStatusUpdatedForDestinations(statuses); }

DestinationStatus PLFriendsManager::_compareStatusToStatus(DestinationStatus left, DestinationStatus right) {
  return betterDestinationStatus(left, right);
}

DestinationStatus PLFriendsManager::statusForPersonRequery(const std::shared_ptr<PLPerson>& person, bool requery) {
  checkMainQueue(_process, "statusForPersonRequery");
  if (_shouldBypassDestinationStatusCheck()) return DestinationStatus::valid;
  const auto values = person ? person->allValues() : nullptr;
  if (!values || values->empty()) return DestinationStatus::invalid;
  auto best = DestinationStatus::unspecified;
  for (const std::string& value : *values) best = _compareStatusToStatus(best, _cachedStatuses.status(value));
  if (requery) {
    _queryDestinations(*values);
    if (best == DestinationStatus::unspecified) best = DestinationStatus::unknown;
  }
  _PLGetLogSystem().log("%@ has cached best status of: %@", redactable(person->description()),
                        destinationStatusName(best));
  return best;
}

DestinationSet PLFriendsManager::reachableDestinationsForPerson(const std::shared_ptr<PLPerson>& person) const {
  checkMainQueue(_process, "reachableDestinationsForPerson");
  const auto values = person ? person->allValues() : nullptr;
  return values ? _cachedStatuses.validAmong(*values) : DestinationSet{};
}

void PLFriendsManager::idStatusUpdatedForDestinations(const std::optional<DestinationStatuses>& statuses) {
  checkMainQueue(_process, "idStatusUpdatedForDestinations");
  if (!statuses) return;
  _stopRelayQueryTimeoutTimer();
  DestinationStatuses updated;
  for (const auto& [destination, status] : *statuses) {
    // What has no canonical form is no friend's destination either.
    if (auto canonical = plMessageCanonicalRawAddress(destination)) updated.insert_or_assign(*canonical, status);
  }
  _PLGetLogSystem().log("Relay statusues updated: %@", redactable(Value(destinationStatusNumbers(*statuses))));
  _cachedStatuses.update(updated);
  postOnMainQueue(_process, PLFriendsManagerDestinationStatusUpdatedNotification, weak_from_this(),
                  Dictionary{{std::string(PLFriendsManagerDestinationStatusUpdatedDestinationsKey),
                              destinationStatusNumbers(updated)}});
  if (_highPriorityDestinations.empty()) {
    _tallySetValueForScalarKey(_numberOfUnreachableFriends(), prefixed(".tn.unreachableFriends.count"));
  }
  // By the names that were asked for, not by the canonical ones.
  for (const auto& [destination, status] : *statuses) _highPriorityDestinations.erase(destination);
  _dropPendingDestinations();
  // A service that answers in parts may say no more after any of them.
  if (!_highPriorityDestinations.empty()) _startRelayQueryTimeoutTimer();
}

// The batch query that was held back is not made up for: whoever wants it asks again.
void PLFriendsManager::_dropPendingDestinations() {
  if (_highPriorityDestinations.empty()) _pendingDestinations.reset();
}

// While nothing at all is known to be valid, nobody counts: that says more of the service than of the friends.
std::int64_t PLFriendsManager::_numberOfUnreachableFriends() const {
  if (!_cachedStatuses.hasValid()) return 0;
  std::int64_t count = 0;
  for (std::uint64_t index = 0; index < _friendList.count(); ++index) {
    const auto person = _friendAtPosition(index);
    const auto values = person ? person->allValues() : nullptr;
    if (person && !(values && _cachedStatuses.hasValidAmong(*values))) ++count;
  }
  return count;
}

void PLFriendsManager::_startRelayQueryTimeoutTimer() {
  if (_relayQueryTimeoutTimer) return;
  _relayQueryTimeoutTimer = Timer::after(_process.mainQueue(), kRelayQueryTimeout, [weak = weak_from_this()] {
    if (auto self = weak.lock()) self->_relayQueryTimeoutTimerFired();
  });
}

void PLFriendsManager::_stopRelayQueryTimeoutTimer() { _relayQueryTimeoutTimer = nullptr; }

void PLFriendsManager::_relayQueryTimeoutTimerFired() {
  _relayQueryTimeoutTimer = nullptr;
  _PLGetLogSystem().log("Relay Query took too long to respond, clearing request queues");
  // A batch that waits for no priority query is none of this timer's.
  if (_highPriorityDestinations.empty()) return;
  _highPriorityDestinations.clear();
  _dropPendingDestinations();
}

bool PLFriendsManager::_shouldBypassDestinationStatusCheck() const {
  if (!_serviceName) return true;
  auto& check = _process.local<DestinationStatusCheck>();
  if (!check.isSkipped) {
    check.isSkipped = isTrue(preferencesOf(_process).persistentValueForKey(PLSkipHasSatelliteCheckKey, _domain));
  }
  return *check.isSkipped;
}

// --- 6  Loading, refresh and clean-up ------------------------------------------------------------------------------

// Strangers are reported too; only a friend's change asks for a save.
void PLFriendsManager::_personValuesChanged(const Notification& notification) {
  const auto person = notification.objectAs<PLPerson>();
  _addEntryToChangeLogForPersonChangeType(person, PLFriendsManagerPersonUpdated);
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
    self->_addressBookRefreshTimer = Timer::after(self->_process.mainQueue(), kAddressBookRefreshDelay, [weak] {
      if (auto manager = weak.lock()) manager->refreshAgainstAddressBook();
    });
  });
}

bool PLFriendsManager::refreshAgainstAddressBook() {
  checkMainQueue(_process, "refreshAgainstAddressBook");
  if (!_didCompleteInitialLoading) return false;
  const bool isDue = _needsAddressBookRefresh || _addressBookSequenceNumberDidChange();
  if (!isDue || !_refreshAgainstContactsEnabled) return false;
  bool didRefresh = false;
  platformOf(_process).addressBook->performWithAddressBook(
      [&](AddressBook& addressBook) { didRefresh = addressBook.isReadable() && _refreshFriends(addressBook); });
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
  if (isComplete) _updateLastKnownAddressBookSequenceNumber(number);
  return isComplete;
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
  if (enabled == _refreshAgainstContactsEnabled) return;
  _refreshAgainstContactsEnabled = enabled;
  if (enabled) refreshAgainstAddressBook();
}

// Absent when the store cannot be read: then nobody knows whether the contacts changed, and nothing is written.
std::optional<std::int32_t> PLFriendsManager::_lastKnownAddressBookSequenceNumber() {
  preferencesOf(_process).synchronize(_domain);
  const auto answer = preferencesOf(_process).integerValue(kAddressBookSequenceNumberKey, _domain);
  if (!answer.isReadable()) return std::nullopt;
  return static_cast<std::int32_t>(answer.value().value_or(0));
}

void PLFriendsManager::_updateLastKnownAddressBookSequenceNumber(std::int32_t number) {
  const auto known = _lastKnownAddressBookSequenceNumber();
  if (!known || *known == number) return;
  preferencesOf(_process).setValue(kAddressBookSequenceNumberKey, number, _domain);
  preferencesOf(_process).synchronize(_domain);
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

// What one merge of a stored list needs.
struct PLFriendsManager::Merge {
  Merge(AddressBook* handle, PLSlotList& list, std::uint64_t slotCount, bool hasSourcedPersons)
      : addressBook(handle),
        findsFriends(list.occupiedCount() != 0),
        changesOnce(!hasSourcedPersons && list.people().places().repeatedPersonCount() == 0),
        slots(list, slotCount),
        changedLeaves(slotCount / PLSlotSnapshot::LeafSize + 1) {}

  // Somebody who stands in several slots, or was looked up and became a friend, may change several times. Everybody
  // else does once, in one slot.
  void note(const std::shared_ptr<PLPerson>& person, std::string_view changeType) {
    changesOnce ? changes.addLast(person, changeType) : changes.add(person, changeType);
  }
  void markLeafOf(std::uint64_t index) {
    if (const std::uint64_t leaf = index / PLSlotSnapshot::LeafSize; leaf < changedLeaves.size()) {
      changedLeaves[leaf] = true;
    }
  }

  AddressBook* const addressBook;
  const bool findsFriends;  // whether there were any friends before
  const bool changesOnce;   // whether nobody has two entries in the change log
  PLSlotRearrangement slots;
  std::vector<PLPersonForm> forms;  // of the run being merged
  PLPersonForm* form = nullptr;     // of the element being merged
  std::function<Value()> element;   // that element, made for the caller
  PLChangeLog changes;              // which go into the change log together
  std::vector<bool> changedLeaves;  // whether friends moved further up or changed there
  std::vector<PLStoredVersion::Run> runs;
};

void PLFriendsManager::_updateFriends(const LongArray& stored) {
  AddressBookStore& store = *platformOf(_process).addressBook;
  store.performWithAddressBook([&](AddressBook& shared) {
    // A shared handle without a database cannot name the records that stored friends belong to.
    const auto ownHandle = shared.databaseUID() ? nullptr : store.openPrivateAddressBook();
    Merge merge(ownHandle ? ownHandle.get() : &shared, _friendList, stored.size() + _maxFriendsPerGroup,
                !_sourcedPersons.isEmpty());
    const std::uint64_t changes = _process.local<PLPersonChanges>().changes.load(std::memory_order_acquire);
    _mergeRuns(merge, stored, changes);
    _trimSlots(merge, stored.size());
    _reportDisplaced(merge);
    _addToChangeLog(std::move(merge.changes));
    _publishList();
    _storedVersion.store(
        std::make_shared<const PLStoredVersion>(stored, std::move(merge.runs), *_publishedList.own(), changes));
    _mergeCount.fetch_add(1, std::memory_order_release);
    save();
  });
  // A refresh that is due already, perhaps for as long as refreshing is disabled, stays due.
  if (_changeLogContainsFriendAdditionsOrUpdates()) _needsAddressBookRefresh = true;
}

// A run that is merged already is passed over.
void PLFriendsManager::_mergeRuns(Merge& merge, const LongArray& stored, std::uint64_t changes) {
  const auto known = _storedVersion.load();
  const PLSlotSnapshot slots = _friendList.snapshot();
  const PLStoredVersion nothing;
  const PLStoredVersion::Unchanged isUnchanged(known ? *known : nothing, stored, slots, changes);
  merge.runs.reserve(stored.runs().size());
  for (std::size_t index = 0; index < stored.runs().size(); ++index) {
    using Run = PLStoredVersion::Run;
    const bool isAtRest = (!merge.changedLeaves[index] && isUnchanged(index)) ||
                          _mergeRun(merge, *stored.runs()[index], index * LongArray::RunSize);
    merge.runs.push_back(isAtRest ? Run::atRest : Run::other);
  }
}

namespace {

// Whether the form, which the person took over, describes it and is what would be stored of it: a friend who is found
// by nothing is taken for another one at each load.
bool isAtRest(const PLPerson& person, PLPersonForm& form) { return form.isAsWritten() && person.isEqualToForm(form); }

}  // namespace

// Like the operations below: whether merging the same again would change nothing.
bool PLFriendsManager::_mergeRun(Merge& merge, const ArrayRun& run, std::uint64_t first) {
  bool isAtRest = _showRun(merge, run);
  for (std::size_t place = 0; place < run.size(); ++place) {
    merge.form = &merge.forms[place];
    merge.element = [&run, place] { return run.at(place); };
    isAtRest = _mergeElement(merge, first + place) && isAtRest;
  }
  return isAtRest;
}

// False when an element is no dictionary and so an empty slot.
bool PLFriendsManager::_showRun(Merge& merge, const ArrayRun& run) {
  if (merge.forms.empty()) merge.forms = std::vector<PLPersonForm>(LongArray::RunSize);
  bool areDictionaries = true;
  std::vector<std::string_view> guids;
  guids.reserve(run.size());
  for (std::size_t place = 0; place < run.size(); ++place) {
    PLPersonForm& form = merge.forms[place];
    areDictionaries = run.show(place, form.entries()) && areDictionaries;
    form.read();
    if (!form.identifyingGUID().empty()) guids.push_back(form.identifyingGUID());
  }
  if (merge.findsFriends) _friendList.people().prefetch(guids);
  return areDictionaries;
}

bool PLFriendsManager::_mergeElement(Merge& merge, std::uint64_t index) {
  if (index >= _friendList.count()) return _appendStoredFriend(merge, index);
  if (!merge.form->isEmpty()) return _placeStoredFriend(merge, index);
  merge.slots.displace(index);
  return true;
}

// Only behind the end of the list a stored friend without destinations is left out.
bool PLFriendsManager::_appendStoredFriend(Merge& merge, std::uint64_t index) {
  if (!merge.form->hasStoredDestinations()) return merge.form->isEmpty();
  auto person = PLPerson::initWithForm(*merge.form);
  while (_friendList.count() <= index) _addEmptyGroup();
  merge.slots.put(index, person);
  merge.note(person, PLFriendsManagerPersonAdded);
  return isAtRest(*person, *merge.form);
}

bool PLFriendsManager::_placeStoredFriend(Merge& merge, std::uint64_t index) {
  const Slot current = _friendList.at(index);
  auto known = current && current->isEqualToForm(*merge.form) ? current : nullptr;
  if (!known) {
    known = _bringMovedFriend(merge, index);
  }
  if (known) {
    if (known->updateFromForm(*merge.form)) {
      merge.note(known, PLFriendsManagerPersonUpdated);
      _markLaterSlots(merge, *known, index);
    }
    return isAtRest(*known, *merge.form);
  }
  const auto stored = PLPerson::initWithForm(*merge.form);
  // A caller may hold the person that it looked up: that very object becomes the friend, as it is.
  const auto sourced = _takeSourcedPerson(merge, *stored);
  if (sourced) {
    _friendList.set(index, sourced);
  } else {
    merge.slots.put(index, stored);
  }
  merge.note(sourced ? sourced : stored, PLFriendsManagerPersonAdded);
  return !sourced && isAtRest(*stored, *merge.form);
}

// A friend may be in several slots: the forms in the later ones met another one when they were merged last.
void PLFriendsManager::_markLaterSlots(Merge& merge, const PLPerson& person, std::uint64_t index) {
  while (const auto later = _friendList.indexOf(&person, index + 1)) {
    merge.markLeafOf(*later);
    index = *later;
  }
}

// Its making marked it. What is stored already is not written again: that could overwrite a later edit elsewhere.
std::shared_ptr<PLPerson> PLFriendsManager::_takeSourcedPerson(const Merge& merge, const PLPerson& stored) {
  auto sourced = _sourcedPersons.firstLike(stored);
  if (!sourced) return nullptr;
  _sourcedPersons.remove(sourced.get());
  if (sourced->takeNeedsSave() && Value(sourced->dictionaryRepresentation()) != merge.element()) {
    sourced->setNeedsSave(true);
  }
  return sourced;
}

// The friend that the stored form describes, from a later slot, which is emptied, or from among the displaced.
std::shared_ptr<PLPerson> PLFriendsManager::_bringMovedFriend(Merge& merge, std::uint64_t index) {
  if (!merge.findsFriends) return nullptr;
  const auto [moved, from] = merge.slots.bring(*merge.form, index);
  if (moved == EmptySlot) return nullptr;
  if (from) merge.markLeafOf(*from);
  merge.note(moved, PLFriendsManagerPersonMoved);
  return moved;
}

void PLFriendsManager::_trimSlots(Merge& merge, std::uint64_t storedCount) {
  const float groups = std::ceil(static_cast<float>(storedCount) / static_cast<float>(_maxFriendsPerGroup));
  const std::uint64_t kept = static_cast<std::uint64_t>(groups) * _maxFriendsPerGroup;
  for (std::uint64_t index = kept; index < _friendList.count(); ++index) merge.slots.displace(index);
  if (_friendList.count() > kept) _friendList.remove(kept, _friendList.count() - kept);
}

void PLFriendsManager::_reportDisplaced(Merge& merge) {
  merge.slots.forEachDisplaced([&merge](const std::shared_ptr<PLPerson>& person) {
    _PLGetLogSystem().log("[%@] [ABGUID=%@] was displaced and removed", redactable(person->displayName()),
                          person->abRecordGUID());
    merge.note(person, PLFriendsManagerPersonDeleted);
  });
}

void PLFriendsManager::_cleanUpFriendListIfNecessary() {
  _deduplicateFriendListIfNecessary();
  _removeDestinationlessFriendsIfNecessary();
  save();
}

void PLFriendsManager::_deduplicateFriendListIfNecessary() {
  const bool mayHaveRepeated =
      _friendList.people().sharedGUIDCount() != 0 || _friendList.people().places().repeatedPersonCount() != 0;
  if (!_shouldDeduplicateFriendList || !(mayHaveRepeated || areSkipsChecked())) return;
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
  if (!_shouldRemoveDestinationlessFriends || !(mayHaveUnreachable || areSkipsChecked())) return;
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
    _addEntryToChangeLogForPersonChangeType(person, PLFriendsManagerPersonDeleted);
    const std::uint64_t groupIndex = index / _maxFriendsPerGroup;
    if (groupIndex >= _friendGroups.size()) continue;
    const auto group = _friendGroups[groupIndex];
    group->removeFriendAtPosition(index % _maxFriendsPerGroup);
    if (!_indexOfGroup(*group)) vanished += _maxFriendsPerGroup;
  }
}

// --- 7  Favorites import -------------------------------------------------------------------------------------------

std::optional<std::vector<std::shared_ptr<PLPerson>>> PLFriendsManager::_curatedFriendList() {
  std::vector<std::shared_ptr<PLPerson>> friends;
  platformOf(_process).addressBook->performWithAddressBook([&](AddressBook& addressBook) {
    const auto entries = platformOf(_process).favorites->favoriteEntries();
    if (entries.empty()) {
      _PLGetLogSystem().log("no phone favorites found to import to Tapnote friends");
      return;
    }
    _PLGetLogSystem().log("processing %tu phone favorites for Tapnote friend import", entries.size());
    std::set<std::string> imported;
    for (const FavoriteEntry& entry : entries) {
      const auto newFriend = PLPerson::initWithFavoriteAddressBook(entry, &addressBook);
      require(newFriend != nullptr, "newFriend");
      const auto guid = newFriend->abRecordGUID();
      if (guid && !guid->empty() && !imported.insert(*guid).second) {
        _PLGetLogSystem().log("not importing phone favorite [%@ | %@] with record GUID %@; person was already imported",
                              redactable(entry.displayName), redactable(entry.value), guid);
        continue;
      }
      friends.push_back(newFriend);
      _PLGetLogSystem().log("imported phone favorite [%@ | %@] with record ID %d and GUID %@",
                            redactable(entry.displayName), redactable(entry.value), entry.abRecordID, guid);
    }
  });
  if (friends.empty()) return std::nullopt;
  const std::uint64_t capacity = saturatingProduct(_maxFriendGroups, _maxFriendsPerGroup);
  if (friends.size() > capacity) friends.resize(capacity);
  _PLGetLogSystem().log("phone favorites import complete with %tu Tapnote friends", friends.size());
  return friends;
}

void PLFriendsManager::_addCuratedFriends(const std::optional<std::vector<std::shared_ptr<PLPerson>>>& friends) {
  if (!friends || friends->empty()) return;
  for (std::uint64_t index = 0; index < friends->size(); ++index) {
    if (index < _friendList.count()) {
      _friendList.set(index, (*friends)[index]);
    } else {
      _friendList.append((*friends)[index]);
    }
  }
  while (_friendList.count() % _maxFriendsPerGroup != 0) _friendList.append(EmptySlot);
  _updateFriendGroups();
  _titleCuratedGroups();
  saveFriendGroupTitles();
}

void PLFriendsManager::_titleCuratedGroups() {
  const auto bundle = PellorBundle();
  if (!bundle || _friendGroups.empty()) return;
  _friendGroups.front()->setTitle(bundle->localizedString("FAVORITES", ""));
  const std::string format = bundle->localizedString("NUMBERED_FAVORITES_FORMAT_STRING", "");
  const std::uint64_t last = _friendGroups.size() - 1;
  for (std::uint64_t index = 1; index <= last; ++index) {
    if (index == last && _friendGroups[index]->count() == 0) continue;
    _friendGroups[index]->setTitle(filledIn(format, index + 1));
  }
}

bool PLFriendsManager::shouldAllowAddingContactWithContactStorePersonValueCache(
    const Contact& contact, ContactStore& contactStore, PersonValueCache& personValueCache) const {
  const RecordRef record = contactStore.personFromContact(contact);
  if (!record || containsFriendWithABRecordGUID(record->recordGUID())) return false;
  const auto [count, isNew] = personValueCache.try_emplace(record->recordID(), 0);
  if (isNew) count->second = PLPerson::allValuesForPerson(record)->size();
  return count->second > 0;
}

// --- Invariants ----------------------------------------------------------------------------------------------------

void PLFriendsManager::_checkInvariants() const {
  if constexpr (kChecksInvariants) {
    if (const auto violation = _indexViolation()) fatal(*violation);
  }
}

// The part that holds even while a group waits to be synchronised.
std::optional<std::string> PLFriendsManager::_indexViolation() const {
  if (_groupIndexes.size() != _friendGroups.size()) return "one index entry per group";
  for (std::uint64_t index = 0; index < _friendGroups.size(); ++index) {
    if (_indexOfGroup(*_friendGroups[index]) != index) return "every group known by its place";
    if (_friendGroups[index]->delegate().get() != static_cast<const PLFriendGroupDelegate*>(this)) {
      return "every group reporting to its manager";
    }
  }
  if (_friendList.count() < saturatingProduct(_friendGroups.size(), _maxFriendsPerGroup))
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
