// Which chunks of the list a save has to look at.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include "pellor/friends/detail/PLPersonChanges.h"
#include "pellor/friends/internal/PLSlotList.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

/// The chunks in which persons were touched. The main queue names them as it publishes the list, since it knows where
/// each person is; the save queue gathers them. Persons that were touched elsewhere are not known by name: then the
/// whole list has to be looked at once.
///
/// A chunk is named by its place in the list as it was then. A save that looks at a later version looks at the chunks
/// that changed places as well: these are other objects.
class PLDirtyChunks {
 public:
  explicit PLDirtyChunks(const PLPersonChanges& changes) : _changes(changes) {}

  /// Names the chunks of all persons touched since the last time. Main queue, before the list is published.
  void name(const PLSlotList& list);
  /// The chunks in which persons may have changed after the first `changes` (PLPersonChanges::changes), as the list was
  /// when it was named last; absent when that is not known of all. `elsewhere` was counted before `changes`. Main
  /// queue.
  std::optional<std::vector<std::uint64_t>> changedSince(std::uint64_t changes, std::uint64_t elsewhere) const;
  /// Nobody asks for changes among the first `changes` any more. Main queue.
  void forgetUntil(std::uint64_t changes);

  // Save queue.
  /// Gathers what was named. Before the list is read.
  void gather();
  /// Whether everybody touched until now is in a chunk that was gathered.
  bool isComplete() const;
  /// The chunks gathered since so many changes were counted (PLPersonChanges::changes); null when it is not known of
  /// all changes since then. Some may be named twice, and some may lie beyond the end of the list.
  const std::vector<std::uint64_t>* since(std::uint64_t changes) const { return changes < _since ? nullptr : &_chunks; }
  /// The chunks gathered since the last call of `beginAt`.
  const std::vector<std::uint64_t>& chunks() const { return _chunks; }
  /// Calls `visit` with each slot of the list whose person may carry a flag, for it to be taken, if no person in
  /// `before` carried one when the chunks gathered since the last call of `beginAt` began: the slots of these chunks,
  /// and of those that are other objects in `before`.
  void visit(const PLSlotSnapshot& list, const PLSlotSnapshot& before,
             const std::function<void(const Slot&)>& visit) const;
  /// Forgets the chunks: from here on the chunks are gathered in which a person may have a change after the first
  /// `changes`. `elsewhere` was counted before `changes`.
  void beginAt(std::uint64_t changes, std::uint64_t elsewhere);
  /// Whether there are so many that it is time to begin again.
  bool isLong() const;

 private:
  static constexpr std::size_t Long = 256;
  static constexpr std::size_t LongHistory = 4096;

  void remember(const std::vector<std::uint64_t>& chunks, bool areKnown);

  const PLPersonChanges& _changes;

  // Main queue.
  std::uint64_t _seen = 0;
  std::deque<std::pair<std::uint64_t, std::uint64_t>> _history;  // the changes counted at a naming, and a chunk
  std::uint64_t _historyBegin = 0;                               // of no earlier changes all chunks are known

  Mutex _mutex;  // held for moments
  std::vector<std::uint64_t> _named PELLOR_GUARDED_BY(_mutex);
  std::uint64_t _namedCount PELLOR_GUARDED_BY(_mutex) = 0;  // of touches
  bool _namesAll PELLOR_GUARDED_BY(_mutex) = true;

  // Save queue.
  std::vector<std::uint64_t> _chunks;
  std::uint64_t _gatheredCount = 0;
  std::uint64_t _elsewhere = 0;
  std::uint64_t _since = 0;
  bool _hasAll = false;
};

}  // namespace pellor
