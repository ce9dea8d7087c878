#include "pellor/friends/internal/PLListTakeover.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "pellor/friends/PLBundle.h"
#include "pellor/friends/PLFriendsManagerKeys.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/friends/detail/PLPersonForm.h"
#include "pellor/friends/internal/PLExceptions.h"
#include "pellor/friends/internal/PLPersonSequence.h"
#include "pellor/friends/internal/PLSlotRearrangement.h"
#include "pellor/platform/AddressBookStore.h"

namespace pellor {

PLListTakeover::PLListTakeover(Process& process, PLSlotList& list, PLPersonSequence& sourcedPersons,
                               const PLExceptions& exceptions, std::function<void()> addEmptyGroup)
    : _process(process),
      _friendList(list),
      _sourcedPersons(sourcedPersons),
      _exceptions(exceptions),
      _addEmptyGroup(std::move(addEmptyGroup)) {}

// What one merge of a stored list needs.
struct PLListTakeover::Merge {
  Merge(AddressBook* handle, PLSlotList& list, std::uint64_t slotCount, bool hasSourcedPersons)
      : addressBook(handle),
        findsFriends(list.occupiedCount() != 0),
        changesOnce(!hasSourcedPersons && list.people().places().repeatedPersonCount() == 0),
        slots(list, slotCount),
        changedChunks(slotCount / PLSlotSnapshot::ChunkSize + 1) {}

  // A person that stands in several slots, or was looked up and became a friend, may change several times. Every other
  // person changes once, in one slot.
  void note(const std::shared_ptr<PLPerson>& person, std::string_view changeType) {
    changesOnce ? changes.addLast(person, changeType) : changes.add(person, changeType);
  }
  void markLeafOf(std::uint64_t index) {
    if (const std::uint64_t chunk = index / PLSlotSnapshot::ChunkSize; chunk < changedChunks.size()) {
      changedChunks[chunk] = true;
    }
  }

