// The manager's part in steps, and in groups that are put in and taken out by themselves.
#include "pellor/friends/PLChangeLog.h"
#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/friends/internal/PLFriendsManagerParts.h"
#include "pellor/friends/internal/PLListWriter.h"
#include "pellor/friends/internal/PLMainQueueCheck.h"
#include "pellor/friends/internal/PLPendingChanges.h"
#include "pellor/platform/PreferencesSyncService.h"

namespace pellor {

std::uint64_t PLFriendsManager::performStep(const std::function<void()>& edits) {
  checkMainQueue(_process, "performStep");
  const Process::Scope scope(_process);
  const std::uint64_t number = _parts->steps.perform(edits, [this] {
    if (_didCompleteInitialLoading && _parts->pages._shouldAddEmptyGroup()) {
      _parts->pages._addEmptyGroup();
      _markLayoutChanged();
    }
    _markNewTitles();
    _publishList();
  });
  _checkInvariants();
  return number;
}

void PLFriendsManager::setStepClient(std::weak_ptr<PLStepClient> client) {
  checkMainQueue(_process, "setStepClient");
  _parts->steps.setClient(std::move(client));
}

// Titles that were set go out with what was edited beside them.
void PLFriendsManager::_markNewTitles() {
  const auto base = _writer->base();
  const bool areTitlesWritten = !_writer->needsTitlesSync() && !_writer->isSaving();
  if (base && _parts->titles.haveNew(areTitlesWritten ? base.get() : nullptr)) {
    _writer->markTitles(_parts->titles.storedAfter(*base));
  }
}

std::shared_ptr<PLFriendGroup> PLFriendsManager::insertEmptyGroupAtIndex(std::uint64_t index) {
  checkMainQueue(_process, "insertEmptyGroupAtIndex");
  const auto base = _writer->base();
  PLPageLayout& pages = _parts->pages;
  if (!base || index > pages.count() || !pages._canAddFriendGroup()) return nullptr;
  _parts->titles.notePagesWillMove();
  const auto group = pages.insertEmptyGroup(index, *base);
  _markLayoutChanged();
  save();
  _checkInvariants();
  return group;
}

bool PLFriendsManager::removeFriendGroupAtIndex(std::uint64_t index) {
  checkMainQueue(_process, "removeFriendGroupAtIndex");
  PLPageLayout& pages = _parts->pages;
  if (index >= pages.count()) return false;
  const auto group = friendGroups()[index];
  _parts->steps.keepGroupsDuring([&] {
    for (std::uint64_t position = 0; position < group->groupSize(); ++position) {
      if (group->friendAtPosition(position)) group->removeFriendAtPosition(position);
    }
  });
  if (const auto left = pages.indexOfGroup(*group); left && pages.count() > 1) {
    _removeGroupAtIndex(*left);
    if (!_parts->steps.keepsEmptiedGroups() && pages._shouldAddEmptyGroup()) pages._addEmptyGroup();
    _markLayoutChanged();
  }
  save();
  _checkInvariants();
  return true;
}

// For others it is a page that comes and one that goes: pages keep their order in a merge.
bool PLFriendsManager::moveFriendGroupToIndex(std::uint64_t from, std::uint64_t to) {
  checkMainQueue(_process, "moveFriendGroupToIndex");
  PLPageLayout& pages = _parts->pages;
  if (from >= pages.count() || to >= pages.count()) return false;
  if (from == to) return true;
  _parts->titles.notePagesWillMove();
  pages.moveGroup(from, to);
  for (const auto& person : friendGroups()[to]->friends())
    if (person) _pendingChanges->_addEntryToChangeLogForPersonChangeType(person, PLFriendsManagerPersonMoved);
  if (!_parts->steps.keepsEmptiedGroups() && pages._shouldAddEmptyGroup()) pages._addEmptyGroup();
  _markLayoutChanged();
  _postChangeNotificationIfNecessary();
  save();
  _checkInvariants();
  return true;
}

void PLFriendsManager::purgeEmptyFriendGroups() {
  checkMainQueue(_process, "purgeEmptyFriendGroups");
  const auto groupCount = _parts->pages.count();
  if (groupCount < 2) return;
  // The last group is spared: it is the one that new friends are dropped into.
  for (std::uint64_t next = groupCount - 1; next > 0; --next) {
    if (friendGroups()[next - 1]->count() == 0) _removeGroupAtIndex(next - 1);
  }
  if (_parts->pages.count() == groupCount) return;
  _markLayoutChanged();
  save();
  _checkInvariants();
}

// What others stored is shown to the client with the objects that its friends have here, then what nobody tells of.
void PLFriendsManager::_judgeSteps(const PLStoredList& stored) {
  if (!_writer->base()) return;
  _writer->acceptIfWritten(stored);
  auto base = _writer->base();
  const bool isForeign = _parts->steps.isForeign(*base, stored);
  const bool areToBeJudged = _parts->steps.areToBeJudged(*base, stored);
  if (!isForeign && !areToBeJudged) return;
  _publishList();
  if (!comesFrom(*base, stored)) base = std::make_shared<const PLBaseline>();
  const PLOwnPages pages = _parts->ownPages(*base);
  if (areToBeJudged) {
    PLStoredPages theirs = _parts->takeover.pagesOf(*base, stored, pages, _writer->dirtyChunks());
    theirs.storedStep = _writer->storedStep();
    theirs.hasNewHistory = !_writer->attachedArrays().areHistoriesUntouched(stored.attached);
    for (const auto& [key, array] : stored.attached) theirs.attached.emplace(key, array.elements);
    for (const auto& [key, array] : _writer->attachedArrays().known())
      theirs.attachedBefore.emplace(key, array.elements);
    _parts->steps.judge(theirs);
  }
  if (isForeign)
    _parts->steps.tellForeignEdit(_parts->takeover.foreignEdit(*base, stored, pages, _writer->dirtyChunks()));
}

// Who wrote what is about to be taken over; absent when it is what is known already.
std::optional<PLChangeOrigin> PLFriendsManager::_originOf(const PLStoredList& stored) const {
  if (!_didCompleteInitialLoading) return PLChangeOrigin::load;
  const auto base = _writer->base();
  if (!base) return std::nullopt;
  const bool isOtherList = base->listVersion != stored.listVersion;
  if (!isOtherList && base->titlesVersion == stored.titlesVersion) return std::nullopt;
  const PreferenceVersion& version = isOtherList ? stored.listVersion : stored.titlesVersion;
  return isWriteOfPairedDevice(version.write) ? PLChangeOrigin::device : PLChangeOrigin::otherProcess;
}

// A friend that is there twice may have become so by contacts that are gone for a while.
void PLFriendsManager::_cleanUpAfterLoad() {
  if (_parts->contactsRefresh.isHeld()) return;
  _tellIfChangedByContacts([this] { _cleanUpFriendListIfNecessary(); });
}

void PLFriendsManager::_tellIfChangedByContacts(const std::function<void()>& follow) {
  const PLPersonChanges& persons = _process.local<PLPersonChanges>();
  const auto state = [&] { return std::pair(_parts->friendList.version(), persons.marks.load()); };
  _parts->steps.follow([&] {
    const auto before = state();
    follow();
    _publishList();
    if (state() != before) _parts->steps.tellChange(PLChangeOrigin::contacts);
  });
}

// Before they leave. Friends beyond the groups stay.
void PLFriendsManager::_tellRemovals(PLDecisionKind kind, const std::vector<std::uint64_t>& indices) {
  for (const std::uint64_t index : indices) {
    if (index / _parts->settings.maxFriendsPerGroup() >= _parts->pages.count()) continue;
    const auto& person = _parts->friendList.at(index);
    const auto guid = person->abRecordGUID();
    Dictionary evidence;
    if (guid) evidence.emplace("guid", *guid);
    if (kind == PLDecisionKind::deduplicated)
      evidence.emplace("stays", friendsWithIdentifier(*guid).front()->displayName().value_or(""));
    _parts->steps.tellDecision({kind, person, {}, std::move(evidence), index});
  }
}

std::string PLFriendsManager::listVersion() const {
  const auto base = _writer->base();
  if (!base) return {};
  std::string text;
  for (const PreferenceVersion& version : {base->listVersion, base->titlesVersion})
    text += std::to_string(version.store) + "." + std::to_string(version.count) + ".";
  return text;
}

void PLFriendsManager::attach(const std::string& key, std::size_t mostElements, const std::string& order) {
  checkMainQueue(_process, "attach");
  PLAttachedArrays& arrays = _writer->attachedArrays();
  if (!arrays.contains(key)) _parts->listReader.attach(key);
  arrays.attach(key, {mostElements, order});
  // A load that is due reads it.
  if (!_didCompleteInitialLoading) return;
  PLStoredList stored;
  const bool isReadable = _parts->listReader.read(stored) != PLListReader::Answer::unreadable;
  if (!isReadable) return _retryLoadLater();
  const auto base = _writer->base();
  const bool isBaseline =
      base && base->listVersion == stored.listVersion && base->titlesVersion == stored.titlesVersion;
  arrays.takeOver({{key, stored.attached.at(key)}}, isBaseline);
}

const LongArray& PLFriendsManager::attached(const std::string& key) const {
  checkMainQueue(_process, "attached");
  return _writer->attachedArrays().at(key);
}

void PLFriendsManager::setAttached(const std::string& key, LongArray elements) {
  checkMainQueue(_process, "setAttached");
  _writer->attachedArrays().set(key, std::move(elements));
  save();
}

}  // namespace pellor
