// The pages over the flat list.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "pellor/friends/PLFriendGroupDelegate.h"
#include "pellor/friends/internal/PLBaseline.h"
#include "pellor/friends/internal/PLMergeInput.h"
#include "pellor/friends/internal/PLSlotList.h"
#include "pellor/runtime/Process.h"

namespace pellor {

class PLDomainSettings;
class PLFriendGroup;

/// The groups of a list in their order, each over its part of the flat list, and which page each of them is. Its
/// invariant: the list has slots for every group, and a group has the content of its slots but for friends that it was
/// given without a report. Main queue.
class PLPageLayout {
 public:
  /// `friends` and `settings` outlive this object. `groupListChanged` is called after groups came or went in a way that
  /// observers are told of.
  PLPageLayout(Process& process, PLSlotList& friends, const PLDomainSettings& settings,
               std::function<void()> groupListChanged);

  /// The delegate that groups report to; before there is a group.
  void setDelegate(std::weak_ptr<PLFriendGroupDelegate> delegate) { _delegate = std::move(delegate); }

  // --- Slots ---

  /// The friend in a slot; null for an empty one and beyond the list.
  std::shared_ptr<PLPerson> _friendAtPosition(std::uint64_t index) const;
  /// The lowest empty slot; `NotFound` without one.
  std::uint64_t _firstEmptyPosition() const;
  std::uint64_t _numberOfFriendsInList() const { return _friendList.occupiedCount(); }
  /// How many slots there may be.
  std::uint64_t _slotCapacity() const;

  // --- Groups ---

  /// The live array, which changes with the next edit.
  const std::vector<std::shared_ptr<PLFriendGroup>>& friendGroups() const { return _friendGroups; }
  std::uint64_t count() const { return _friendGroups.size(); }
  /// Grows as groups come, go and move.
  std::uint64_t version() const { return _version; }
  /// Slots of a group.
  std::uint64_t groupSize() const;
  /// The place of a group; absent for one that is none of these.
  std::optional<std::uint64_t> indexOfGroup(const PLFriendGroup& group) const;
  /// The slot of a position in a group; beyond every list for a group that is none of these.
  std::uint64_t _indexForPositionInGroup(std::uint64_t position, const PLFriendGroup& group) const;
  bool _canAddFriendGroup() const;
  /// The first group with an empty slot; null when all are full.
  std::shared_ptr<PLFriendGroup> firstGroupWithRoom() const;
  /// A slot of this group may have become empty.
  void noteRoom(std::uint64_t index);

  /// Whether an empty group is due behind the last one.
  bool _shouldAddEmptyGroup() const;
  /// Appends a group. It gets the slots that the list has at its place already, so that friends that no group had come
  /// to light; missing ones are appended to the list.
  void _addEmptyGroup();
  /// Puts an empty group before the one with that index, or behind the last one, and slots for it. Where a page of
  /// `base` was taken out it is that page again.
  std::shared_ptr<PLFriendGroup> insertEmptyGroup(std::uint64_t index, const PLBaseline& base);
  /// Gives a group another index, and its slots with it. It is another page from now on.
  void moveGroup(std::uint64_t from, std::uint64_t to);
  /// Takes a group out, and its slots out of the list. Ignored for an index beyond the end.
  void _removeGroupAtIndex(std::uint64_t index);
  /// Takes the groups from `index` on out. Their slots stay.
  void dropGroupsFrom(std::uint64_t index);
  /// Lays the groups out over the list as it is now: as many as there is room for in it and in the settings, and an
  /// empty one behind them where one is due. A group whose slots did not change keeps its content untouched.
  void _updateFriendGroups();

  // --- Pages: which group is which, whatever was put in front of it ---

  /// The number of a group's page, which no other group gets.
  std::uint64_t pageNumber(std::uint64_t index) const { return _numbers[index]; }
  /// The numbers of all groups; one object until groups come or go.
  PLPageNumbers pageNumbers();
  /// For each group the page of the baseline that it is; empty when all are at their places. Groups that were appended
  /// are the pages behind those of the baseline.
  PLPageOrigins pagesInBase(const PLBaseline& base) const;
  /// Whether pages of the baseline stand elsewhere now, or are gone.
  bool havePagesMoved(const PLBaseline& base) const;
  /// The page of the loaded list that a group has. Groups behind the pages that were merged are pages behind that list.
  /// `merged` null: the list was loaded as it is.
  std::optional<std::uint64_t> pageInTheirs(std::uint64_t groupIndex, const LongArray& theirs,
                                            const PLMergeResult* merged) const;
  /// The numbers of the groups that have the pages of the loaded list; pages that no group has get numbers of their
  /// own.
  PLPageNumbers pageNumbersOfTheirs(const LongArray& theirs, const PLMergeResult* merged);

  // --- Invariants ---

  /// What is wrong even while a group waits to be synchronised; absent when nothing is.
  std::optional<std::string> violation() const;
  /// Whether each group has the content of its slots.
  bool haveGroupsTheirSlots() const;
  /// Whether no group that `firstGroupWithRoom` does not look at has room.
  bool areSkippedGroupsFull() const;

 private:
  void appendGroup();
  void noteOtherPages() {
    _sharedNumbers = nullptr;
    ++_version;
  }
  std::optional<std::uint64_t> pageTakenOutAt(std::uint64_t index, const PLBaseline& base) const;
  std::vector<Slot> slotsOfGroup(std::uint64_t index) const;
  void updateGroup(std::uint64_t index);
  void updateChangedGroups(std::uint64_t firstNewGroup);
  std::uint64_t pageCountOf(const LongArray& list) const;

  Process& _process;
  PLSlotList& _friendList;
  const PLDomainSettings& _settings;
  const std::function<void()> _groupListChanged;
  std::weak_ptr<PLFriendGroupDelegate> _delegate;
  std::vector<std::shared_ptr<PLFriendGroup>> _friendGroups;
  std::unordered_map<const PLFriendGroup*, std::uint64_t> _indexes;
  std::vector<std::uint64_t> _numbers;  // of the groups' pages
  std::uint64_t _lastNumber = 0;
  PLPageNumbers _sharedNumbers;  // null when groups came or went since
  std::uint64_t _version = 0;
  mutable std::uint64_t _firstGroupThatMayHaveRoom = 0;
  PLSlotSnapshot _laidOutList;            // which the groups have, but for what was given to them since
  std::uint64_t _laidOutAssignments = 0;  // of friends to groups, those of the layout included
};

}  // namespace pellor
