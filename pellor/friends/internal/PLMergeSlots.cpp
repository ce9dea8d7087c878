#include "pellor/friends/internal/PLMergeSlots.h"

#include <algorithm>

#include "pellor/friends/detail/PLPersonForm.h"

namespace pellor {
namespace {

const std::shared_ptr<const ArrayChunk> NoChunk;

// Where an element was first made: equal homes are equal elements.
struct Home {
  const ArrayChunk* chunk;
  std::size_t index;
  friend bool operator==(const Home&, const Home&) = default;
};

Home homeOf(const ArrayChunk& chunk, std::size_t index) {
  const ArrayChunk::Origin origin = chunk.origin(index);
  return origin.chunk ? Home{origin.chunk.get(), origin.index} : Home{&chunk, index};
}

bool isAllSeen(const DictionaryView& view) { return std::ranges::all_of(view, &EntryView::hasOnlyTexts); }

bool areEqualEntries(const EntryView& one, const EntryView& other) {
  if (one.key != other.key || one.kind != other.kind) return false;
  switch (one.kind) {
    case Value::Kind::integer:
      return one.integer == other.integer;
    case Value::Kind::string:
      return one.text == other.text;
    case Value::Kind::array:
      return one.texts == other.texts;
    default:
      return one.value == other.value;
  }
}

}  // namespace

const std::shared_ptr<const ArrayChunk>& PLMergeSlots::chunk(std::uint64_t index) const {
  return index < chunkCount() ? _list.chunks()[index] : NoChunk;
}

// To look at an element may be to decode it, and a merge asks of the same slot many times.
const PLMergeSlots::SlotBits& PLMergeSlots::occupied(std::uint64_t chunk) const {
  if (_occupied.empty()) _occupied.resize(chunkCount());
  std::optional<SlotBits>& occupied = _occupied[chunk];
  if (occupied) return *occupied;
  const ArrayChunk& elements = *_list.chunks()[chunk];
  occupied.emplace();
  for (std::size_t index = 0; index < elements.size(); ++index) {
    occupied->set(index, elements.view(index, _view) && !_view.isEmpty());
  }
  return *occupied;
}

std::uint64_t PLMergeSlots::friendCount(std::uint64_t page) const {
  std::uint64_t count = 0;
  for (std::uint64_t position = 0; position < _groupSize; ++position) {
    const std::uint64_t slot = page * _groupSize + position;
    if (slot >= size()) break;
    if (!isEmpty(slot)) ++count;
  }
  return count;
}

std::uint64_t PLMergeSlots::occupiedPageCount() const {
  for (std::uint64_t slot = size(); slot > 0; --slot) {
    if (!isEmpty(slot - 1)) return pageOf(slot - 1) + 1;
  }
  return 0;
}

Dictionary PLMergeSlots::form(std::uint64_t slot) const {
  if (slot >= size()) return {};
  const Value element = _list.at(slot);
  return element.dictionary() ? *element.dictionary() : Dictionary();
}

std::string_view PLMergeSlots::guid(std::uint64_t slot) const {
  if (slot >= size() || !chunk(chunkOfSlot(slot))->view(slot % LongArray::ChunkSize, _view)) return {};
  const auto entry = std::find_if(_view.begin(), _view.end(), [](const EntryView& each) {
    return each.key == PLPersonRecordGUIDKey && each.kind == Value::Kind::string;
  });
  return entry == _view.end() ? std::string_view() : entry->text;
}

ArrayChunk::Element PLMergeSlots::element(std::uint64_t slot) const {
  if (slot >= size()) return {Value(Dictionary())};
  return {chunk(chunkOfSlot(slot)), slot % LongArray::ChunkSize};
}

// What is seen of two elements is compared without making them, unless it is not all there is to them.
bool PLMergeSlots::hasSameElement(std::uint64_t slot, const PLMergeSlots& other, std::uint64_t otherSlot) const {
  const ArrayChunk& ownChunk = *chunk(chunkOfSlot(slot));
  const ArrayChunk& otherChunk = *other.chunk(chunkOfSlot(otherSlot));
  const std::size_t index = slot % LongArray::ChunkSize;
  const std::size_t otherIndex = otherSlot % LongArray::ChunkSize;
  if (homeOf(ownChunk, index) == homeOf(otherChunk, otherIndex)) return true;
  const bool areSeen = ownChunk.view(index, _view) && otherChunk.view(otherIndex, _otherView) && isAllSeen(_view) &&
                       isAllSeen(_otherView);
  return areSeen ? std::ranges::equal(_view, _otherView, areEqualEntries)
                 : ownChunk.at(index) == otherChunk.at(otherIndex);
}

void forEachDifferingChunk(const PLMergeSlots& one, const PLMergeSlots& other,
                           const std::function<void(std::uint64_t)>& visit) {
  const std::uint64_t count = std::max(one.chunkCount(), other.chunkCount());
  for (std::uint64_t index = 0; index < count; ++index) {
    if (one.chunk(index) != other.chunk(index)) visit(index);
  }
}

}  // namespace pellor
