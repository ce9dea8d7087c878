// Who hears of a friend list.
#pragma once

#include <functional>

#include "pellor/list/ListChange.h"
#include "pellor/list/Snapshot.h"

namespace pellor {

/// What an app hears of its list. Both are called on the main queue, by a task of their own: never inside a call of the
/// app's, and never one inside the other. Either may be empty, and may call the list.
struct ListObserver {
  /// The list has been read; once, also for an observer that comes later.
  std::function<void(const Snapshot& list)> loaded = {};
  /// The list changed since the observer was told last. What one origin did between two tasks of the main
  /// queue is one batch.
  std::function<void(const ListChange& change)> changed = {};
};

}  // namespace pellor
