// Reads the stored list with its titles, and puts a damaged one aside.
#pragma once

#include <optional>
#include <string>

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

  PLListReader(Process& process, std::string domain) : _process(process), _domain(std::move(domain)) {}

  /// Fills `stored`; of a list that is none of `loaded` and `recovered` all but the list itself.
  Answer read(PLStoredList& stored);
  /// Only the versions of the stored list and titles; absent when the store cannot be read.
  struct Versions {
    PreferenceVersion list, titles;
  };
  std::optional<Versions> versions() const;
  /// The list was written: a damaged one is no longer stored.
  void noteWritten() { _damaged.reset(); }

 private:
  Answer recover(const Value& damaged, PLStoredList& stored);

  Process& _process;
  const std::string _domain;
  std::optional<Value> _damaged;   // put aside already
  std::optional<Value> _lastGood;  // is used in its place
};

}  // namespace pellor
