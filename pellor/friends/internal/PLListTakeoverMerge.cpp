// Own edits: what they are, what a merge has to know of them, and which of them stay marked after it.
#include <algorithm>
#include <unordered_map>
#include <utility>

#include "pellor/friends/PLPerson.h"
#include "pellor/friends/detail/PLPersonForm.h"
#include "pellor/friends/internal/PLDirtyChunks.h"
#include "pellor/friends/internal/PLListTakeover.h"

namespace pellor {
namespace {

constexpr std::uint64_t Chunk = PLSlotSnapshot::ChunkSize;

Dictionary formWrittenFor(const Dictionary& stored) {
  if (stored.empty()) return stored;
  PLPersonForm form(stored);
  return PLPerson::initWithForm(form)->dictionaryRepresentation();
}

// Calls `visit` with each friend in base's chunks that are not the live list's, or stand beyond its end. Where an own
// edit was merged into an empty slot of the stored list, the person there is no friend of base.
template <class Visit>
void visitDifferingSlots(const PLStoredVersion& base, const std::vector<bool>& differs, Visit visit) {
  DictionaryView element;
  for (std::uint64_t chunk = 0; chunk < base.chunkCount(); ++chunk) {
    if (chunk < differs.size() && !differs[chunk]) continue;
    const auto persons = base.chunk(chunk);
    const ArrayChunk& elements = *base.array().chunks()[chunk];
    for (std::uint64_t place = 0; place < std::min(persons.size(), elements.size()); ++place) {
      if (persons[place] == EmptySlot) continue;
      elements.view(place, element);
      if (!element.isEmpty()) visit(chunk * Chunk + place, persons[place]);
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
  for (std::uint64_t chunk = 0; chunk < differs.size(); ++chunk) {
    if (differs[chunk]) std::ranges::for_each(list.chunk(chunk), take);
  }
  for (const std::uint64_t chunk : *touched) {
    if (chunk < list.chunkCount()) std::ranges::for_each(list.chunk(chunk), take);
  }
}

// The elements of `chunk` up to `size`, with empty slots where it has none.
std::shared_ptr<const ArrayChunk> chunkOfSize(const std::shared_ptr<const ArrayChunk>& chunk, std::size_t size) {
  std::vector<ArrayChunk::Element> elements;
  for (std::size_t place = 0; place < size; ++place) {
    if (chunk && place < chunk->size()) {
      elements.emplace_back(chunk, place);
    } else {
      elements.emplace_back(Value(Dictionary()));
    }
  }
  return ArrayChunk::make(std::move(elements));
}

// With so many empty slots behind it.
LongArray extended(const LongArray& list, std::uint64_t count) {
  if (count == 0) return list;
  const std::uint64_t size = list.size() + count;
  auto chunks = list.chunks();
  chunks.resize((size + Chunk - 1) / Chunk);
  for (std::uint64_t chunk = 0; chunk < chunks.size(); ++chunk) {
    const std::uint64_t wanted = std::min(Chunk, size - chunk * Chunk);
    if (!chunks[chunk] || chunks[chunk]->size() != wanted) chunks[chunk] = chunkOfSize(chunks[chunk], wanted);
  }
  return LongArray(std::move(chunks));
}

// A list that is theirs but for an empty page of our own behind it ends where theirs ends: that page is laid out anew.
void endWhereTheirsEnds(PLMergeResult& merged, const LongArray& theirs) {
  if (merged.differsInLayout || merged.list.size() <= theirs.size()) return;
  auto chunks = merged.list.chunks();
  chunks.resize(theirs.chunks().size());
  const std::size_t size = theirs.chunks().empty() ? 0 : theirs.chunks().back()->size();
  if (!chunks.empty() && chunks.back()->size() > size) chunks.back() = chunkOfSize(chunks.back(), size);
  merged.list = LongArray(std::move(chunks));
}

std::optional<std::uint64_t> slotInTheirs(const PLMergeResult& merged, std::uint64_t slot) {
  const auto chunk = merged.theirFriends.find(slot / Chunk);
  if (chunk == merged.theirFriends.end()) return slot;
  return slot % Chunk < chunk->second.size() ? chunk->second[slot % Chunk] : std::nullopt;
}

// Whether both are one element or equal ones.
bool areEqual(const LongArray& left, std::uint64_t leftSlot, const LongArray& right, std::uint64_t rightSlot) {
  const auto origin = left.chunks()[leftSlot / Chunk]->origin(leftSlot % Chunk);
  const auto& chunk = right.chunks()[rightSlot / Chunk];
  if (origin.chunk == chunk && origin.index == rightSlot % Chunk) return true;
  return left.at(leftSlot) == right.at(rightSlot);
}

}  // namespace

void PLListTakeover::noteAutomaticRemoval(const std::shared_ptr<PLPerson>& person) {
  if (person) _removals.push_back({person, _friendList.version()});
}

void PLListTakeover::forgetRemovalsUntil(std::uint64_t listVersion) {
  std::erase_if(_removals, [&](const Removal& removal) { return removal.listVersion < listVersion; });
}

PLMergeResult PLListTakeover::merge(const PLBaseline& base, const PLStoredList& theirs, const PLOwnPages& pages,
                                    const PLDirtyChunks& touched) {
  const PLSlotSnapshot list = _friendList.snapshot();
  const std::uint64_t known = base.list->changes();
  takeMarks(list, base.list->differingChunks(list), touched.changedSince(known, base.elsewhere));
  PLMergeResult merged = threeWayMerge(mergeInput(base, theirs, pages, touched));
  endWhereTheirsEnds(merged, theirs.list);
  return merged;
}

PLMergeInput PLListTakeover::mergeInput(const PLBaseline& base, const PLStoredList& theirs, const PLOwnPages& pages,
                                        const PLDirtyChunks& touched) const {
  const PLSlotSnapshot list = _friendList.snapshot();
  const std::uint64_t known = base.list->changes();
  const std::uint64_t changes = _process.local<PLPersonChanges>().changes.load(std::memory_order_acquire);
  const auto chunks = touched.changedSince(known, base.elsewhere);
  const PLStoredVersion ours = PLStoredVersion::made(*base.list, list, changes, chunks ? &*chunks : nullptr);

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
  return input;
}

PLStoredPages PLListTakeover::pagesOf(const PLBaseline& base, const PLStoredList& theirs, const PLOwnPages& pages,
                                      const PLDirtyChunks& touched) const {
  const PLMergeInput input = mergeInput(base, theirs, pages, touched);
  const PLTheirFriends origins = findTheirFriends(input);
  PLStoredPages stored;
  stored.groupSize = pages.groupSize;
  for (const Value& title : theirs.titles) stored.titles.push_back(title.string() ? *title.string() : std::string());
  stored.contents.reserve(theirs.list.size());
  PLPersonForm form;
  for (std::uint64_t slot = 0; slot < theirs.list.size(); ++slot) {
    PLStoredSlot& content = stored.contents.emplace_back();
    theirs.list.chunks()[slot / Chunk]->view(slot % Chunk, form.entries());
    form.read();
    if (form.isEmpty()) continue;
    content.stored = PLPerson::initWithForm(form);
    if (const auto origin = origins.inBase[slot]) {
      const auto persons = base.list->chunk(*origin / Chunk);
      if (*origin % Chunk < persons.size()) content.known = persons[*origin % Chunk];
    } else if (const auto own = origins.inOurs[slot]; own && *own < _friendList.count()) {
      content.known = _friendList.at(*own);
    }
  }
  return stored;
}

// Of several slots of base the one in its place, else the first.
PLFriendOrigins PLListTakeover::friendsInBase(const PLStoredVersion& base, const PLSlotSnapshot& list) const {
  const std::vector<bool> differs = base.differingChunks(list);
  std::unordered_map<const PLPerson*, std::uint64_t> firstSlots;
  firstSlots.reserve(static_cast<std::size_t>(std::ranges::count(differs, true)) * Chunk);
  PLFriendOrigins origins;
  visitDifferingSlots(base, differs, [&](std::uint64_t slot, const Slot& person) {
    firstSlots.try_emplace(person.get(), slot);
    if (slot >= list.count() || list.chunk(slot / Chunk)[slot % Chunk] != person) return;
    PLChunkOrigins& inBase = origins[slot / Chunk];
    inBase.resize(list.chunk(slot / Chunk).size());
    inBase[slot % Chunk] = slot;
  });
  for (std::uint64_t chunk = 0; chunk < differs.size(); ++chunk) {
    if (!differs[chunk]) continue;
    PLChunkOrigins& inBase = origins[chunk];
    const auto persons = list.chunk(chunk);
    inBase.resize(persons.size());
    for (std::uint64_t place = 0; place < persons.size(); ++place) {
      if (inBase[place] || persons[place] == EmptySlot) continue;
      const auto found = firstSlots.find(persons[place].get());
      if (found != firstSlots.end()) inBase[place] = found->second;
    }
  }
  return origins;
}

std::vector<std::uint64_t> PLListTakeover::automaticRemovals(const PLBaseline& base) const {
  std::vector<std::uint64_t> slots = base.passedOver;
  if (!_removals.empty()) {
    const auto isRemoved = [&](const Slot& person) {
      return !_friendList.indexOf(person.get()) &&
             std::ranges::any_of(_removals, [&](const Removal& removal) { return removal.person == person; });
    };
    visitDifferingSlots(*base.list, base.list->differingChunks(_friendList.snapshot()),
                        [&](std::uint64_t slot, const Slot& person) {
                          if (isRemoved(person)) slots.push_back(slot);
                        });
  }
  std::ranges::sort(slots);
  return slots;
}

// A friend of theirs that the result has is known by the object that the list has for it now.
std::map<std::uint64_t, std::vector<Slot>> PLListTakeover::personsOfTheirs(const PLStoredList& theirs,
                                                                           const PLMergeResult& merged) const {
  std::map<std::uint64_t, std::vector<Slot>> persons;
  const auto chunkOf = [&](std::uint64_t slot) -> std::vector<Slot>& {
    const auto [found, isNew] = persons.try_emplace(slot / Chunk);
    if (!isNew) return found->second;
    const std::uint64_t first = slot / Chunk * Chunk;
    found->second.resize(std::min<std::uint64_t>(Chunk, theirs.list.size() - first));
    const bool isInPlace = !merged.theirFriends.contains(slot / Chunk);
    for (std::uint64_t place = 0; isInPlace && place < found->second.size(); ++place) {
      if (first + place < _friendList.count()) found->second[place] = _friendList.at(first + place);
    }
    return found->second;
  };
  for (const auto& [chunk, origins] : merged.theirFriends) {
    if (chunk * Chunk < theirs.list.size()) chunkOf(chunk * Chunk);
    for (std::uint64_t place = 0; place < origins.size(); ++place) {
      const std::uint64_t slot = chunk * Chunk + place;
      if (!origins[place] || slot >= _friendList.count()) continue;
      chunkOf(*origins[place])[*origins[place] % Chunk] = _friendList.at(slot);
    }
  }
  return persons;
}

void PLListTakeover::describeTheirs(PLBaseline& base, const PLStoredList& theirs, const PLMergeResult& merged,
                                    std::vector<PLStoredVersion::ChunkState> chunks, std::uint64_t changes) const {
  auto persons = personsOfTheirs(theirs, merged);
  const auto& result = merged.list.chunks();
  chunks.resize(theirs.list.chunks().size(), PLStoredVersion::ChunkState::other);
  for (std::uint64_t chunk = 0; chunk < chunks.size(); ++chunk) {
    const bool isTheirs = chunk < result.size() && result[chunk] == theirs.list.chunks()[chunk];
    if (!isTheirs || persons.contains(chunk)) chunks[chunk] = PLStoredVersion::ChunkState::other;
  }
  for (std::uint64_t& slot : base.passedOver) slot = slotInTheirs(merged, slot).value_or(theirs.list.size());
  std::erase(base.passedOver, theirs.list.size());
  base.list = std::make_shared<const PLStoredVersion>(theirs.list, std::move(chunks), _friendList.snapshot(), changes,
                                                      std::move(persons));
}

void PLListTakeover::markDifferences(const PLStoredList& theirs, const PLMergeResult& merged) {
  const auto& result = merged.list.chunks();
  for (std::uint64_t chunk = 0; chunk < result.size(); ++chunk) {
    const bool isTheirs = chunk < theirs.list.chunks().size() && result[chunk] == theirs.list.chunks()[chunk];
    if (isTheirs && !merged.theirFriends.contains(chunk)) continue;
    const std::uint64_t first = chunk * Chunk;
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
