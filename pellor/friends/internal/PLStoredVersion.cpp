#include "pellor/friends/internal/PLStoredVersion.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "pellor/friends/PLPerson.h"
#include "pellor/friends/internal/PLSkipChecks.h"

namespace pellor {

static_assert(PLSlotSnapshot::ChunkSize == LongArray::ChunkSize);

PLStoredVersion::PLStoredVersion(LongArray array, std::vector<ChunkState> chunks, PLSlotSnapshot list,
                                 std::uint64_t changes)
    : PLStoredVersion(std::move(array), std::move(chunks), std::move(list), changes, {}) {}

PLStoredVersion::PLStoredVersion(LongArray array, std::vector<ChunkState> chunks, PLSlotSnapshot list,
                                 std::uint64_t changes, std::map<std::uint64_t, std::vector<Slot>> displaced)
    : _array(std::move(array)),
      _chunks(std::move(chunks)),
      _slots(std::move(list)),
      _displaced(std::move(displaced)),
      _changes(changes) {}

std::span<const Slot> PLStoredVersion::chunk(std::uint64_t index) const {
  if (const auto displaced = _displaced.find(index); displaced != _displaced.end()) return displaced->second;
  return index < _slots.chunkCount() ? _slots.chunk(index) : std::span<const Slot>();
}

namespace {

// Of a list or array of that many elements: to ask the chunks themselves costs more than all the rest.
std::size_t sizeOfPart(std::size_t count, std::size_t index) {
  return std::min(LongArray::ChunkSize, count - index * LongArray::ChunkSize);
}

const Value& emptyElement() {
  static const Value element{Dictionary{}};
  return element;
}

Value elementFor(const Slot& slot) {
  return slot == EmptySlot ? emptyElement() : Value(slot->dictionaryRepresentation());
}

// For the checks of skipped work.
bool isStoredForm(const ArrayChunk& elements, std::span<const Slot> slots) {
  if (elements.size() != slots.size()) return false;
  for (std::size_t place = 0; place < slots.size(); ++place) {
    if (elements.at(place) != elementFor(slots[place])) return false;
  }
  return true;
}

bool areStoredForms(const std::vector<std::shared_ptr<const ArrayChunk>>& chunks, const PLSlotSnapshot& list) {
  for (std::size_t index = 0; index < chunks.size(); ++index) {
    if (!isStoredForm(*chunks[index], list.chunk(index))) return false;
  }
  return true;
}

bool isMerged(const Value& element, const Slot& slot) {
  if (!element.dictionary()) return false;
  if (slot == EmptySlot || element.dictionary()->empty()) return slot == EmptySlot && element.dictionary()->empty();
  return slot->isEqualToDictionaryRepresentation(*element.dictionary()) && elementFor(slot) == element;
}

}  // namespace

// The elements of a known version that are the stored forms of persons, for another list.
class PLStoredVersion::StoredForms {
 public:
  StoredForms(const PLStoredVersion& known, const PLSlotSnapshot& list) : _known(known), _list(list) {}

  std::shared_ptr<const ArrayChunk> makeChunk(std::span<const Slot> chunk, std::size_t index) {
    const auto before = knownChunk(index);
    std::vector<ArrayChunk::Element> elements;
    elements.reserve(chunk.size());
    for (std::size_t place = 0; place < chunk.size(); ++place) {
      const bool isInPlace = place < before.size() && before[place] == chunk[place];
      const std::uint64_t slot = index * LongArray::ChunkSize + place;
      elements.push_back(elementFor(chunk[place], isInPlace ? std::optional(slot) : std::nullopt));
    }
    return ArrayChunk::make(std::move(elements));
  }

 private:
  using Place = std::pair<const PLPerson*, std::uint64_t>;  // a slot of the known version

  ArrayChunk::Element elementFor(const Slot& person, std::optional<std::uint64_t> slot) {
    if (!_known.holdsFor(person)) return pellor::elementFor(person);
    if (!slot) slot = placeOf(person);
    if (!slot) return pellor::elementFor(person);
    return {_known._array.chunks()[*slot / LongArray::ChunkSize], *slot % LongArray::ChunkSize};
  }

  // Of several the first.
  std::optional<std::uint64_t> placeOf(const Slot& person) {
    if (person == EmptySlot) return std::nullopt;
    if (!_places) findPlaces();
    const auto found = std::ranges::lower_bound(*_places, Place(person.get(), 0));
    return found != _places->end() && found->first == person.get() ? std::optional(found->second) : std::nullopt;
  }

  // Without those of which nothing is known.
  std::span<const Slot> knownChunk(std::uint64_t index) const {
    if (index >= _known._chunks.size() || _known._chunks[index] == ChunkState::other) return {};
    const auto chunk = _known.chunk(index);
    return chunk.first(std::min(chunk.size(), _known._array.chunks()[index]->size()));
  }

