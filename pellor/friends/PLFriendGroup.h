// One page of the friend list.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/friends/PLFriendGroupDelegate.h"
#include "pellor/friends/PLSlot.h"
#include "pellor/runtime/Object.h"

namespace pellor {

class PLFriendGroup;
class PLPerson;
class Process;

/// Posted on the main queue after a group's title changed. Object: the group, null when it is gone. No user info.
inline constexpr std::string_view PLFriendGroupTitleChangedNotification = "PLFriendGroupTitleChangedNotification";

// What the adding operations report.
inline constexpr std::uint32_t PLFriendGroupErrorNone = 0;             ///< the slot was written
inline constexpr std::uint32_t PLFriendGroupErrorCapacityReached = 1;  ///< there is no empty slot
inline constexpr std::uint32_t PLFriendGroupErrorOutOfRange = 2;       ///< the group has no such slot

/// How often the groups of a process were given friends without a report: `process.local<PLUnreportedAssignments>()`.
/// Main queue.
struct PLUnreportedAssignments {
  std::uint64_t count = 0;
};

/// How often groups of a process were given another title, by any caller: `process.local<PLTitleAssignments>()`. Main
/// queue.
struct PLTitleAssignments {
  std::uint64_t count = 0;
};

/// A fixed number of slots, numbered from 0, each with a friend or `EmptySlot`; a title; and a position that the user
/// interface remembers. A group saves nothing and posts nothing but titles: its delegate does. Main queue; elsewhere
/// fatal in debug builds.
class PLFriendGroup : public Object, public std::enable_shared_from_this<PLFriendGroup> {
  struct Passkey {};

 public:
  /// A group of 10 empty slots.
  static std::shared_ptr<PLFriendGroup> init();
  /// A group of `size` empty slots, without title and delegate; 0 makes a group that is always full.
  static std::shared_ptr<PLFriendGroup> initWithGroupSize(std::uint64_t size);
  /// `initWithDelegate:groupSize:`. A group of `size` empty slots with a delegate, which is held weakly.
  static std::shared_ptr<PLFriendGroup> initWithDelegateGroupSize(std::weak_ptr<PLFriendGroupDelegate> delegate,
                                                                  std::uint64_t size);
  PLFriendGroup(Passkey, std::uint64_t size);

  // --- Queries ---

  /// The friend in a slot; null for an empty one and for a position that the group does not have.
  std::shared_ptr<PLPerson> friendAtPosition(std::uint64_t position) const;
  /// The lowest position of this very person; `NotFound` when it is in no slot.
  std::uint64_t positionOfFriend(const std::shared_ptr<PLPerson>& person) const;
  /// Whether this very person is in a slot. False for null.
  bool containsFriend(const std::shared_ptr<PLPerson>& person) const;
  /// How many slots hold a friend.
  std::uint64_t count() const;
  /// Whether no slot is empty.
  bool isFull() const;
  /// How many slots there are.
  std::uint64_t groupSize() const { return _groupSize; }
  /// All slots in order, empty ones included: the live array, which changes with the next edit.
  const std::vector<std::shared_ptr<PLPerson>>& friends() const;
  /// What to call the group: its title, else the names of its friends, those with a name first, joined by `separator`.
  /// A friend without a name is shown by its number or by the part of its address before the "@". Absent when that
  /// leaves nothing.
  std::optional<std::string> displayNameForGroupWithSeparator(std::string_view separator) const;

  // --- Changes, reported to the delegate ---

  /// `addFriend:error:`. Puts a friend into the lowest empty slot; null leaves that slot empty, and is reported.
  /// `error` becomes PLFriendGroupErrorNone or, when nothing was changed, PLFriendGroupErrorCapacityReached.
  void addFriend(const std::shared_ptr<PLPerson>& person, std::uint32_t& error);
  /// `setFriend:atPosition:error:`. Puts a friend into a slot in place of its content, or empties the slot when
  /// `person` is null. `error` becomes PLFriendGroupErrorNone or, when nothing was changed,
  /// PLFriendGroupErrorOutOfRange.
  void setFriendAtPosition(std::shared_ptr<PLPerson> person, std::uint64_t position, std::uint32_t& error);
  /// Empties a slot. Nothing happens when it is empty or when there is no such slot.
  void removeFriendAtPosition(std::uint64_t position);

  // --- Changes that are not reported ---

  /// Replaces the content of all slots: `friends` has exactly as many entries as the group has slots. With fewer a
  /// later read of a missing slot ends the program.
  void setFriends(std::vector<std::shared_ptr<PLPerson>> friends);

  /// Absent when there is none.
  std::optional<std::string> title() const;
  /// Posts PLFriendGroupTitleChangedNotification when the title is another one than before; absent takes it away.
  void setTitle(std::optional<std::string> title);
  std::uint64_t selectedPosition() const;
  /// Any number, 0 at first: it is kept, not checked.
  void setSelectedPosition(std::uint64_t position);
  /// Null when there is none any more.
  std::shared_ptr<PLFriendGroupDelegate> delegate() const;
  /// Held weakly. Without one changes are reported to nobody.
  void setDelegate(std::weak_ptr<PLFriendGroupDelegate> delegate);

 private:
  std::int64_t _firstEmptyPosition() const;
  const std::shared_ptr<PLPerson>& _slotAt(std::uint64_t position) const;
  void _storeInSlot(std::shared_ptr<PLPerson> person, std::uint64_t position);
  void _skipOccupiedSlots();
  void _checkQueue(std::string_view operation) const;

  Process& _process;
  std::vector<std::shared_ptr<PLPerson>> _friendsManager;  // the slots, despite the name
  const std::uint64_t _groupSize;
  std::optional<std::string> _title;
  std::uint64_t _selectedPosition = 0;
  std::weak_ptr<PLFriendGroupDelegate> _delegate;
  // Kept so that a list of many groups can ask each of them.
  std::uint64_t _occupiedCount = 0;
  std::uint64_t _lowestEmptyPosition = 0;  // `_groupSize` when all are occupied
};

}  // namespace pellor
