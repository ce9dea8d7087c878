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
  /// A friend was written into a slot. One that stood there before is not reported.
  virtual void friendGroupDidSetFriendAtPosition(const std::shared_ptr<PLFriendGroup>& group,
                                                 const std::shared_ptr<PLPerson>& person, std::uint64_t position) = 0;
  /// A slot was emptied. `person` is the friend who was removed, null when an empty slot was set instead.
  virtual void friendGroupDidRemoveFriendAtPosition(const std::shared_ptr<PLFriendGroup>& group,
                                                    const std::shared_ptr<PLPerson>& person,
                                                    std::uint64_t position) = 0;
  /// The slots were rearranged. Never sent by a group itself: it is for whoever rearranges one.
  virtual void friendGroupDidMoveFriends(const std::shared_ptr<PLFriendGroup>& group,
                                         const std::vector<std::shared_ptr<PLPerson>>& friends) = 0;
};

}  // namespace pellor
