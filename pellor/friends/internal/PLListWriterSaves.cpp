// How what is marked gets into the store, and what becomes of each answer.
#include <algorithm>
#include <utility>

#include "pellor/friends/PLBundle.h"
#include "pellor/friends/PLFriendsManagerKeys.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/friends/internal/PLListWriter.h"
#include "pellor/platform/Platform.h"
#include "pellor/platform/PreferencesSyncService.h"

namespace pellor {
namespace {

constexpr double SaveDelay = 0.1;
// More writes whose outcome nobody knows are not remembered: merged once more, what such a one wrote stays as it is.
constexpr std::size_t MostUnknownWrites = 16;

}  // namespace

void PLListWriter::_requestSave() {
  _saveQueue->async([self = shared_from_this()] {
    self->_saveQueue->requireCurrent();
    if (self->_saveOperation) self->_saveOperation->invalidate();
    std::weak_ptr<PLListWriter> weak = self;
    self->setSaveOperation(PLDelayedOperation::initWithQueueDelayBlock(self->_saveQueue, SaveDelay, [weak] {
      const auto writer = weak.lock();
      if (!writer) return;
      writer->_saveQueue->requireCurrent();
      writer->_save();
    }));
    self->_saveOperation->execute();
  });
}

void PLListWriter::_save() {
  _isSaving = true;
  writeUnsavedChanges();
  _isSaving = false;
}

void PLListWriter::writeUnsavedChanges() {
  PLListWrite write;
  if (!takeUnsavedChanges(write)) return;
  if (write.isEmpty()) return noteNothingToWrite(write);
  write.id = {_writer, ++_writeCount};
  const auto* touched = write.knowsTouched ? _dirtyChunks.since(write.base->list->changes()) : nullptr;
  const PreferenceChanges changes = write.preferenceChanges(touched);
  if (_steps.mayHaveSeenPart(write.moment)) return giveBack(write);
  finish(write, platformOf(_process).preferences->write(changes, write.id, _domain));
}

// Each mark is taken before what it stands for is read: a change that comes in between is written now, and once more by
// the save that it asks for, rather than never. The sequence number comes first: the changes that it tells of were
// marked before it. False while the stored list has to be loaded, and in the middle of a step, whose end asks for
// another save: the marks stay.
bool PLListWriter::takeUnsavedChanges(PLListWrite& write) {
  _dirtyChunks.gather();
  {
    const MutexLock lock(_mutex);
    const auto moment = _steps.moment();
    if (_phase == Phase::awaitsLoad || !moment) return false;
    _phase = Phase::writing;
    write.moment = *moment;
    write.sequenceNumber = std::exchange(_sequenceNumber, std::nullopt);
    write.awaitsFavorites = std::exchange(_awaitsFavorites, std::nullopt);
    write.layoutChanged = _needsFriendListSync.exchange(false, std::memory_order_acq_rel);
    write.titlesChanged = _needsTitlesSync.exchange(false, std::memory_order_acq_rel);
    write.marksNormalized = _needsNormalizationMark.exchange(false, std::memory_order_acq_rel);
    write.attached = _attachedArrays.take();
    write.published = _published;
    write.base = _base;
  }
  takeUnsavedPersons(write);
  if (!write.isEmpty()) _attachedArrays.takeAlong(write.attached, write.changesList());
  // After the flags of the persons: what they stand for is counted then, and no stored form of before passes for
  // theirs.
  write.changes = _process.local<PLPersonChanges>().changes.load(std::memory_order_acquire);
  write.knowsTouched = _dirtyChunks.isComplete();
  return true;
}

void PLListWriter::noteNothingToWrite(const PLListWrite& write) {
  leaveWriting(Phase::ready);
  if (!write.knowsTouched || _dirtyChunks.isLong()) _dirtyChunks.beginAt(write.changes, write.elsewhere);
  noteFailed(false);
  if (!noteStoredStep(write.moment.steps)) return;
  _process.mainQueue().async([weak = _client, last = write.moment.steps] {
    if (const auto client = weak.lock()) client->stepsNeededNoWrite(last);
  });
}

void PLListWriter::giveBack(const PLListWrite& write) {
  keepUnsavedChanges(write);
  leaveWriting(Phase::ready);
  _requestSave();
}

// When all persons marked since the last save looked are known, only these and the persons that came into the list
// since may carry a flag.
void PLListWriter::takeUnsavedPersons(PLListWrite& write) {
  const auto takeFlag = [&](const Slot& person) {
    if (person != EmptySlot && person->needsSave() && person->takeNeedsSave()) write.persons.push_back(person);
  };
  const PLPersonChanges& changes = _process.local<PLPersonChanges>();
  write.elsewhere = changes.touches.countElsewhere();
  const std::uint64_t marks = changes.marks.load(std::memory_order_acquire);
  if (_savedList && (marks == _savedMarks || _dirtyChunks.isComplete())) {
    _dirtyChunks.visit(*write.published.list, *_savedList, takeFlag);
  } else {
    write.published.list->forEach(takeFlag);
  }
  _savedMarks = marks;
  _savedList = write.published.list;
}

void PLListWriter::finish(PLListWrite& write, const PreferenceWriteAnswer& answer) {
  switch (answer.outcome) {
    case PreferenceWriteOutcome::written:
      return accept(write, answer.written);
    case PreferenceWriteOutcome::overtaken:
      keepUnsavedChanges(write);
      leaveWriting(Phase::awaitsLoad);
      return tellClient(&PLListWriterClient::listWasOvertaken);
    case PreferenceWriteOutcome::failed:
      keepUnsavedChanges(write);
      noteFailed(true);
      leaveWriting(Phase::ready);
      return retryLater();
    case PreferenceWriteOutcome::unknown:
      keepUnsavedChanges(write);
      noteFailed(true);
      rememberUnknown(write);
      leaveWriting(Phase::awaitsLoad);
      return askForLoadLater();
  }
}

void PLListWriter::accept(PLListWrite& write, const VersionedPreferences& written) {
  if (write.list) _dirtyChunks.beginAt(write.changes, write.elsewhere);
  noteFailed(false);
  _retryPauses.reset();
  push(write);
  adopt(write, written);
  leaveWriting(Phase::ready);
}

// Makes what the store has accepted the baseline, and tells of it.
void PLListWriter::adopt(PLListWrite& write, const VersionedPreferences& written) {
  write.takeOver(written);
  _attachedArrays.noteWritten(write.attached, written);
  if (write.list) _PLGetLogSystem().log(LogFormat("friend list saved").as("_save"));
  const std::shared_ptr<const PLBaseline> base = write.baseAfter();
  noteStoredStep(write.moment.steps);
  if (base) {
    const MutexLock lock(_mutex);
    _base = base;
    _unknownWrites.clear();
  }
  tellWritten({write.list != nullptr, write.titlesChanged, !write.attached.empty(), base,
               write.published.list->version(), write.sequenceNumber, write.moment.steps});
}

void PLListWriter::rememberUnknown(const PLListWrite& write) {
  if (!write.changesBase()) return;
  const MutexLock lock(_mutex);
  if (_unknownWrites.size() == MostUnknownWrites) _unknownWrites.erase(_unknownWrites.begin());
  _unknownWrites.push_back(std::make_shared<const PLListWrite>(write));
}

void PLListWriter::push(const PLListWrite& write) {
  const std::set<std::string> keys = write.pushedKeys();
  if (!keys.empty() && _preferencesSyncManager->hasCompletedInitialSync()) {
    _preferencesSyncManager->synchronizeDomainKeys(_domain, keys);
  }
}

void PLListWriter::keepUnsavedChanges(const PLListWrite& write) {
  for (const auto& person : write.persons) person->setNeedsSave(true);
  _attachedArrays.giveBack(write.attached);
  const MutexLock lock(_mutex);
  if (write.titlesChanged) _needsTitlesSync.store(true, std::memory_order_release);
  if (write.marksNormalized) _needsNormalizationMark.store(true, std::memory_order_release);
  if (write.layoutChanged) _needsFriendListSync.store(true, std::memory_order_release);
  if (!_sequenceNumber) _sequenceNumber = write.sequenceNumber;
  if (!_awaitsFavorites) _awaitsFavorites = write.awaitsFavorites;
}

void PLListWriter::leaveWriting(Phase phase) {
  bool isDeferred = false;
  {
    const MutexLock lock(_mutex);
    _phase = phase;
    isDeferred = std::exchange(_loadIsDeferred, false);
  }
  // When the write was overtaken the load is asked for anyway.
  if (isDeferred && phase == Phase::ready) tellClient(&PLListWriterClient::loadIsDue);
}

void PLListWriter::noteFailed(bool hasFailed) {
  if (_hasFailed.exchange(hasFailed) != hasFailed) tellClient(&PLListWriterClient::writeTroubleChanged);
}

void PLListWriter::tellClient(void (PLListWriterClient::*tell)()) {
  _process.mainQueue().async([weak = _client, tell] {
    if (const auto client = weak.lock()) (client.get()->*tell)();
  });
}

void PLListWriter::askForLoadLater() {
  std::weak_ptr<PLListWriter> weak = weak_from_this();
  _retryTimer = Timer::after(*_saveQueue, _retryPauses.next(), [weak] {
    if (const auto self = weak.lock()) self->tellClient(&PLListWriterClient::loadIsDue);
  });
}

void PLListWriter::retryLater() {
  std::weak_ptr<PLListWriter> weak = weak_from_this();
  _retryTimer = Timer::after(*_saveQueue, _retryPauses.next(), [weak] {
    const auto self = weak.lock();
    if (!self) return;
    self->_saveQueue->requireCurrent();
    self->_save();
  });
}

void PLListWriter::tellWritten(PLAcceptedWrite write) {
  _process.mainQueue().async([weak = _client, write = std::move(write)] {
    if (const auto client = weak.lock()) client->listWasWritten(write);
  });
}

}  // namespace pellor
