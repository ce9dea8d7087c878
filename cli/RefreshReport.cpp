#include "cli/RefreshReport.h"

#include <memory>
#include <utility>

#include "pellor/runtime/NotificationCenter.h"

namespace pellor::cli {

std::vector<Change> refreshedFriends(Session& session) {
  std::vector<Change> changes;
  const auto take = [&](const ListChange& batch) {
    if (batch.origin != ChangeOrigin::contacts) return;
    for (Change& change : changesOf(batch, LinkChanges::told)) changes.push_back(std::move(change));
  };
  std::shared_ptr<Observation> observation;
  const auto observe = [&](FriendList& list) { observation = list.observe({.changed = take}); };
  FriendList& list = session.list(observe);
  if (!observation) observe(list);
  list.refresh();
  session.commit();
  return changes;
}

}  // namespace pellor::cli
