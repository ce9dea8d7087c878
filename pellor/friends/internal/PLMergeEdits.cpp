#include "pellor/friends/internal/PLMergeEdits.h"

#include <algorithm>
#include <unordered_map>

namespace pellor {
namespace {

class EditSearch {
 public:
  EditSearch(const PLMergeInput& input, const PLMergeSlots& base, const PLMergeSlots& ours, const PLOurPages& pages)
      : _input(input), _base(base), _ours(ours), _pages(pages) {}

  PLMergeEdits search() {
    findChunks();
    for (const std::uint64_t chunk : _chunks) claimFriends(chunk);
    for (const std::uint64_t chunk : _chunks) {
      sortOut(chunk);
      findRemoved(chunk);
    }
    return std::move(_edits);
  }

 private:
  // From the first page on that is another one in base, friends in chunks that both share stand elsewhere as well.
  void findChunks() {
    const std::uint64_t count = std::max(_base.chunkCount(), _ours.chunkCount());
    const std::uint64_t firstShifted = _pages.isSame() ? count : chunkOfSlot(_pages.sameCount() * _ours.groupSize());
    auto named = _input.ourFriends.begin();
    for (std::uint64_t chunk = 0; chunk < count; ++chunk) {
      while (named != _input.ourFriends.end() && named->first < chunk) ++named;
      const bool isNamed = named != _input.ourFriends.end() && named->first == chunk;
      if (isNamed || chunk >= firstShifted || _base.chunk(chunk) != _ours.chunk(chunk)) _chunks.push_back(chunk);
    }
  }

  bool isLookedAt(std::uint64_t slot) const { return std::ranges::binary_search(_chunks, chunkOfSlot(slot)); }

  std::optional<std::uint64_t> originOf(std::uint64_t slot) const {
    const auto named = _input.ourFriends.find(chunkOfSlot(slot));
    const std::size_t index = slot % LongArray::ChunkSize;
    std::optional<std::uint64_t> origin = slot;
    if (named != _input.ourFriends.end()) {
      origin = index < named->second.size() ? named->second[index] : std::nullopt;
    }
    return origin && !_base.isEmpty(*origin) ? origin : std::nullopt;
  }

  bool isInPlace(std::uint64_t slot, std::uint64_t baseSlot) const {
    return _pages.base(_ours.pageOf(slot)) == _base.pageOf(baseSlot) &&
           _ours.positionOf(slot) == _base.positionOf(baseSlot);
  }

  // A friend that stands in several slots is the one in its place, else the first.
  void claimFriends(std::uint64_t chunk) {
    const std::uint64_t first = firstSlotOfChunk(chunk);
    for (std::uint64_t slot = first; slot < first + LongArray::ChunkSize && slot < _ours.size(); ++slot) {
      if (_ours.isEmpty(slot)) continue;
      const auto origin = originOf(slot);
      if (!origin || !isLookedAt(*origin)) continue;
      const auto [claim, isFirst] = _claims.try_emplace(*origin, slot);
      if (!isFirst && isInPlace(slot, *origin)) claim->second = slot;
    }
  }

  void sortOut(std::uint64_t chunk) {
    const std::uint64_t first = firstSlotOfChunk(chunk);
    PLChunkOrigins origins;
    bool isNamed = false;
    for (std::uint64_t slot = first; slot < first + LongArray::ChunkSize && slot < _ours.size(); ++slot) {
      std::optional<std::uint64_t> origin;
      if (!_ours.isEmpty(slot)) {
        origin = claimedBy(slot);
        isNamed |= origin != slot;
        if (origin) {
          sortOutKept(slot, *origin);
        } else {
          _edits.added.push_back(slot);
        }
      }
      origins.push_back(origin);
    }
    if (isNamed) _edits.origins.emplace_hint(_edits.origins.end(), chunk, std::move(origins));
  }

  std::optional<std::uint64_t> claimedBy(std::uint64_t slot) const {
    const auto origin = originOf(slot);
    if (!origin) return std::nullopt;
    const auto claim = _claims.find(*origin);
    return claim != _claims.end() && claim->second == slot ? origin : std::nullopt;
  }

  void sortOutKept(std::uint64_t slot, std::uint64_t baseSlot) {
    if (!isInPlace(slot, baseSlot)) _edits.moved.push_back({slot, baseSlot});
    if (!_ours.hasSameElement(slot, _base, baseSlot)) _edits.changed.push_back({slot, baseSlot});
  }

  void findRemoved(std::uint64_t chunk) {
    const std::uint64_t first = firstSlotOfChunk(chunk);
    for (std::uint64_t slot = first; slot < first + LongArray::ChunkSize && slot < _base.size(); ++slot) {
      if (_claims.contains(slot) || _base.isEmpty(slot)) continue;
      const bool isAutomatic = std::ranges::binary_search(_input.ourAutomaticRemovals, slot);
      (isAutomatic ? _edits.removedAutomatically : _edits.removed).push_back(slot);
    }
  }

  const PLMergeInput& _input;
  const PLMergeSlots& _base;
  const PLMergeSlots& _ours;
  const PLOurPages& _pages;
  std::vector<std::uint64_t> _chunks;                        // to be looked at, ascending
  std::unordered_map<std::uint64_t, std::uint64_t> _claims;  // by the slot of base the slot of ours
  PLMergeEdits _edits;
};

}  // namespace

PLMergeEdits ourEdits(const PLMergeInput& input, const PLMergeSlots& base, const PLMergeSlots& ours,
                      const PLOurPages& pages) {
  return EditSearch(input, base, ours, pages).search();
}

}  // namespace pellor