  // The places of all persons that stood in a chunk that differs: a page that went or came moves all friends behind it.
  void findPlaces() {
    _places.emplace();
    const auto enter = [this](std::uint64_t index) {
      std::uint64_t slot = index * LongArray::ChunkSize;
      for (const Slot& person : knownChunk(index)) _places->emplace_back(person.get(), slot++);
    };
    _known._slots.forEachDifferingChunk(_list, enter);
    for (const auto& [index, persons] : _known._displaced) enter(index);
    std::ranges::sort(*_places);
  }

  const PLStoredVersion& _known;
  const PLSlotSnapshot& _list;
  std::optional<std::vector<Place>> _places;  // ascending, once it was asked for
};

PLStoredVersion PLStoredVersion::made(const PLStoredVersion& known, PLSlotSnapshot list, std::uint64_t changes,
                                      const std::vector<std::uint64_t>* touched) {
  const std::vector<bool> differs = known.differingChunks(list);
  std::vector<bool> mayHaveChanged(differs.size(), !touched && changes != known._changes);
  for (std::size_t next = 0; touched && next < touched->size(); ++next) {
    if ((*touched)[next] < mayHaveChanged.size()) mayHaveChanged[(*touched)[next]] = true;
  }
  std::vector<std::shared_ptr<const ArrayChunk>> chunks;
  std::vector<ChunkState> states;
  StoredForms forms(known, list);
  chunks.reserve(differs.size());
  states.reserve(differs.size());
  for (std::size_t index = 0; index < differs.size(); ++index) {
    const bool isKnown = !differs[index] && index < known._chunks.size() && known._chunks[index] != ChunkState::other &&
                         sizeOfPart(known._array.size(), index) == sizeOfPart(list.count(), index) &&
                         (!mayHaveChanged[index] || known.holdsFor(list.chunk(index)));
    chunks.push_back(isKnown ? known._array.chunks()[index] : forms.makeChunk(list.chunk(index), index));
    states.push_back(isKnown ? known._chunks[index] : ChunkState::written);
  }
  checkSkip("elements that a save takes over to be what would be stored", [&] { return areStoredForms(chunks, list); });
  return {LongArray(std::move(chunks)), std::move(states), std::move(list), changes};
}

// By the numbers of the changes a person is asked for; those that are not its own are no matter.
bool PLStoredVersion::holdsFor(const Slot& slot) const { return slot == EmptySlot || slot->lastChange() <= _changes; }

bool PLStoredVersion::holdsFor(std::span<const Slot> chunk) const {
  return std::ranges::all_of(chunk, [this](const Slot& slot) { return holdsFor(slot); });
}

std::vector<bool> PLStoredVersion::differingChunks(const PLSlotSnapshot& list) const {
  std::vector<bool> differs(list.chunkCount());
  list.forEachDifferingChunk(_slots, [&](std::uint64_t index) { differs[index] = true; });
  for (const auto& [index, persons] : _displaced) {
    if (index < differs.size()) differs[index] = true;
  }
  return differs;
}

void PLStoredVersion::takeOver(const LongArray& stored) {
  auto chunks = _array.chunks();
  for (std::size_t index = 0; index < chunks.size(); ++index) {
    const bool isThere = index < stored.chunks().size() && stored.chunks()[index]->isCopyOf(*chunks[index]);
    if (isThere) {
      chunks[index] = stored.chunks()[index];
    } else {
      _chunks[index] = ChunkState::other;
    }
  }
  _array = LongArray(std::move(chunks));
}

PLStoredVersion::UnchangedChunks::UnchangedChunks(const PLStoredVersion& known, const LongArray& array,
                                                  const PLSlotSnapshot& list, std::uint64_t changes)
    : _known(known), _array(array), _list(list), _changes(changes), _differs(known.differingChunks(list)) {}

bool PLStoredVersion::UnchangedChunks::operator()(std::size_t index) const {
  const bool isUnchanged =
      index < _differs.size() && index < _known._chunks.size() && _known._chunks[index] == ChunkState::atRest &&
      _known._array.chunks()[index] == _array.chunks()[index] && (!_differs[index] || holdsTheSame(index)) &&
      (_changes == _known._changes || _known.holdsFor(_known.chunk(index)));
  if (isUnchanged) checkSkip("a chunk that a load passes over to be merged", [&] { return isMergedChunk(index); });
  return isUnchanged;
}

// Elements behind the end of the list are passed over if they are empty slots.
bool PLStoredVersion::UnchangedChunks::isMergedChunk(std::size_t index) const {
  const auto slots = index < _list.chunkCount() ? _list.chunk(index) : std::span<const Slot>();
  const ArrayChunk& elements = *_array.chunks()[index];
  for (std::size_t place = 0; place < elements.size(); ++place) {
    if (!isMerged(elements.at(place), place < slots.size() ? slots[place] : EmptySlot)) return false;
  }
  return true;
}

// The last chunk is another one after each load that put an empty group behind it.
bool PLStoredVersion::UnchangedChunks::holdsTheSame(std::size_t index) const {
  const auto known = _known.chunk(index), present = _list.chunk(index);
  const std::size_t size = _array.chunks()[index]->size();
  return std::min(known.size(), present.size()) >= size && std::ranges::equal(known.first(size), present.first(size));
}

}  // namespace pellor
