// Who hears of a friend list.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "pellor/list/ListChange.h"
#include "pellor/list/Snapshot.h"

namespace pellor {

/// What the list's store fails at. It is tried again until it works; until then nothing is stored, and no edit is lost
/// while the program runs.
struct StoreTrouble {
  enum class Kind {
    reading,  ///< what other programs do is not heard, or the list is not there yet; nothing is written either
    writing,
  };
  Kind kind = Kind::reading;
  std::string text;  ///< why, in one line for the user; never empty
  friend bool operator==(const StoreTrouble&, const StoreTrouble&) = default;
};

/// What an app hears of its list. All are called on the main queue, by a task of their own: never inside a call of the
/// app's, and never one inside the other. Each may be empty, and may call the list.
struct ListObserver {
  /// The list has been read; once, also for an observer that comes later.
  std::function<void(const Snapshot& list)> loaded = {};
  /// The list changed since the observer was told last. What one origin did between two tasks of the main
  /// queue is one batch.
  std::function<void(const ListChange& change)> changed = {};
  /// The store begins to fail, or fails otherwise; absent: it works again. An observer that comes while it fails is
  /// told so; perhaps before `loaded`.
  std::function<void(const std::optional<StoreTrouble>& trouble)> trouble = {};
};

}  // namespace pellor
