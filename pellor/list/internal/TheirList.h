// What other processes stored, as a list of this process's friends and pages.
#pragma once

#include <optional>
#include <string>
#include <unordered_map>

#include "pellor/friends/PLStepClient.h"
#include "pellor/list/Snapshot.h"
#include "pellor/list/internal/ListMirror.h"
#include "pellor/list/internal/StepPlan.h"

namespace pellor {

/// A friend and a page that this process has keep their ids; others get ids of their own. Costs as much as the list is
/// long. Main queue.
class TheirList final : public FriendLookUp {
 public:
  /// `mirror` names friends and pages; `ours` is the version that both come from, as far as is known.
  TheirList(const PLStoredPages& theirs, ListMirror& mirror, const Snapshot& ours);

  const Snapshot& snapshot() const { return _snapshot; }

  std::optional<FriendId> friendWithGUID(const std::string& guid) const override;
  std::optional<FriendId> friendWithDestination(const std::string& destination) const override;
  bool hasDestination(FriendId id, const std::string& destination) const override;

 private:
  using Table = std::unordered_map<std::string, FriendId>;

  std::shared_ptr<const Friend> shown(const PLStoredSlot& slot, ListMirror& mirror);
  void enter(const Friend& person);

  Snapshot _snapshot;
  Table _byGUID;
  Table _byDestination;
  std::unordered_map<std::uint64_t, bool> _entered;  // ids that stand somewhere already
};

}  // namespace pellor
