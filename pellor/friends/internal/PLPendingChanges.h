// The changes of a list that nobody was told of yet.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "pellor/friends/PLChangeLog.h"
#include "pellor/runtime/Queue.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

/// A change log on a queue of its own: changes enter it in barriers, and reads see whole ones. Its invariant: a change
/// that entered is in the log until it is taken, and is taken once. Main queue, but where the log's queue is named.
class PLPendingChanges : public std::enable_shared_from_this<PLPendingChanges> {
  struct Passkey {};

 public:
  static std::shared_ptr<PLPendingChanges> make();
  explicit PLPendingChanges(Passkey);

  /// Records one change and returns at once. Null is ignored.
  void _addEntryToChangeLogForPersonChangeType(const std::shared_ptr<PLPerson>& person, std::string_view changeType);
  /// Records all changes of a log and returns at once.
  void addChanges(PLChangeLog changes);
  /// How many persons changed. Waits for what entered before.
  std::uint64_t _changeLogCount() const;
  bool _changeLogContainsFriendAdditionsOrUpdates() const;
  /// Takes all of them; absent when there are none.
  std::optional<PLChangeLog> _copyAndResetChangeLog();

  /// The log itself; absent when there are no changes. From barriers and reads of its queue.
  const std::optional<PLChangeLog>& changeLog() const PELLOR_REQUIRES_READER(*_changeLogQueue) { return _changeLog; }
  void setChangeLog(std::optional<PLChangeLog> log) PELLOR_REQUIRES(*_changeLogQueue) { _changeLog = std::move(log); }
  const std::shared_ptr<ConcurrentQueue>& queue() const { return _changeLogQueue; }

 private:
  const std::shared_ptr<ConcurrentQueue> _changeLogQueue;
  std::optional<PLChangeLog> _changeLog PELLOR_GUARDED_BY(*_changeLogQueue);
};

}  // namespace pellor
