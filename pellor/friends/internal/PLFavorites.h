// The persons behind the phone favorites, and a first list that waits for them.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "pellor/friends/PLPerson.h"
#include "pellor/friends/internal/PLRetryTimer.h"
#include "pellor/friends/internal/PLSlotList.h"
#include "pellor/platform/Answer.h"
#include "pellor/runtime/Process.h"

namespace pellor {

/// The persons behind the favorites in their order.
struct PLCuratedFriends {
  std::vector<std::shared_ptr<PLPerson>> friends;
  std::vector<std::shared_ptr<PLPerson>> leftOut;  ///< for whom there is no room, behind these
};

/// The favorites as persons, and whether the first list waits for them: it does from the moment on when they could not
/// be read for it until they were, and a timer is set then that asks for them again. Main queue.
class PLFavorites {
 public:
  /// `bring` is called while this object lives, when favorites that are due may be there.
  PLFavorites(Process& process, std::function<void()> bring);

  /// Of one record only the first person, and at most `capacity` friends; none when there are no favorites.
  Answer<PLCuratedFriends> _curatedFriendList(std::uint64_t capacity) const;
  /// All persons behind the favorites, however many, that are no friends: no friend has their record, or one that is
  /// linked with it; a person without a record shares no destination with a friend, and a person with one shares none
  /// with a friend that has no record.
  Answer<std::vector<std::shared_ptr<PLPerson>>> newFriends(const PLSlotSnapshot& friends) const;

  /// Whether the first list waits.
  bool isDue() const { return _isDue; }
  /// It waits from now on, or no longer.
  void setDue(bool isDue);
  /// They could not be read: they are asked for again, after a pause that grows.
  void bringLater();

 private:
  Process& _process;
  const std::function<void()> _bring;
  bool _isDue = false;
  PLRetryTimer _retry;
};

}  // namespace pellor
