#include "Pellor/PLMergeSlots.h"

#include <algorithm>
#include <string_view>

#include "Pellor/PLPersonForm.h"

namespace pellor {
namespace {

const std::shared_ptr<const ArrayRun> kNoChunk;

// Where an element was first made: equal homes are equal elements.
struct Home {
  const ArrayRun* run;
  std::size_t index;
  friend bool operator==(const Home&, const Home&) = default;
};

Home homeOf(const ArrayRun& run, std::size_t index) {
  const ArrayRun::Origin origin = run.origin(index);
  return origin.run ? Home{origin.run.get(), origin.index} : Home{&run, index};
}

}  // namespace

const std::shared_ptr<const ArrayRun>& PLMergeSlots::chunk(std::uint64_t index) const {
  return index < chunkCount() ? _list.runs()[index] : kNoChunk;
}

bool PLMergeSlots::isEmpty(std::uint64_t slot) const {
  if (slot >= size()) return true;
  return !chunk(chunkOfSlot(slot))->show(slot % LongArray::RunSize, _view) || _view.isEmpty();
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

std::string PLMergeSlots::guid(std::uint64_t slot) const {
  if (isEmpty(slot)) return {};
  const auto entry = std::find_if(_view.begin(), _view.end(), [](const EntryView& each) {
    return each.key == PLPersonRecordGUIDKey && each.kind == Value::Kind::string;
  });
  return entry == _view.end() ? std::string() : std::string(entry->text);
}

ArrayRun::Element PLMergeSlots::element(std::uint64_t slot) const {
  if (slot >= size()) return {Value(Dictionary())};
  return {chunk(chunkOfSlot(slot)), slot % LongArray::RunSize};
}

bool haveSameElement(const PLMergeSlots& one, std::uint64_t slotOfOne, const PLMergeSlots& other,
                     std::uint64_t slotOfOther) {
  const ArrayRun& run = *one.chunk(chunkOfSlot(slotOfOne));
  const ArrayRun& otherRun = *other.chunk(chunkOfSlot(slotOfOther));
  const std::size_t index = slotOfOne % LongArray::RunSize;
  const std::size_t otherIndex = slotOfOther % LongArray::RunSize;
  return homeOf(run, index) == homeOf(otherRun, otherIndex) || run.at(index) == otherRun.at(otherIndex);
}

void forEachDifferingChunk(const PLMergeSlots& one, const PLMergeSlots& other,
                           const std::function<void(std::uint64_t)>& visit) {
  const std::uint64_t count = std::max(one.chunkCount(), other.chunkCount());
  for (std::uint64_t index = 0; index < count; ++index) {
    if (one.chunk(index) != other.chunk(index)) visit(index);
  }
}

}  // namespace pellor
