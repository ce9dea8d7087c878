// What a page of the friend list reports.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace pellor {

class PLFriendGroup;
class PLPerson;

/// Told of every change that a group makes to its slots, after the slot changed and before the operation returns. Main
/// queue. May edit groups, and may drop the group that reports.
class PLFriendGroupDelegate {
 public:
  virtual ~PLFriendGroupDelegate() = default;
  /// `friendGroup:didSetFriend:atPosition:`. A friend was written into a slot. A friend that stood there before is not
  /// reported.
  virtual void friendGroupDidSetFriendAtPosition(const std::shared_ptr<PLFriendGroup>& group,
                                                 const std::shared_ptr<PLPerson>& person, std::uint64_t position) = 0;
  /// `friendGroup:didRemoveFriend:atPosition:`. A slot was emptied. `person` is the removed friend, null when an empty
  /// slot was set instead.
  virtual void friendGroupDidRemoveFriendAtPosition(const std::shared_ptr<PLFriendGroup>& group,
                                                    const std::shared_ptr<PLPerson>& person,
                                                    std::uint64_t position) = 0;
  /// `friendGroup:didMoveFriends:`. The slots were rearranged. A group never sends this itself: a caller that
  /// rearranges a group does.
  virtual void friendGroupDidMoveFriends(const std::shared_ptr<PLFriendGroup>& group,
                                         const std::vector<std::shared_ptr<PLPerson>>& friends) = 0;
};

}  // namespace pellor
