// Does a step to the list of a manager.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <vector>

#include "pellor/list/internal/ListMirror.h"
#include "pellor/list/internal/ListStep.h"

namespace pellor {

class PLFriendGroup;
class PLFriendsManager;
class PLPerson;

/// Makes the manager's list what the step's draft says. The draft was begun with what the manager has. Within
/// `PLFriendsManager::performStep`; one step each. Main queue.
class StepPerformer {
 public:
  /// All outlive the performer.
  StepPerformer(PLFriendsManager& manager, const FriendIds& ids, const ListStep& step);

  void perform();

 private:
  using Group = std::shared_ptr<PLFriendGroup>;
  struct Move {
    FriendId id;
    Place from;  // before
  };

  void sort();
  std::shared_ptr<PLPerson> personOf(FriendId id) const;
  Group groupAt(std::size_t index) const;
  void removeLeavers();
  void liftMoved();
  void arrangePages();
  void removePages();
  void setContents();
  void putNewcomers();
  void setTitles();
  void setFields();

  PLFriendsManager& _manager;
  const FriendIds& _ids;
  const ListStep& _step;
  std::vector<Move> _leavers;  // by place
  std::vector<Move> _moved;
  std::vector<FriendId> _comers;
  std::vector<PageId> _pages;  // of the groups as they are
};

}  // namespace pellor
