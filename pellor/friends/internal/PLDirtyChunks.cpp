#include "pellor/friends/internal/PLDirtyChunks.h"

#include <algorithm>
#include <utility>

#include "pellor/friends/PLPerson.h"
#include "pellor/friends/internal/PLSkipChecks.h"

namespace pellor {
namespace {

bool isAnybodyMarked(const PLSlotSnapshot& list) {
  bool isMarked = false;
  list.forEach([&](const Slot& slot) { isMarked = isMarked || (slot != EmptySlot && slot->needsSave()); });
  return isMarked;
}

}  // namespace

void PLDirtyChunks::name(const PLSlotList& list) {
  const std::uint64_t count = _changes.touches.count();
  if (count == _seen) return;
  std::vector<std::uint64_t> chunks;
  const bool areKnown = _changes.touches.visitSince(_seen, [&](const PLPerson* person) {
    for (auto slot = list.indexOf(person); slot; slot = list.indexOf(person, *slot + 1)) {
      chunks.push_back(*slot / PLSlotSnapshot::ChunkSize);
    }
  });
  _seen = count;
  remember(chunks, areKnown);
  const MutexLock lock(_mutex);
  _named.insert(_named.end(), chunks.begin(), chunks.end());
  _namedCount = count;
  _namesAll = _namesAll && areKnown;
}

void PLDirtyChunks::remember(const std::vector<std::uint64_t>& chunks, bool areKnown) {
  const std::uint64_t changes = _changes.changes.load(std::memory_order_acquire);
  if (!areKnown || _history.size() + chunks.size() > LongHistory) {
    _history.clear();
    _historyBegin = changes;
    return;
  }
  for (const std::uint64_t chunk : chunks) _history.emplace_back(changes, chunk);
}

std::optional<std::vector<std::uint64_t>> PLDirtyChunks::changedSince(std::uint64_t changes,
                                                                      std::uint64_t elsewhere) const {
  if (changes < _historyBegin || elsewhere != _changes.touches.countElsewhere()) return std::nullopt;
  std::vector<std::uint64_t> chunks;
  for (const auto& [count, chunk] : _history) {
    if (count > changes) chunks.push_back(chunk);
  }
  return chunks;
}

void PLDirtyChunks::forgetUntil(std::uint64_t changes) {
  while (!_history.empty() && _history.front().first <= changes) _history.pop_front();
}

void PLDirtyChunks::gather() {
  const MutexLock lock(_mutex);
  _chunks.insert(_chunks.end(), _named.begin(), _named.end());
  _named.clear();
  _gatheredCount = _namedCount;
  _hasAll = std::exchange(_namesAll, true) && _hasAll;
}

bool PLDirtyChunks::isComplete() const {
  return _hasAll && _gatheredCount == _changes.touches.count() && _elsewhere == _changes.touches.countElsewhere();
}

void PLDirtyChunks::visit(const PLSlotSnapshot& list, const PLSlotSnapshot& before,
                          const std::function<void(const Slot&)>& visit) const {
  const auto visitChunk = [&](std::uint64_t index) {
    if (index < list.chunkCount()) std::ranges::for_each(list.chunk(index), visit);
  };
  list.forEachDifferingChunk(before, visitChunk);
  std::ranges::for_each(_chunks, visitChunk);
  checkSkip("nobody marked in the leaves that a save does not look at", [&] { return !isAnybodyMarked(list); });
}

void PLDirtyChunks::beginAt(std::uint64_t changes, std::uint64_t elsewhere) {
  _chunks.clear();
  _since = changes;
  _elsewhere = elsewhere;
  _hasAll = true;
}

bool PLDirtyChunks::isLong() const { return _chunks.size() > Long; }

}  // namespace pellor
