// Tells observers of a list what changed, batch by batch.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "pellor/list/ListChange.h"
#include "pellor/list/ListObserver.h"
#include "pellor/list/internal/ListMirror.h"
#include "pellor/runtime/Process.h"

namespace pellor {

/// Its invariant: the last version that was noted is what all batches so far lead to. Main queue.
class ListFeed : public std::enable_shared_from_this<ListFeed> {
 public:
  /// `mirror` outlives the feed; `isLoaded` tells whether there is a list.
  ListFeed(Process& process, ListMirror& mirror, std::function<bool()> isLoaded);

  /// What differs from the last version that was noted comes from there; the version of now. `step`: see
  /// `ListMirror::update`.
  const Snapshot& note(ChangeOrigin origin, const ListDraft* step = nullptr);
  /// Notes what nobody has noted yet.
  const Snapshot& noteRest() { return note(_originOfRest); }
  /// What changed is noted now; what is still to be reported of it comes from there too.
  void noteWithReports(ChangeOrigin origin);
  /// What the store fails at from now on.
  void noteTrouble(std::optional<StoreTrouble> trouble);
  /// Has the observers told, in a task of its own, of all that happens before it.
  void tellSoon();

  /// Until the handle is gone, or `life`.
  std::shared_ptr<Observation> observe(ListObserver observer, const std::shared_ptr<const void>& life);

 private:
  struct Listener;
  struct Batch {
    std::uint64_t number;
    Snapshot before;
    Snapshot after;
    ChangeOrigin origin;
  };

  static const Batch* loadIn(const std::vector<Batch>& batches, std::uint64_t toldOf);
  static std::shared_ptr<Listener> living(const std::weak_ptr<Listener>& listener);
  void tell();
  void tell(const std::weak_ptr<Listener>& listener, const std::vector<Batch>& batches);
  void tellTrouble(const std::weak_ptr<Listener>& listener);

  Process& _process;
  ListMirror& _mirror;
  const std::function<bool()> _isLoaded;
  std::vector<std::weak_ptr<Listener>> _listeners;
  std::optional<StoreTrouble> _trouble;
  Snapshot _last;
  std::vector<Batch> _batches;  // that nobody was told of yet
  std::uint64_t _lastNumber = 0;
  bool _isSealed = false;  // an observer has come since the last batch
  ChangeOrigin _originOfRest = ChangeOrigin::thisProgram;
  bool _isTellingSoon = false;
  bool _awaitsReports = false;  // since a load or refresh ended
};

}  // namespace pellor
