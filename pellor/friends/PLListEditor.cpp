#include "pellor/friends/PLListEditor.h"

#include <utility>

#include "pellor/friends/PLChangeLog.h"
#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/internal/PLFriendsManagerParts.h"
#include "pellor/friends/internal/PLListWriter.h"
#include "pellor/friends/internal/PLMainQueueCheck.h"
#include "pellor/friends/internal/PLPendingChanges.h"

namespace pellor {

PLListEditor::PLListEditor(Process& process, PLFriendsManagerParts& parts, PLPendingChanges& pendingChanges,
                           Handlers handlers)
    : _process(process), _parts(parts), _pendingChanges(pendingChanges), _handlers(std::move(handlers)) {}

std::uint64_t PLListEditor::performStep(const std::function<void()>& edits) {
  checkMainQueue(_process, "performStep");
  const Process::Scope scope(_process);
  const std::uint64_t number = _parts.steps.perform(edits, [this] {
    if (_handlers.isLoaded() && _parts.pages._shouldAddEmptyGroup()) {
      _parts.pages._addEmptyGroup();
      _parts.markLayoutChanged();
    }
    _parts.markNewTitles();
    _parts.publishList();
  });
  _handlers.checkInvariants();
  return number;
}

void PLListEditor::setStepClient(std::weak_ptr<PLStepClient> client) {
  checkMainQueue(_process, "setStepClient");
  _parts.steps.setClient(std::move(client));
}

std::shared_ptr<PLFriendGroup> PLListEditor::insertEmptyGroupAtIndex(std::uint64_t index) {
  checkMainQueue(_process, "insertEmptyGroupAtIndex");
  const auto base = _parts.writer.base();
  PLPageLayout& pages = _parts.pages;
  if (!base || index > pages.count() || !pages._canAddFriendGroup()) return nullptr;
  _parts.titles.notePagesWillMove();
  const auto group = pages.insertEmptyGroup(index, *base);
  _parts.markLayoutChanged();
  _parts.save();
  _handlers.checkInvariants();
  return group;
}

bool PLListEditor::removeFriendGroupAtIndex(std::uint64_t index) {
  checkMainQueue(_process, "removeFriendGroupAtIndex");
  PLPageLayout& pages = _parts.pages;
  if (index >= pages.count()) return false;
  const auto group = pages.friendGroups()[index];
  _parts.steps.keepGroupsDuring([&] {
    for (std::uint64_t position = 0; position < group->groupSize(); ++position) {
      if (group->friendAtPosition(position)) group->removeFriendAtPosition(position);
    }
  });
  if (const auto left = pages.indexOfGroup(*group); left && pages.count() > 1) {
    _parts._removeGroupAtIndex(*left);
    if (!_parts.steps.keepsEmptiedGroups() && pages._shouldAddEmptyGroup()) pages._addEmptyGroup();
    _parts.markLayoutChanged();
  }
  _parts.save();
  _handlers.checkInvariants();
  return true;
}

// For others it is a page that comes and one that goes: pages keep their order in a merge.
bool PLListEditor::moveFriendGroupToIndex(std::uint64_t from, std::uint64_t to) {
  checkMainQueue(_process, "moveFriendGroupToIndex");
  PLPageLayout& pages = _parts.pages;
  if (from >= pages.count() || to >= pages.count()) return false;
  if (from == to) return true;
  _parts.titles.notePagesWillMove();
  pages.moveGroup(from, to);
  for (const auto& person : pages.friendGroups()[to]->friends())
    if (person) _pendingChanges._addEntryToChangeLogForPersonChangeType(person, PLFriendsManagerPersonMoved);
  if (!_parts.steps.keepsEmptiedGroups() && pages._shouldAddEmptyGroup()) pages._addEmptyGroup();
  _parts.markLayoutChanged();
  _handlers.postChanges();
  _parts.save();
  _handlers.checkInvariants();
  return true;
}

void PLListEditor::attach(const std::string& key, std::size_t mostElements, const std::string& order) {
  checkMainQueue(_process, "attach");
  PLAttachedArrays& arrays = _parts.writer.attachedArrays();
  if (!arrays.contains(key)) _parts.listReader.attach(key);
  arrays.attach(key, {mostElements, order});
  // A load that is due reads it.
  if (!_handlers.isLoaded()) return;
  PLStoredList stored;
  const bool isReadable = _parts.listReader.read(stored) != PLListReader::Answer::unreadable;
  if (!isReadable) return _parts.storeFailures.loadLater();
  const auto base = _parts.writer.base();
  const bool isBaseline =
      base && base->listVersion == stored.listVersion && base->titlesVersion == stored.titlesVersion;
  arrays.takeOver({{key, stored.attached.at(key)}}, isBaseline);
}

const LongArray& PLListEditor::attached(const std::string& key) const {
  checkMainQueue(_process, "attached");
  return _parts.writer.attachedArrays().at(key);
}

void PLListEditor::setAttached(const std::string& key, LongArray elements) {
  checkMainQueue(_process, "setAttached");
  _parts.writer.attachedArrays().set(key, std::move(elements));
  _parts.save();
}

}  // namespace pellor
