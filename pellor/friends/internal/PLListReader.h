// Reads the stored list with its titles, and puts a damaged one aside.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "pellor/friends/internal/PLBaseline.h"
#include "pellor/runtime/Process.h"

namespace pellor {

/// Its invariant: a damaged list is put aside once, before anything may take its place, and as long as it is stored its
/// last good copy stands for it. Main queue.
class PLListReader {
 public:
  /// The answer to a look at the stored list.
  enum class Answer {
    loaded,
    recovered,  ///< the last good copy, in place of a damaged list
    none,
    damaged,  ///< without a good copy
    unreadable,
  };

  PLListReader(Process& process, std::string domain);

  /// Reads an array under this key beside the list from now on. A value that is no array counts as empty, and the log
  /// says so once.
  void attach(const std::string& key) { _keys.push_back(key); }

  /// Fills `stored`; of a list that is none of `loaded` and `recovered` all but the list itself.
  Answer read(PLStoredList& stored);
  /// Only the versions of the stored list, titles and arrays; absent when the store cannot be read.
  struct Versions {
    PreferenceVersion list, titles;
    PLAttachedVersions attached;  ///< without elements
  };
  std::optional<Versions> versions() const;
  /// The list was written: a damaged one is no longer stored.
  void noteWritten() { _damaged.reset(); }

 private:
  void readAttached(const VersionedPreferences& found, PLStoredList& stored);
  Answer recover(const VersionedPreference& damaged, PLStoredList& stored);

  Process& _process;
  const std::string _domain;
  std::vector<std::string> _keys;  // of the list, its titles, whether it waits for favorites, and what is attached
  std::set<std::string> _damagedArrays;         // of which the log said so
  std::optional<VersionedPreference> _damaged;  // put aside already
  std::optional<Value> _lastGood;               // is used in its place
};

}  // namespace pellor
