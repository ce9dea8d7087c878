#include "pellor/friends/internal/PLStoredVersion.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "pellor/friends/PLPerson.h"
#include "pellor/friends/internal/PLSkipChecks.h"

namespace pellor {

static_assert(PLSlotSnapshot::LeafSize == LongArray::RunSize);

PLStoredVersion::PLStoredVersion(LongArray array, std::vector<Run> runs, PLSlotSnapshot list, std::uint64_t changes)
    : PLStoredVersion(std::move(array), std::move(runs), std::move(list), changes, {}) {}

PLStoredVersion::PLStoredVersion(LongArray array, std::vector<Run> runs, PLSlotSnapshot list, std::uint64_t changes,
                                 std::map<std::uint64_t, std::vector<Slot>> displaced)
    : _array(std::move(array)),
      _runs(std::move(runs)),
      _slots(std::move(list)),
      _displaced(std::move(displaced)),
      _changes(changes) {}

std::span<const Slot> PLStoredVersion::leaf(std::uint64_t index) const {
  if (const auto displaced = _displaced.find(index); displaced != _displaced.end()) return displaced->second;
  return index < _slots.leafCount() ? _slots.leaf(index) : std::span<const Slot>();
}

namespace {

// Of a list or array of that many elements: to ask the leaves and runs themselves costs more than all the rest.
std::size_t sizeOfPart(std::size_t count, std::size_t index) {
  return std::min(LongArray::RunSize, count - index * LongArray::RunSize);
}

const Value& emptyElement() {
  static const Value element{Dictionary{}};
  return element;
}

Value elementFor(const Slot& slot) {
  return slot == EmptySlot ? emptyElement() : Value(slot->dictionaryRepresentation());
}

// For the checks of what is skipped.
bool isStoredForm(const ArrayRun& run, std::span<const Slot> leaf) {
  if (run.size() != leaf.size()) return false;
  for (std::size_t place = 0; place < leaf.size(); ++place) {
    if (run.at(place) != elementFor(leaf[place])) return false;
  }
  return true;
}

bool areStoredForms(const std::vector<std::shared_ptr<const ArrayRun>>& runs, const PLSlotSnapshot& list) {
  for (std::size_t index = 0; index < runs.size(); ++index) {
    if (!isStoredForm(*runs[index], list.leaf(index))) return false;
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

  std::shared_ptr<const ArrayRun> makeRun(std::span<const Slot> leaf, std::size_t index) {
    const auto before = knownLeaf(index);
    std::vector<ArrayRun::Element> elements;
    elements.reserve(leaf.size());
    for (std::size_t place = 0; place < leaf.size(); ++place) {
      const bool isInPlace = place < before.size() && before[place] == leaf[place];
      const std::uint64_t slot = index * LongArray::RunSize + place;
      elements.push_back(elementFor(leaf[place], isInPlace ? std::optional(slot) : std::nullopt));
    }
    return ArrayRun::make(std::move(elements));
  }

 private:
  using Place = std::pair<const PLPerson*, std::uint64_t>;  // a slot of the known version

  ArrayRun::Element elementFor(const Slot& person, std::optional<std::uint64_t> slot) {
    if (!_known.holdsFor(person)) return pellor::elementFor(person);
    if (!slot) slot = placeOf(person);
    if (!slot) return pellor::elementFor(person);
    return {_known._array.runs()[*slot / LongArray::RunSize], *slot % LongArray::RunSize};
  }

  // Of several the first.
  std::optional<std::uint64_t> placeOf(const Slot& person) {
    if (person == EmptySlot) return std::nullopt;
    if (!_places) findPlaces();
    const auto found = std::ranges::lower_bound(*_places, Place(person.get(), 0));
    return found != _places->end() && found->first == person.get() ? std::optional(found->second) : std::nullopt;
  }

  // Without those of which nothing is known.
  std::span<const Slot> knownLeaf(std::uint64_t index) const {
    if (index >= _known._runs.size() || _known._runs[index] == Run::other) return {};
    const auto leaf = _known.leaf(index);
    return leaf.first(std::min(leaf.size(), _known._array.runs()[index]->size()));
  }

  // Of all who stood in a leaf that differs: a page that went or came moves all friends behind it.
  void findPlaces() {
    _places.emplace();
    const auto enter = [this](std::uint64_t index) {
      std::uint64_t slot = index * LongArray::RunSize;
      for (const Slot& person : knownLeaf(index)) _places->emplace_back(person.get(), slot++);
    };
    _known._slots.forEachDifferingLeaf(_list, enter);
    for (const auto& [index, persons] : _known._displaced) enter(index);
    std::ranges::sort(*_places);
  }

  const PLStoredVersion& _known;
  const PLSlotSnapshot& _list;
  std::optional<std::vector<Place>> _places;  // ascending, once it was asked for
};

PLStoredVersion PLStoredVersion::made(const PLStoredVersion& known, PLSlotSnapshot list, std::uint64_t changes,
                                      const std::vector<std::uint64_t>* touched) {
  const std::vector<bool> differs = known.differingLeaves(list);
  std::vector<bool> mayHaveChanged(differs.size(), !touched && changes != known._changes);
  for (std::size_t next = 0; touched && next < touched->size(); ++next) {
    if ((*touched)[next] < mayHaveChanged.size()) mayHaveChanged[(*touched)[next]] = true;
  }
  std::vector<std::shared_ptr<const ArrayRun>> runs;
  std::vector<Run> states;
  StoredForms forms(known, list);
  runs.reserve(differs.size());
  states.reserve(differs.size());
  for (std::size_t index = 0; index < differs.size(); ++index) {
    const bool isKnown = !differs[index] && index < known._runs.size() && known._runs[index] != Run::other &&
                         sizeOfPart(known._array.size(), index) == sizeOfPart(list.count(), index) &&
                         (!mayHaveChanged[index] || known.holdsFor(list.leaf(index)));
    runs.push_back(isKnown ? known._array.runs()[index] : forms.makeRun(list.leaf(index), index));
    states.push_back(isKnown ? known._runs[index] : Run::written);
  }
  checkSkip("elements that a save takes over to be what would be stored", [&] { return areStoredForms(runs, list); });
  return {LongArray(std::move(runs)), std::move(states), std::move(list), changes};
}

// By the numbers of the changes a person is asked for; those that are not its own are no matter.
bool PLStoredVersion::holdsFor(const Slot& slot) const { return slot == EmptySlot || slot->lastChange() <= _changes; }

bool PLStoredVersion::holdsFor(std::span<const Slot> leaf) const {
  return std::ranges::all_of(leaf, [this](const Slot& slot) { return holdsFor(slot); });
}

std::vector<bool> PLStoredVersion::differingLeaves(const PLSlotSnapshot& list) const {
  std::vector<bool> differs(list.leafCount());
  list.forEachDifferingLeaf(_slots, [&](std::uint64_t index) { differs[index] = true; });
  for (const auto& [index, persons] : _displaced) {
    if (index < differs.size()) differs[index] = true;
  }
  return differs;
}

void PLStoredVersion::takeOver(const LongArray& stored) {
  auto runs = _array.runs();
  for (std::size_t index = 0; index < runs.size(); ++index) {
    const bool isThere = index < stored.runs().size() && stored.runs()[index]->isCopyOf(*runs[index]);
    if (isThere) {
      runs[index] = stored.runs()[index];
    } else {
      _runs[index] = Run::other;
    }
  }
  _array = LongArray(std::move(runs));
}

PLStoredVersion::Unchanged::Unchanged(const PLStoredVersion& known, const LongArray& array, const PLSlotSnapshot& list,
                                      std::uint64_t changes)
    : _known(known), _array(array), _list(list), _changes(changes), _differs(known.differingLeaves(list)) {}

bool PLStoredVersion::Unchanged::operator()(std::size_t index) const {
  const bool isUnchanged = index < _differs.size() && index < _known._runs.size() &&
                           _known._runs[index] == Run::atRest && _known._array.runs()[index] == _array.runs()[index] &&
                           (!_differs[index] || holdsTheSame(index)) &&
                           (_changes == _known._changes || _known.holdsFor(_known.leaf(index)));
  if (isUnchanged) checkSkip("a run that a load passes over to be merged", [&] { return isMergedRun(index); });
  return isUnchanged;
}

// Elements behind the end of the list are passed over if they are empty slots.
bool PLStoredVersion::Unchanged::isMergedRun(std::size_t index) const {
  const auto leaf = index < _list.leafCount() ? _list.leaf(index) : std::span<const Slot>();
  const ArrayRun& run = *_array.runs()[index];
  for (std::size_t place = 0; place < run.size(); ++place) {
    if (!isMerged(run.at(place), place < leaf.size() ? leaf[place] : EmptySlot)) return false;
  }
  return true;
}

// The last leaf is another one after each load that put an empty group behind it.
bool PLStoredVersion::Unchanged::holdsTheSame(std::size_t index) const {
  const auto known = _known.leaf(index), present = _list.leaf(index);
  const std::size_t size = _array.runs()[index]->size();
  return std::min(known.size(), present.size()) >= size && std::ranges::equal(known.first(size), present.first(size));
}

}  // namespace pellor
