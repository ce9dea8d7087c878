// Own edits: what they are, what a merge has to know of them, and which of them stay marked after it.
#include <algorithm>
#include <unordered_map>
#include <utility>

#include "pellor/friends/PLPerson.h"
#include "pellor/friends/detail/PLPersonForm.h"
#include "pellor/friends/internal/PLListTakeover.h"
#include "pellor/friends/internal/PLTouchedLeaves.h"

namespace pellor {
namespace {

constexpr std::uint64_t kChunk = PLSlotSnapshot::LeafSize;

Dictionary formWrittenFor(const Dictionary& stored) {
  if (stored.empty()) return stored;
  PLPersonForm form(stored);
  return PLPerson::initWithForm(form)->dictionaryRepresentation();
}

// Calls `visit` with each friend in base's leaves that are not the live list's, or stand beyond its end. Where an own
// edit was merged into an empty slot of the stored list, the person there is no friend of base.
template <class Visit>
void visitDifferingSlots(const PLStoredVersion& base, const std::vector<bool>& differs, Visit visit) {
  DictionaryView element;
  for (std::uint64_t leaf = 0; leaf < base.leafCount(); ++leaf) {
    if (leaf < differs.size() && !differs[leaf]) continue;
    const auto persons = base.leaf(leaf);
    const ArrayRun& run = *base.array().runs()[leaf];
    for (std::uint64_t place = 0; place < std::min(persons.size(), run.size()); ++place) {
      if (persons[place] == EmptySlot) continue;
      run.show(place, element);
      if (!element.isEmpty()) visit(leaf * kChunk + place, persons[place]);
    }
  }
}

// The flags first, what they stand for later: an edit that comes in between stays marked.
void takeMarks(const PLSlotSnapshot& list, const std::vector<bool>& differs,
               const std::optional<std::vector<std::uint64_t>>& touched) {
  const auto take = [](const Slot& person) {
    if (person != EmptySlot && person->needsSave()) person->takeNeedsSave();
  };
  if (!touched) return list.forEach(take);
  for (std::uint64_t leaf = 0; leaf < differs.size(); ++leaf) {
    if (differs[leaf]) std::ranges::for_each(list.leaf(leaf), take);
  }
  for (const std::uint64_t leaf : *touched) {
    if (leaf < list.leafCount()) std::ranges::for_each(list.leaf(leaf), take);
  }
}

// The elements of `run` up to `size`, with empty slots where it has none.
std::shared_ptr<const ArrayRun> runOfSize(const std::shared_ptr<const ArrayRun>& run, std::size_t size) {
  std::vector<ArrayRun::Element> elements;
  for (std::size_t place = 0; place < size; ++place) {
    if (run && place < run->size()) {
      elements.emplace_back(run, place);
    } else {
      elements.emplace_back(Value(Dictionary()));
    }
  }
  return ArrayRun::make(std::move(elements));
}

// With so many empty slots behind it.
LongArray extended(const LongArray& list, std::uint64_t count) {
  if (count == 0) return list;
  const std::uint64_t size = list.size() + count;
  auto runs = list.runs();
  runs.resize((size + kChunk - 1) / kChunk);
  for (std::uint64_t chunk = 0; chunk < runs.size(); ++chunk) {
    const std::uint64_t wanted = std::min(kChunk, size - chunk * kChunk);
    if (!runs[chunk] || runs[chunk]->size() != wanted) runs[chunk] = runOfSize(runs[chunk], wanted);
  }
  return LongArray(std::move(runs));
}

// A list that is theirs but for an empty page of our own behind it ends where theirs ends: that page is laid out anew.
void endWhereTheirsEnds(PLMergeResult& merged, const LongArray& theirs) {
  if (merged.differsInLayout || merged.list.size() <= theirs.size()) return;
  auto runs = merged.list.runs();
  runs.resize(theirs.runs().size());
  const std::size_t size = theirs.runs().empty() ? 0 : theirs.runs().back()->size();
  if (!runs.empty() && runs.back()->size() > size) runs.back() = runOfSize(runs.back(), size);
  merged.list = LongArray(std::move(runs));
}

std::optional<std::uint64_t> slotInTheirs(const PLMergeResult& merged, std::uint64_t slot) {
  const auto chunk = merged.theirFriends.find(slot / kChunk);
  if (chunk == merged.theirFriends.end()) return slot;
  return slot % kChunk < chunk->second.size() ? chunk->second[slot % kChunk] : std::nullopt;
}

// Whether both are one element or equal ones.
bool areEqual(const LongArray& left, std::uint64_t leftSlot, const LongArray& right, std::uint64_t rightSlot) {
  const auto origin = left.runs()[leftSlot / kChunk]->origin(leftSlot % kChunk);
  const auto& run = right.runs()[rightSlot / kChunk];
  if (origin.run == run && origin.index == rightSlot % kChunk) return true;
  return left.at(leftSlot) == right.at(rightSlot);
}

}  // namespace

void PLListTakeover::noteAutomaticRemoval(const std::shared_ptr<PLPerson>& person) {
  if (person) _removals.push_back({person, _friendList.version()});
}

void PLListTakeover::forgetRemovalsUntil(std::uint64_t listVersion) {
  std::erase_if(_removals, [&](const Removal& removal) { return removal.listVersion < listVersion; });
}

PLMergeResult PLListTakeover::merge(const PLStoredBase& base, const PLStoredList& theirs, const PLOwnPages& pages,
                                    const PLTouchedLeaves& touched) {
  const PLSlotSnapshot list = _friendList.snapshot();
  const std::uint64_t known = base.list->changes();
  takeMarks(list, base.list->differingLeaves(list), touched.changedSince(known, base.elsewhere));
  const std::uint64_t changes = _process.local<PLPersonChanges>().changes.load(std::memory_order_acquire);
  const auto leaves = touched.changedSince(known, base.elsewhere);
  const PLStoredVersion ours = PLStoredVersion::made(*base.list, list, changes, leaves ? &*leaves : nullptr);

  PLMergeInput input;
  input.base = base.list->array();
  input.baseTitles = base.titles;
  input.theirs = theirs.list;
  input.theirTitles = theirs.titles;
  // What a load did not make of the baseline nobody has removed.
  input.ours = extended(ours.array(), base.slotsNotMade);
  input.ourFriends = friendsInBase(*base.list, list);
  input.ourPages = pages.pagesInBase;
  input.ourPageCount = pages.groupCount;
  input.ourTitles = pages.titleEdits;
  input.ourAutomaticRemovals = automaticRemovals(base);
  input.groupSize = pages.groupSize;
  input.maxGroupCount = pages.maxGroupCount;
  input.writtenForm = formWrittenFor;
  PLMergeResult merged = threeWayMerge(input);
  endWhereTheirsEnds(merged, theirs.list);
  return merged;
}

// Of several slots of base the one in its place, else the first.
PLFriendOrigins PLListTakeover::friendsInBase(const PLStoredVersion& base, const PLSlotSnapshot& list) const {
  const std::vector<bool> differs = base.differingLeaves(list);
  std::unordered_map<const PLPerson*, std::uint64_t> firstSlots;
  firstSlots.reserve(static_cast<std::size_t>(std::ranges::count(differs, true)) * kChunk);
  PLFriendOrigins origins;
  visitDifferingSlots(base, differs, [&](std::uint64_t slot, const Slot& person) {
    firstSlots.try_emplace(person.get(), slot);
    if (slot >= list.count() || list.leaf(slot / kChunk)[slot % kChunk] != person) return;
    PLChunkOrigins& chunk = origins[slot / kChunk];
    chunk.resize(list.leaf(slot / kChunk).size());
    chunk[slot % kChunk] = slot;
  });
  for (std::uint64_t leaf = 0; leaf < differs.size(); ++leaf) {
    if (!differs[leaf]) continue;
    PLChunkOrigins& chunk = origins[leaf];
    const auto persons = list.leaf(leaf);
    chunk.resize(persons.size());
    for (std::uint64_t place = 0; place < persons.size(); ++place) {
      if (chunk[place] || persons[place] == EmptySlot) continue;
      const auto found = firstSlots.find(persons[place].get());
      if (found != firstSlots.end()) chunk[place] = found->second;
    }
  }
  return origins;
}

std::vector<std::uint64_t> PLListTakeover::automaticRemovals(const PLStoredBase& base) const {
  std::vector<std::uint64_t> slots = base.passedOver;
  if (!_removals.empty()) {
    const auto isRemoved = [&](const Slot& person) {
      return !_friendList.indexOf(person.get()) &&
             std::ranges::any_of(_removals, [&](const Removal& removal) { return removal.person == person; });
    };
    visitDifferingSlots(*base.list, base.list->differingLeaves(_friendList.snapshot()),
                        [&](std::uint64_t slot, const Slot& person) {
                          if (isRemoved(person)) slots.push_back(slot);
                        });
  }
  std::ranges::sort(slots);
  return slots;
}

// A friend of theirs whom the result has is known by the object that the list has for it now.
std::map<std::uint64_t, std::vector<Slot>> PLListTakeover::personsOfTheirs(const PLStoredList& theirs,
                                                                           const PLMergeResult& merged) const {
  std::map<std::uint64_t, std::vector<Slot>> persons;
  const auto chunkOf = [&](std::uint64_t slot) -> std::vector<Slot>& {
    const auto [found, isNew] = persons.try_emplace(slot / kChunk);
    if (!isNew) return found->second;
    const std::uint64_t first = slot / kChunk * kChunk;
    found->second.resize(std::min<std::uint64_t>(kChunk, theirs.list.size() - first));
    const bool isInPlace = !merged.theirFriends.contains(slot / kChunk);
    for (std::uint64_t place = 0; isInPlace && place < found->second.size(); ++place) {
      if (first + place < _friendList.count()) found->second[place] = _friendList.at(first + place);
    }
    return found->second;
  };
  for (const auto& [chunk, origins] : merged.theirFriends) {
    if (chunk * kChunk < theirs.list.size()) chunkOf(chunk * kChunk);
    for (std::uint64_t place = 0; place < origins.size(); ++place) {
      const std::uint64_t slot = chunk * kChunk + place;
      if (!origins[place] || slot >= _friendList.count()) continue;
      chunkOf(*origins[place])[*origins[place] % kChunk] = _friendList.at(slot);
    }
  }
  return persons;
}

void PLListTakeover::describeTheirs(PLStoredBase& base, const PLStoredList& theirs, const PLMergeResult& merged,
                                    std::vector<PLStoredVersion::Run> runs, std::uint64_t changes) const {
  auto persons = personsOfTheirs(theirs, merged);
  const auto& result = merged.list.runs();
  runs.resize(theirs.list.runs().size(), PLStoredVersion::Run::other);
  for (std::uint64_t chunk = 0; chunk < runs.size(); ++chunk) {
    const bool isTheirs = chunk < result.size() && result[chunk] == theirs.list.runs()[chunk];
    if (!isTheirs || persons.contains(chunk)) runs[chunk] = PLStoredVersion::Run::other;
  }
  for (std::uint64_t& slot : base.passedOver) slot = slotInTheirs(merged, slot).value_or(theirs.list.size());
  std::erase(base.passedOver, theirs.list.size());
  base.list = std::make_shared<const PLStoredVersion>(theirs.list, std::move(runs), _friendList.snapshot(), changes,
                                                      std::move(persons));
}

void PLListTakeover::markDifferences(const PLStoredList& theirs, const PLMergeResult& merged) {
  const auto& result = merged.list.runs();
  for (std::uint64_t chunk = 0; chunk < result.size(); ++chunk) {
    const bool isTheirs = chunk < theirs.list.runs().size() && result[chunk] == theirs.list.runs()[chunk];
    if (isTheirs && !merged.theirFriends.contains(chunk)) continue;
    const std::uint64_t first = chunk * kChunk;
    for (std::uint64_t slot = first; slot < std::min(first + result[chunk]->size(), _friendList.count()); ++slot) {
      const Slot& person = _friendList.at(slot);
      if (person == EmptySlot) continue;
      const auto origin = slotInTheirs(merged, slot);
      if (!origin || *origin >= theirs.list.size() || !areEqual(merged.list, slot, theirs.list, *origin))
        person->setNeedsSave(true);
    }
  }
}

}  // namespace pellor
