// What the manager decides by itself: friends whom the contacts changed, clean-up, and what it tells of both.
#include "pellor/friends/PLChangeLog.h"
#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/friends/internal/PLCleanUp.h"
#include "pellor/friends/internal/PLFriendsManagerParts.h"
#include "pellor/friends/internal/PLListWriter.h"
#include "pellor/friends/internal/PLPendingChanges.h"

namespace pellor {

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
    _parts->publishList();
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

void PLFriendsManager::_cleanUpFriendListIfNecessary() {
  _parts->exceptions.dropByList();
  _deduplicateFriendListIfNecessary();
  _removeDestinationlessFriendsIfNecessary();
  save();
}

void PLFriendsManager::_deduplicateFriendListIfNecessary() {
  if (!_parts->settings.shouldDeduplicateFriendList()) return;
  const auto repeated = plRepeatedFriends(_parts->friendList, _parts->exceptions);
  _tellRemovals(PLDecisionKind::deduplicated, repeated);
  _removeFriendsAtIndices(repeated);
}

void PLFriendsManager::_removeDestinationlessFriendsIfNecessary() {
  if (!_parts->settings.shouldRemoveDestinationlessFriends()) return;
  const auto unreachable = plDestinationlessFriends(_parts->friendList, _parts->exceptions);
  _tellRemovals(PLDecisionKind::cleanedUp, unreachable);
  _removeFriendsAtIndices(unreachable);
}

// `indices`, ascending, name slots of the list as it is on entry. A group that empties vanishes with its slots, and the
// later slots move down by that much.
void PLFriendsManager::_removeFriendsAtIndices(const std::vector<std::uint64_t>& indices) {
  std::uint64_t vanished = 0;
  for (const std::uint64_t named : indices) {
    const std::uint64_t index = named - vanished;
    const auto person = _parts->pages._friendAtPosition(index);
    _pendingChanges->_addEntryToChangeLogForPersonChangeType(person, PLFriendsManagerPersonDeleted);
    const std::uint64_t groupIndex = index / _parts->settings.maxFriendsPerGroup();
    if (groupIndex >= _parts->pages.count()) continue;
    const auto group = friendGroups()[groupIndex];
    _parts->takeover.noteAutomaticRemoval(person);
    group->removeFriendAtPosition(index % _parts->settings.maxFriendsPerGroup());
    if (!_parts->pages.indexOfGroup(*group)) vanished += _parts->settings.maxFriendsPerGroup();
  }
}

}  // namespace pellor