  AddressBook* const addressBook;
  const bool findsFriends;  // whether there were any friends before
  const bool changesOnce;   // whether nobody has two entries in the change log
  PLSlotRearrangement slots;
  std::vector<PLPersonForm> forms;  // of the chunk being merged
  PLPersonForm* form = nullptr;     // of the element being merged
  std::function<Value()> element;   // that element, made for the caller
  PLChangeLog changes;              // which go into the change log together
  std::vector<bool> changedChunks;  // whether friends moved further up or changed there
  std::vector<PLStoredVersion::ChunkState> chunks;
  std::vector<std::uint64_t> passedOver;  // slots of stored friends that were left out
};

PLListTakeover::Result PLListTakeover::_updateFriends(const PLStoredList& theirs, const PLMergeResult* merged,
                                                      const PLBaseline& known, AddressBook* addressBook,
                                                      std::uint64_t groupSize) {
  const LongArray& stored = merged ? merged->list : theirs.list;
  Merge merge(addressBook, _friendList, stored.size() + groupSize, !_sourcedPersons.isEmpty());
  const PLPersonChanges& counts = _process.local<PLPersonChanges>();
  auto base = std::make_shared<PLBaseline>();
  base->elsewhere = counts.touches.countElsewhere();
  const std::uint64_t changes = counts.changes.load(std::memory_order_acquire);
  mergeChunks(merge, stored, *known.list);
  trimSlots(merge, stored.size(), groupSize);
  reportDisplaced(merge);
  _removals.clear();
  base->listVersion = theirs.listVersion;
  base->titles = theirs.titles;
  base->titlesVersion = theirs.titlesVersion;
  base->passedOver = std::move(merge.passedOver);
  base->slotsNotMade = stored.size() - std::min<std::uint64_t>(stored.size(), _friendList.count());
  if (merged) {
    markDifferences(theirs, *merged);
    describeTheirs(*base, theirs, *merged, std::move(merge.chunks), changes);
  } else {
    base->list =
        std::make_shared<const PLStoredVersion>(theirs.list, std::move(merge.chunks), _friendList.snapshot(), changes);
  }
  return {std::move(base), std::move(merge.changes)};
}

// A chunk that is merged already is passed over.
void PLListTakeover::mergeChunks(Merge& merge, const LongArray& stored, const PLStoredVersion& known) {
  const std::uint64_t changes = _process.local<PLPersonChanges>().changes.load(std::memory_order_acquire);
  const PLSlotSnapshot slots = _friendList.snapshot();
  const PLStoredVersion::UnchangedChunks isUnchanged(known, stored, slots, changes);
  merge.chunks.reserve(stored.chunks().size());
  for (std::size_t index = 0; index < stored.chunks().size(); ++index) {
    using ChunkState = PLStoredVersion::ChunkState;
    const bool isAtRest = (!merge.changedChunks[index] && isUnchanged(index)) ||
                          mergeChunk(merge, *stored.chunks()[index], index * LongArray::ChunkSize);
    merge.chunks.push_back(isAtRest ? ChunkState::atRest : ChunkState::other);
  }
}

namespace {

// Whether the form, which the person took over, describes it and is the form that would be stored of it: a friend
// without GUID and destinations is taken for another one at each load.
bool isAtRest(const PLPerson& person, PLPersonForm& form) { return form.isAsWritten() && person.isEqualToForm(form); }

}  // namespace

// Like the operations below: whether merging this again would change nothing.
bool PLListTakeover::mergeChunk(Merge& merge, const ArrayChunk& chunk, std::uint64_t first) {
  bool isAtRest = viewChunk(merge, chunk);
  for (std::size_t place = 0; place < chunk.size(); ++place) {
    merge.form = &merge.forms[place];
    merge.element = [&chunk, place] { return chunk.at(place); };
    isAtRest = mergeElement(merge, first + place) && isAtRest;
  }
  return isAtRest;
}

// False when an element is no dictionary and so an empty slot.
bool PLListTakeover::viewChunk(Merge& merge, const ArrayChunk& chunk) {
  if (merge.forms.empty()) merge.forms = std::vector<PLPersonForm>(LongArray::ChunkSize);
  bool areDictionaries = true;
  std::vector<std::string_view> guids;
  guids.reserve(chunk.size());
  for (std::size_t place = 0; place < chunk.size(); ++place) {
    PLPersonForm& form = merge.forms[place];
    areDictionaries = chunk.view(place, form.entries()) && areDictionaries;
    form.read();
    if (!form.identifyingGUID().empty()) guids.push_back(form.identifyingGUID());
  }
  if (merge.findsFriends) _friendList.people().prefetch(guids);
  return areDictionaries;
}

bool PLListTakeover::mergeElement(Merge& merge, std::uint64_t index) {
  if (index >= _friendList.count()) return appendStoredFriend(merge, index);
  if (!merge.form->isEmpty()) return placeStoredFriend(merge, index);
  merge.slots.displace(index);
  return true;
}

bool PLListTakeover::isLeftOut(PLPersonForm& form) const {
  if (form.hasStoredDestinations()) return false;
  const auto name = form.isEmpty() ? std::nullopt : form.content().texts[PLPersonRecord::_name];
  return form.isEmpty() || !_exceptions.keepWithoutDestinations(form.identifyingGUID(), name.value_or(""));
}

// Only behind the end of the list a stored friend without destinations is left out.
bool PLListTakeover::appendStoredFriend(Merge& merge, std::uint64_t index) {
  if (isLeftOut(*merge.form)) {
    if (!merge.form->isEmpty()) merge.passedOver.push_back(index);
    return merge.form->isEmpty();
  }
  auto person = PLPerson::initWithForm(*merge.form);
  while (_friendList.count() <= index) _addEmptyGroup();
  merge.slots.put(index, person);
  merge.note(person, PLFriendsManagerPersonAdded);
  return isAtRest(*person, *merge.form);
}

bool PLListTakeover::placeStoredFriend(Merge& merge, std::uint64_t index) {
  const Slot current = _friendList.at(index);
  auto known = current && current->isEqualToForm(*merge.form) ? current : nullptr;
  if (!known) {
    known = bringMovedFriend(merge, index);
  }
  if (known) {
    if (known->updateFromForm(*merge.form)) {
      merge.note(known, PLFriendsManagerPersonUpdated);
      markLaterSlots(merge, *known, index);
    }
    return isAtRest(*known, *merge.form);
  }
  const auto stored = PLPerson::initWithForm(*merge.form);
  // A caller may hold the person that it looked up: that very object becomes the friend, as it is.
  const auto sourced = takeSourcedPerson(merge, *stored);
  if (sourced) {
    _friendList.set(index, sourced);
  } else {
    merge.slots.put(index, stored);
  }
  merge.note(sourced ? sourced : stored, PLFriendsManagerPersonAdded);
  return !sourced && isAtRest(*stored, *merge.form);
}

// A friend may be in several slots: the forms in the later ones met another one when they were merged last.
void PLListTakeover::markLaterSlots(Merge& merge, const PLPerson& person, std::uint64_t index) {
  while (const auto later = _friendList.indexOf(&person, index + 1)) {
    merge.markLeafOf(*later);
    index = *later;
  }
}

// What is stored already is not written again: that could overwrite a later edit elsewhere.
std::shared_ptr<PLPerson> PLListTakeover::takeSourcedPerson(const Merge& merge, const PLPerson& stored) {
  auto sourced = _sourcedPersons.firstLike(stored);
  if (!sourced) return nullptr;
  _sourcedPersons.remove(sourced.get());
  sourced->adoptPreferencesFromForm(*merge.form);
  sourced->takeNeedsSave();
  if (Value(sourced->dictionaryRepresentation()) != merge.element()) sourced->setNeedsSave(true);
  return sourced;
}

// The friend that the stored form describes, from a later slot, which is emptied, or from among the displaced.
std::shared_ptr<PLPerson> PLListTakeover::bringMovedFriend(Merge& merge, std::uint64_t index) {
  if (!merge.findsFriends) return nullptr;
  const auto [moved, from] = merge.slots.bring(*merge.form, index);
  if (moved == EmptySlot) return nullptr;
  if (from) merge.markLeafOf(*from);
  merge.note(moved, PLFriendsManagerPersonMoved);
  return moved;
}

// The list keeps whole pages. Nobody stands behind the end of what is stored, also on its last page: a process with
// pages of another size may have stored half of one of ours.
void PLListTakeover::trimSlots(Merge& merge, std::uint64_t storedCount, std::uint64_t groupSize) {
  const float groups = std::ceil(static_cast<float>(storedCount) / static_cast<float>(groupSize));
  const std::uint64_t kept = static_cast<std::uint64_t>(groups) * groupSize;
  for (std::uint64_t index = storedCount; index < _friendList.count(); ++index) merge.slots.displace(index);
  if (_friendList.count() > kept) _friendList.remove(kept, _friendList.count() - kept);
}

void PLListTakeover::reportDisplaced(Merge& merge) {
  merge.slots.forEachDisplaced([&merge](const std::shared_ptr<PLPerson>& person) {
    _PLGetLogSystem().log(LogFormat("[%@] [ABGUID=%@] was displaced and removed").as("_updateFriends"),
                          redactable(person->displayName()), redactable(person->abRecordGUID()));
    merge.note(person, PLFriendsManagerPersonDeleted);
  });
}

}  // namespace pellor
