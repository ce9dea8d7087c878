// One list of a three-way merge, read slot by slot without copying it.
#pragma once

#include <bitset>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "pellor/runtime/DictionaryView.h"
#include "pellor/runtime/LongArray.h"
#include "pellor/runtime/Value.h"

namespace pellor {

/// A list in the stored form, cut into pages. Slots behind its end are empty. Used by one thread, for the duration of a
/// merge; the list has to outlive it.
class PLMergeSlots {
 public:
  PLMergeSlots(const LongArray& list, std::uint64_t groupSize) : _list(list), _groupSize(groupSize) {}

  std::uint64_t size() const { return _list.size(); }
  std::uint64_t groupSize() const { return _groupSize; }
  /// How many pages the slots reach into; the last may lack some of its slots.
  std::uint64_t pageCount() const { return (size() + _groupSize - 1) / _groupSize; }
  std::uint64_t pageOf(std::uint64_t slot) const { return slot / _groupSize; }
  std::uint64_t positionOf(std::uint64_t slot) const { return slot % _groupSize; }

  std::uint64_t chunkCount() const { return _list.chunks().size(); }
  /// The chunk, or null behind the end.
  const std::shared_ptr<const ArrayChunk>& chunk(std::uint64_t index) const;

  /// Whether nobody stands there: an element that is no dictionary, or one without entries.
  bool isEmpty(std::uint64_t slot) const {
    return slot >= size() || !occupied(slot / LongArray::ChunkSize)[slot % LongArray::ChunkSize];
  }
  /// How many friends stand on the page.
  std::uint64_t friendCount(std::uint64_t page) const;
  /// The page of the last friend and those before it; 0 when there is no friend.
  std::uint64_t occupiedPageCount() const;
  /// The friend's form as it is stored; empty for an empty slot.
  Dictionary form(std::uint64_t slot) const;
  /// The friend's GUID, which lives as long as the list; empty also when there is none: both identify nobody.
  std::string_view guid(std::uint64_t slot) const;
  /// Whether the slots of two lists, both of them inside, have equal elements.
  bool hasSameElement(std::uint64_t slot, const PLMergeSlots& other, std::uint64_t otherSlot) const;
  /// The element, for a new chunk.
  ArrayChunk::Element element(std::uint64_t slot) const;

 private:
  using SlotBits = std::bitset<LongArray::ChunkSize>;
  const SlotBits& occupied(std::uint64_t chunk) const;

  const LongArray& _list;
  const std::uint64_t _groupSize;
  mutable DictionaryView _view;
  mutable DictionaryView _otherView;
  mutable std::vector<std::optional<SlotBits>> _occupied;  // by chunk, once it was asked for
};

/// Calls `visit` with the index of each chunk that is not the same object in both lists, in order.
void forEachDifferingChunk(const PLMergeSlots& one, const PLMergeSlots& other,
                           const std::function<void(std::uint64_t)>& visit);

/// The chunk of a slot, and the slots of a chunk.
inline std::uint64_t chunkOfSlot(std::uint64_t slot) { return slot / LongArray::ChunkSize; }
inline std::uint64_t firstSlotOfChunk(std::uint64_t chunk) { return chunk * LongArray::ChunkSize; }

}  // namespace pellor
