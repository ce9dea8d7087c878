#include "pellor/friends/internal/PLListWriter.h"

#include <algorithm>
#include <utility>

#include "pellor/friends/PLBundle.h"
#include "pellor/friends/PLFriendsManagerKeys.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/friends/internal/PLSkipChecks.h"
#include "pellor/platform/Platform.h"
#include "pellor/platform/PreferencesSyncService.h"
#include "pellor/runtime/Scheduler.h"

namespace pellor {
namespace {

// Between the attempts to write to a store that fails.
constexpr BackOff::Pauses RetryPauses{.first = 0.1, .longest = 60};
// Neither nobody's nor the paired device's.
constexpr std::uint64_t OwnWriterBits = std::uint64_t{1} << 63U | 1U;

}  // namespace

std::shared_ptr<PLListWriter> PLListWriter::make(Process& process, std::string domain) {
  return std::make_shared<PLListWriter>(Passkey{}, process, std::move(domain));
}

PLListWriter::PLListWriter(Passkey, Process& process, std::string domain)
    : _process(process),
      _domain(std::move(domain)),
      _preferencesSyncManager(platformOf(process).preferencesSync),
      _saveQueue(
          SerialQueue::make(std::string(PLVendorPrefix) + ".Pellor.PLFriendsManager.Save", QualityOfService::utility)),
      _writer(process.scheduler().randomNumber() | OwnWriterBits),
      _dirtyChunks(process.local<PLPersonChanges>()),
      _steps(process.local<PLPersonChanges>()),
      _retryPauses(RetryPauses) {}

// --- What is to be written -----------------------------------------------------------------------------------------

void PLListWriter::publish(PLSlotList& list, const PLPageNumbers& pages) {
  _dirtyChunks.name(list);
  const MutexLock lock(_mutex);
  _published.pages = pages;
  if (_published.list && _publishedListVersion == list.version()) {
    checkSkip("a list that is not published again to be the published one",
              [&, &published = *_published.list] { return haveSameSlots(published, list.snapshot()); });
    return;
  }
  _publishedListVersion = list.version();
  _published.list = std::make_shared<const PLSlotSnapshot>(list.snapshot());
}

// A save sees both marks or none: a list and its titles by page belong together.
void PLListWriter::markLayout(std::optional<Array> titles, std::optional<bool> awaitsFavorites) {
  auto published = titles ? std::make_shared<const Array>(*std::move(titles)) : nullptr;
  const MutexLock lock(_mutex);
  _needsFriendListSync.store(true, std::memory_order_release);
  if (awaitsFavorites) _awaitsFavorites = awaitsFavorites;
  if (!published) return;
  _published.titles = std::move(published);
  _needsTitlesSync.store(true, std::memory_order_release);
}

void PLListWriter::markFavoritesCame() {
  const MutexLock lock(_mutex);
  _awaitsFavorites = false;
}

void PLListWriter::markTitles(Array titles) {
  auto published = std::make_shared<const Array>(std::move(titles));
  const MutexLock lock(_mutex);
  _published.titles = std::move(published);
  _needsTitlesSync.store(true, std::memory_order_release);
}

void PLListWriter::clearMarks() {
  const MutexLock lock(_mutex);
  _needsFriendListSync.store(false, std::memory_order_release);
  _needsTitlesSync.store(false, std::memory_order_release);
}

void PLListWriter::keepSequenceNumber(std::int32_t number) {
  const MutexLock lock(_mutex);
  _sequenceNumber = number;
}

void PLListWriter::save() {
  if (_steps.isMaking()) return;
  if (isMarked() || _isSaving || _hasFailed || awaitsLoad()) return _requestSave();
  if (std::exchange(_saveIsDue, true)) return;
  _process.mainQueue().async([self = shared_from_this()] {
    self->_saveIsDue = false;
    if (self->isMarked() || self->_isSaving) self->_requestSave();
  });
}

// --- What is known of it -------------------------------------------------------------------------------------------

// A person that comes into the list with a flag comes by an edit, or is marked again as it comes.
bool PLListWriter::isMarked() const {
  if (_needsFriendListSync || _needsTitlesSync || _needsNormalizationMark || _attachedArrays.isMarked()) return true;
  if (_savedMarks != _process.local<PLPersonChanges>().marks) return true;
  const MutexLock lock(_mutex);
  return _sequenceNumber.has_value() || _awaitsFavorites.has_value();
}

bool PLListWriter::awaitsLoad() const {
  const MutexLock lock(_mutex);
  return _phase == Phase::awaitsLoad;
}

bool PLListWriter::isWriting() const {
  const MutexLock lock(_mutex);
  return _phase == Phase::writing;
}

// --- The stored list -----------------------------------------------------------------------------------------------

std::shared_ptr<const PLBaseline> PLListWriter::base() const {
  const MutexLock lock(_mutex);
  return _base;
}

std::uint64_t PLListWriter::storedStep() const {
  const MutexLock lock(_mutex);
  return _storedStep;
}

// Whether that is news.
bool PLListWriter::noteStoredStep(std::uint64_t last) {
  const MutexLock lock(_mutex);
  return last > std::exchange(_storedStep, std::max(_storedStep, last));
}

PLListWriter::Turn PLListWriter::beginLoad(const PreferenceVersion& list, const PreferenceVersion& titles,
                                           const PLAttachedVersions& arrays) {
  const MutexLock lock(_mutex);
  if (_phase != Phase::writing) {
    _phase = Phase::awaitsLoad;
    return Turn::now;
  }
  const bool isBase = _base && _base->listVersion == list && _base->titlesVersion == titles;
  if (isBase && _attachedArrays.areKnown(arrays)) return Turn::nothingNew;
  _loadIsDeferred = true;
  return Turn::later;
}

void PLListWriter::acceptIfWritten(const PLStoredList& stored) {
  std::shared_ptr<const PLListWrite> found;
  {
    const MutexLock lock(_mutex);
    const auto isStored = [&](const auto& write) { return write->isIn(stored); };
    const auto known = std::ranges::find_if(_unknownWrites, isStored);
    if (known == _unknownWrites.end()) return;
    found = *known;
  }
  PLListWrite write = *found;
  if (write.list) write.list = std::make_shared<PLStoredVersion>(*write.list);
  VersionedPreferences written;
  written.emplace(PLFriendListKey, VersionedPreference{stored.list, stored.listVersion});
  written.emplace(PLGroupTitlesKey, VersionedPreference{std::nullopt, stored.titlesVersion});
  for (const auto& [key, array] : stored.attached)
    written.emplace(key, VersionedPreference{std::nullopt, array.version});
  _saveQueue->async([self = shared_from_this(), write] { self->push(write); });
  adopt(write, written);
}

bool PLListWriter::awaitsFavorites(const PLStoredList& stored) {
  const MutexLock lock(_mutex);
  if (_awaitsFavorites == false) return false;
  // A list that was to wait was not stored: another one was.
  _awaitsFavorites.reset();
  return stored.awaitsFavorites;
}

void PLListWriter::takeOver(std::shared_ptr<const PLBaseline> base, PLSlotList& list, const PLPageNumbers& pages) {
  _dirtyChunks.name(list);
  _dirtyChunks.forgetUntil(base->list->changes());
  _publishedListVersion = list.version();
  auto published = std::make_shared<const PLSlotSnapshot>(list.snapshot());
  const MutexLock lock(_mutex);
  _published.list.swap(published);
  _published.pages = pages;
  _base.swap(base);
  _phase = Phase::ready;
  _unknownWrites.clear();
}

void PLListWriter::awaitLoad() {
  const MutexLock lock(_mutex);
  if (_phase == Phase::ready) _phase = Phase::awaitsLoad;
}

}  // namespace pellor
