// What a manager does while its store fails, and when another process was first.
#pragma once

#include <functional>
#include <optional>

#include "pellor/friends/PLFriendsManagerKeys.h"
#include "pellor/friends/internal/PLRetryTimer.h"
#include "pellor/runtime/Process.h"

namespace pellor {

class PLListWriter;

/// Knows what the store fails at, and lets the attempts follow. Its invariant: a change of the trouble is told once,
/// and while the store cannot be read the next attempt to load is due. Main queue.
class PLStoreFailures {
 public:
  struct Handlers {
    std::function<void()> load;            ///< the store is to be read again
    std::function<void()> loadIfNewer;     ///< another process was first: what it wrote is to be read, if that is due
    std::function<void()> troubleChanged;  ///< `trouble` is another one
  };

  /// The writer outlives this object.
  PLStoreFailures(Process& process, const PLListWriter& writer, Handlers handlers);

  /// What the store fails at; absent while it works.
  std::optional<PLStoreTrouble> trouble() const;
  bool isUnreadable() const { return _isUnreadable; }
  /// It could not be read: a load follows.
  void noteUnreadable();
  /// It was read: no load waits.
  void noteRead();
  /// The writes fail, or work again.
  void noteWrites();
  /// A load follows, after a pause that grows until the store is read.
  void loadLater();
  /// Another process wrote first. At once, and after random pauses while that goes on, what it wrote is read.
  void noteOvertaken();
  /// A write was accepted.
  void noteAccepted();

 private:
  void tellIfChanged();

  const PLListWriter& _writer;
  const Handlers _handlers;
  bool _isUnreadable = false;
  bool _wasOvertaken = false;  // since a write was accepted
  std::optional<PLStoreTrouble> _told;
  PLRetryTimer _loadRetry;
  PLRetryTimer _overtakenRetry;
};

}  // namespace pellor
