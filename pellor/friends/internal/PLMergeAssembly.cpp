#include "pellor/friends/internal/PLMergeAssembly.h"

#include <algorithm>
#include <utility>

namespace pellor {
namespace {

using Occupant = PLMergePlaces::Occupant;

class Assembly {
 public:
  Assembly(const PLMergeAssembly& parts, PLMergeResult& result)
      : _parts(parts),
        _result(result),
        _firstOther(parts.places.firstOtherPage()),
        _others(parts.places.otherPages()),
        _changed(parts.places.changed().begin()) {}

  void assemble() {
    std::vector<std::shared_ptr<const ArrayChunk>> chunks;
    chunks.reserve((_parts.size + LongArray::ChunkSize - 1) / LongArray::ChunkSize);
    for (std::uint64_t first = 0; first < _parts.size; first += LongArray::ChunkSize) {
      const std::uint64_t end = std::min<std::uint64_t>(first + LongArray::ChunkSize, _parts.size);
      chunks.push_back(isTheirs(first, end) ? theirChunk(first) : chunk(first, end));
    }
    _result.list = LongArray(std::move(chunks));
  }

 private:
  const std::shared_ptr<const ArrayChunk>& theirChunk(std::uint64_t slot) const {
    return _parts.theirs.chunk(chunkOfSlot(slot));
  }

  bool isAsLong(std::uint64_t first, std::uint64_t end) const {
    const auto& theirs = theirChunk(first);
    return theirs && theirs->size() == end - first;
  }

  // Without a look at the slots. Asked in their order.
  bool isTheirs(std::uint64_t first, std::uint64_t end) {
    if (end > _firstOther * _parts.theirs.groupSize()) return false;
    const auto& changed = _parts.places.changed();
    while (_changed != changed.end() && slotOf(_changed->first) < first) ++_changed;
    const bool isChanged = _changed != changed.end() && slotOf(_changed->first) < end;
    return !isChanged && isAsLong(first, end);
  }

  std::uint64_t slotOf(PLMergePlaces::Place place) const {
    return place.page * _parts.theirs.groupSize() + place.position;
  }

  PLMergePlaces::Place placeOf(std::uint64_t slot) const {
    const std::uint64_t page = _parts.theirs.pageOf(slot);
    return {page < _firstOther ? page : _others[page - _firstOther], _parts.theirs.positionOf(slot)};
  }

  std::shared_ptr<const ArrayChunk> chunk(std::uint64_t first, std::uint64_t end) {
    std::vector<ArrayChunk::Element> elements;
    PLChunkOrigins origins;
    bool isTheirs = isAsLong(first, end);
    bool isNamed = false;
    for (std::uint64_t slot = first; slot < end; ++slot) {
      const Occupant occupant = _parts.places.at(placeOf(slot));
      const bool isEmptyInTheirs = _parts.theirs.isEmpty(slot);
      const bool isFromTheirs = occupant.side == Occupant::Side::theirs;
      const bool isSame =
          isFromTheirs ? occupant.slot == slot : occupant.side == Occupant::Side::nobody && isEmptyInTheirs;
      isTheirs = isTheirs && isSame && !(isFromTheirs && _parts.forms.contains(slot));
      origins.push_back(isFromTheirs ? std::optional(occupant.slot) : std::nullopt);
      isNamed |= !isSame && !(occupant.side == Occupant::Side::ours && isEmptyInTheirs) &&
                 occupant.side != Occupant::Side::nobody;
      elements.push_back(isSame ? theirElement(slot) : element(occupant));
    }
    if (isNamed) _result.theirFriends.emplace(chunkOfSlot(first), std::move(origins));
    return isTheirs ? theirChunk(first) : ArrayChunk::make(std::move(elements));
  }

  ArrayChunk::Element theirElement(std::uint64_t slot) const {
    const auto form = _parts.forms.find(slot);
    return form == _parts.forms.end() ? _parts.theirs.element(slot) : ArrayChunk::Element(form->second);
  }

  ArrayChunk::Element element(const Occupant& occupant) const {
    switch (occupant.side) {
      case Occupant::Side::theirs:
        return theirElement(occupant.slot);
      case Occupant::Side::ours:
        return _parts.ours.element(occupant.slot);
      case Occupant::Side::nobody:
        break;
    }
    return {Value(Dictionary())};
  }

  const PLMergeAssembly& _parts;
  PLMergeResult& _result;
  const std::uint64_t _firstOther;
  const std::vector<std::uint64_t> _others;
  std::map<PLMergePlaces::Place, Occupant>::const_iterator _changed;
};

}  // namespace

void assembleList(const PLMergeAssembly& parts, PLMergeResult& result) { Assembly(parts, result).assemble(); }

}  // namespace pellor
