#include "pellor/friends/internal/PLThreeWayMerge.h"

#include <algorithm>
#include <set>
#include <unordered_map>
#include <utility>

#include "pellor/friends/internal/PLMergeAssembly.h"
#include "pellor/friends/internal/PLMergeEdits.h"
#include "pellor/friends/internal/PLMergeFields.h"
#include "pellor/friends/internal/PLMergeFriends.h"
#include "pellor/friends/internal/PLMergePages.h"
#include "pellor/friends/internal/PLMergePlaces.h"
#include "pellor/friends/internal/PLMergeSlots.h"

namespace pellor {
namespace {

bool areSameChunks(const LongArray& one, const LongArray& other) { return one.chunks() == other.chunks(); }

bool isTheirsBase(const PLMergeInput& input) {
  return areSameChunks(input.base, input.theirs) && input.baseTitles == input.theirTitles;
}

class ThreeWayMerge {
 public:
  explicit ThreeWayMerge(const PLMergeInput& input)
      : _input(input),
        _base(input.base, input.groupSize),
        _theirs(input.theirs, input.groupSize),
        _ours(input.ours, input.groupSize),
        _ourPages(input.ourPages, input.ourPageCount, _ours, _base),
        _friends(_base, _theirs, input.writtenForm, [](std::uint64_t slot) { return std::optional(slot); }),
        _pages(_base, input.baseTitles, _theirs, input.theirTitles, _friends),
        _edits(ourEdits(input, _base, _ours, _ourPages)),
        _places(_theirs, input.maxGroupCount) {}

  PLMergeResult merge() {
    matchFriendsByPlaces();
    takeOut();
    bringAdditions();
    removePages();
    bringBackPages();
    placeAll();
    mergeFields();
    makeList();
    makeTitles();
    return std::move(_result);
  }

  PLTheirFriends theirFriends() {
    matchFriendsByPlaces();
    bringAdditions();
    PLTheirFriends found{PLChunkOrigins(_theirs.size()), PLChunkOrigins(_theirs.size())};
    for (std::uint64_t slot = 0; slot < _base.size(); ++slot) {
      const auto theirs = _base.isEmpty(slot) ? std::nullopt : _friends.theirs(slot);
      if (theirs) found.inBase[*theirs] = slot;
    }
    for (const auto& [ours, theirs] : _addedByBoth) found.inOurs[theirs] = ours;
    return found;
  }

 private:
  using Place = PLMergePlaces::Place;
  using Occupant = PLMergePlaces::Occupant;

  struct Newcomer {
    Occupant occupant;
    std::uint64_t slot;  // of ours
    bool isMoved;
  };

  // Once it is known which page is which, "in the same slot" means the same place.
  void matchFriendsByPlaces() {
    if (!_pages.isShifted()) return;
    _friends = PLFriendPairs(_base, _theirs, _input.writtenForm,
                             [this](std::uint64_t slot) { return theirSlotOf(_base.pageOf(slot), slot); });
  }

  std::optional<std::uint64_t> theirSlotOf(std::uint64_t basePage, std::uint64_t slot) const {
    const auto page = _pages.theirs(basePage);
    if (!page) return std::nullopt;
    return *page * _input.groupSize + _base.positionOf(slot);
  }

  std::optional<std::uint64_t> theirPageOf(std::uint64_t ourPage) const {
    const auto page = _ourPages.base(ourPage);
    return page ? _pages.theirs(*page) : std::nullopt;
  }

  std::optional<std::uint64_t> ourPageOf(std::uint64_t theirPage) const {
    const auto page = _pages.base(theirPage);
    return page ? _ourPages.ours(*page) : std::nullopt;
  }

  // A friend that our clean-up removed stays, for the clean-up to be made anew on the result. But where nobody else
  // changed anything it has been made of it.
  void takeOut() {
    const auto leave = [&](std::uint64_t baseSlot) {
      const auto slot = _friends.theirs(baseSlot);
      if (slot) empty(*slot);
      return slot;
    };
    for (const std::uint64_t slot : _edits.removed) _result.differsInLayout |= leave(slot).has_value();
    for (const std::uint64_t slot : _edits.removedAutomatically) {
      if (isTheirsBase(_input)) {
        _result.differsInLayout |= leave(slot).has_value();
      } else if (const auto theirs = _friends.theirs(slot)) {
        _givingWay.push_back(_places.placeOf(*theirs));
      }
    }
    for (const PLMergeEdits::SlotPair& moved : _edits.moved) {
      if (const auto slot = leave(moved.base)) {
        _newcomers.push_back({{Occupant::Side::theirs, *slot}, moved.ours, true});
      }
    }
  }

  void empty(std::uint64_t theirSlot) {
    const Place place = _places.placeOf(theirSlot);
    _places.put(place, {});
    _left.insert(place.page);
  }

  void bringAdditions() {
    _addedByBoth = addedByBoth(_ours, _edits.added, _theirs, _friends.additions(), _input.writtenForm,
                               [this](std::uint64_t slot) -> std::optional<std::uint64_t> {
                                 const auto page = _ourPages.base(_ours.pageOf(slot));
                                 return page ? theirSlotOf(*page, slot) : std::nullopt;
                               });
    for (const std::uint64_t slot : _edits.added) {
      if (!_addedByBoth.contains(slot)) _newcomers.push_back({{Occupant::Side::ours, slot}, slot, false});
    }
    for (const Newcomer& newcomer : _newcomers) _neededPages.insert(_ours.pageOf(newcomer.slot));
  }

  // Pages on which nobody stands any more, and nobody is to be put.
  void removePages() {
    if (_input.maxGroupCount <= 1) return;
    std::set<std::uint64_t> candidates = _left;
    for (std::uint64_t page = _ourPages.sameCount(); page < _base.pageCount(); ++page) {
      const auto theirs = _pages.theirs(page);
      if (theirs && !_ourPages.ours(page)) candidates.insert(*theirs);
    }
    for (const std::uint64_t page : candidates) {
      const auto ours = ourPageOf(page);
      const bool isNeeded = ours && _neededPages.contains(*ours) && _places.isInGroups(page);
      const bool wasEmptyInOurs = ours && _ours.friendCount(*ours) == 0;
      if (isNeeded || wasEmptyInOurs || page >= _theirs.pageCount() || _places.occupiedCount(page) > 0) continue;
      _places.removePage(page);
    }
  }

  // Pages that theirs lacks: first those on which one of ours is to be put, then empty ones that we appended.
  void bringBackPages() {
    for (const std::uint64_t page : _neededPages) bringBack(page);
    for (std::uint64_t page = std::min(_ourPages.sameCount(), _base.pageCount()); page < _ourPages.count(); ++page) {
      const auto base = _ourPages.base(page);
      const bool isNew = !base || *base >= _base.pageCount();
      if (isNew && !_neededPages.contains(page) && _ours.friendCount(page) == 0) bringBack(page);
    }
  }

  void bringBack(std::uint64_t ourPage) {
    if (const auto page = theirPageOf(ourPage)) {
      if (*page >= _theirs.pageCount()) _places.extendTo(*page);
      return;
    }
    if (const auto page = _places.insertPage(theirCountBefore(ourPage))) {
      _broughtBack[ourPage] = *page;
      _ourPageBehind[*page] = ourPage;
    }
  }

  std::uint64_t theirCountBefore(std::uint64_t ourPage) const {
    if (const auto base = _ourPages.base(ourPage)) return _pages.theirCountBefore(*base);
    for (; ourPage > 0; --ourPage) {
      const auto base = _ourPages.base(ourPage - 1);
      if (!base) continue;
      const auto theirs = _pages.theirs(*base);
      return std::min(theirs ? *theirs + 1 : _pages.theirCountBefore(*base), _theirs.pageCount());
    }
    return 0;
  }

  // Where we had the slot; absent when there is no such page, or none that may be laid out.
  std::optional<Place> wantedPlace(std::uint64_t ourSlot) const {
    const std::uint64_t ourPage = _ours.pageOf(ourSlot);
    std::optional<std::uint64_t> page = theirPageOf(ourPage);
    if (const auto found = _broughtBack.find(ourPage); found != _broughtBack.end()) page = found->second;
    if (!page || !_places.isInGroups(*page)) return std::nullopt;
    return Place{*page, _ours.positionOf(ourSlot)};
  }

  void placeAll() {
    giveWay();
    const auto firstAdded = std::ranges::find(_newcomers, false, &Newcomer::isMoved);
    std::vector<Newcomer> rest;
    for (auto newcomer = _newcomers.begin(); newcomer != firstAdded; ++newcomer) {
      if (!putWhereWanted(*newcomer)) rest.push_back(*newcomer);
    }
    // An addition may be refused, a moved friend may not: so much room is kept.
    const auto kept = static_cast<std::uint64_t>(rest.size());
    std::uint64_t room = kept == 0 ? _newcomers.size() : _places.freeCountInGroups(_newcomers.size());
    for (auto newcomer = firstAdded; newcomer != _newcomers.end(); ++newcomer) {
      if (room > kept && putWhereWanted(*newcomer)) {
        --room;
      } else {
        rest.push_back(*newcomer);
      }
    }
    for (const Newcomer& newcomer : rest) {
      if (const auto place = placeFor(newcomer)) {
        put(newcomer, *place);
      } else {
        _result.leftOut.push_back(newcomer.slot);
      }
    }
    std::ranges::sort(_result.leftOut);
  }

  // Friends that our clean-up removed leave for additions that would find no room, first those in whose places we have
  // somebody else.
  void giveWay() {
    std::erase_if(_givingWay, [&](Place place) { return !_places.isInGroups(place.page); });
    if (_givingWay.empty()) return;
    const std::uint64_t room = _places.freeCountInGroups(_newcomers.size());
    const auto added = static_cast<std::uint64_t>(std::ranges::count(_newcomers, false, &Newcomer::isMoved));
    std::uint64_t lacking = std::min(added, _newcomers.size() - std::min<std::uint64_t>(room, _newcomers.size()));
    std::set<Place> wanted;
    for (const Newcomer& newcomer : _newcomers) {
      if (const auto place = wantedPlace(newcomer.slot)) wanted.insert(*place);
    }
    std::ranges::stable_partition(_givingWay, [&](Place place) { return wanted.contains(place); });
    for (const Place place : _givingWay) {
      if (lacking == 0) return;
      --lacking;
      _places.put(place, {});
      _result.differsInLayout = true;
    }
  }

  bool putWhereWanted(const Newcomer& newcomer) {
    const auto place = wantedPlace(newcomer.slot);
    if (!place || !_places.isFree(*place)) return false;
    put(newcomer, *place);
    return true;
  }

  void put(const Newcomer& newcomer, Place place) {
    _places.put(place, newcomer.occupant);
    _result.differsInLayout |= !newcomer.isMoved || _places.placeOf(newcomer.occupant.slot) != place;
  }

  std::optional<Place> placeFor(const Newcomer& newcomer) {
    if (const auto wanted = wantedPlace(newcomer.slot)) {
      if (const auto place = _places.nearestFree(*wanted)) return place;
    }
    if (const auto place = _places.firstFreeInGroups()) return place;
    if (const auto page = _places.appendPage()) return Place{*page, _ours.positionOf(newcomer.slot)};
    if (!newcomer.isMoved) return std::nullopt;
    if (const auto place = _places.firstFree()) return place;
    // The page that it left, or that another left, has gone, and stays after all.
    const auto page = _places.restorePage();
    return page ? std::optional(Place{*page, 0}) : std::nullopt;
  }

  void mergeFields() {
    for (const PLMergeEdits::SlotPair& changed : _edits.changed) {
      const auto theirs = _friends.theirs(changed.base);
      if (theirs) mergeFields(_input.writtenForm(_base.form(changed.base)), *theirs, changed.ours);
    }
    for (const std::uint64_t slot : _edits.added) {
      const auto both = _addedByBoth.find(slot);
      if (both != _addedByBoth.end()) mergeFields({}, both->second, slot);
    }
  }

  void mergeFields(const Dictionary& base, std::uint64_t theirSlot, std::uint64_t ourSlot) {
    const Dictionary theirs = _theirs.form(theirSlot);
    PLMergedForm merged = mergeForms(base, _input.writtenForm(theirs), theirs, _ours.form(ourSlot));
    _result.needsRefresh |= merged.bothChangedBlock;
    if (merged.form == theirs) return;
    _forms.emplace(theirSlot, Value(std::move(merged.form)));
    const Place place = _places.placeOf(theirSlot);
    const Occupant itself{Occupant::Side::theirs, theirSlot};
    if (_places.at(place) == itself) _places.put(place, itself);
  }

  void makeList() {
    const std::uint64_t pageCount = _places.pageCount();
    _result.differsInLayout |= usedPageCount() != _theirs.pageCount() || _places.firstOtherPage() != pageCount;
    assembleList({_theirs, _ours, _places, _forms, listSize()}, _result);
    _result.differsInLayout |= _result.list.size() < _theirs.size();
    if (isTheirsBase(_input)) {
      _result.list = _input.ours;
      _result.theirFriends = _edits.origins;
    }
    if (_places.firstOtherPage() == pageCount) return;
    for (std::uint64_t page = 0; page < _places.firstOtherPage(); ++page) _result.theirPages.emplace_back(page);
    for (const std::uint64_t page : _places.otherPages()) {
      const auto theirs = _places.theirPage(page);
      _result.theirPages.push_back(theirs && *theirs < _theirs.pageCount() ? theirs : std::nullopt);
    }
  }

  // Without those behind the end of theirs on which nobody stands: an empty page behind the last friend is kept by each
  // process for itself, and is no edit.
  std::uint64_t usedPageCount() const {
    std::uint64_t count = _places.pageCount();
    if (_places.firstOtherPage() != count) return count;
    while (count > _theirs.pageCount() && _places.occupiedCount(count - 1) == 0) --count;
    return count;
  }

  // All pages in full, but for a last page of theirs that lacks some slots and that we did not fill up.
  std::uint64_t listSize() const {
    const std::uint64_t full = _places.pageCount() * _input.groupSize;
    const std::uint64_t last = _theirs.pageCount() - 1;
    if (_theirs.size() % _input.groupSize == 0 || !_places.isLast(last)) return full;
    std::uint64_t length = _theirs.size() % _input.groupSize;
    const auto base = _pages.base(last);
    const auto ours = ourPageOf(last);
    if (ours && lengthOf(_ours, *ours) != lengthOf(_base, *base)) length = std::max(length, lengthOf(_ours, *ours));
    while (length < _input.groupSize && !isFreeFrom({last, length})) ++length;
    return full - _input.groupSize + length;
  }

  bool isFreeFrom(Place place) const {
    for (; place.position < _input.groupSize; ++place.position) {
      if (!_places.isFree(place)) return false;
    }
    return true;
  }

  std::uint64_t lengthOf(const PLMergeSlots& list, std::uint64_t page) const {
    const std::uint64_t first = std::min(page * _input.groupSize, list.size());
    return std::min(list.size() - first, _input.groupSize);
  }

  void makeTitles() {
    _result.titles = _input.theirTitles;
    const std::uint64_t firstOther = _places.firstOtherPage();
    if (_input.ourTitles.empty() && firstOther == _places.pageCount() && firstOther >= _theirs.pageCount()) return;
    std::vector<std::optional<Value>> titles;
    for (std::uint64_t page = 0; page < firstOther; ++page) titles.push_back(titleOf(page));
    for (const std::uint64_t page : _places.otherPages()) titles.push_back(titleOf(page));
    for (std::uint64_t page = _places.end(); page < _input.theirTitles.size(); ++page) {
      titles.emplace_back(_input.theirTitles[page]);
    }
    while (!titles.empty() && !titles.back()) titles.pop_back();
    _result.titles.clear();
    for (std::optional<Value>& title : titles) _result.titles.push_back(title ? *std::move(title) : Value(""));
    _result.differsInTitles = _result.titles != _input.theirTitles;
  }

  // Titles of pages behind our groups cannot have been set here.
  std::optional<Value> titleOf(std::uint64_t page) const {
    const auto theirs = _places.theirPage(page);
    const auto ours = theirs ? ourPageOf(*theirs) : std::optional(_ourPageBehind.at(page));
    const auto set = ours ? _input.ourTitles.find(*ours) : _input.ourTitles.end();
    if (set != _input.ourTitles.end()) return Value(set->second);
    if (theirs) return *theirs < _input.theirTitles.size() ? std::optional(_input.theirTitles[*theirs]) : std::nullopt;
    const auto base = _ourPages.base(*ours);
    const std::string* title = base ? titleOfPage(_input.baseTitles, *base) : nullptr;
    return title ? std::optional(Value(*title)) : std::nullopt;
  }

  const PLMergeInput& _input;
  const PLMergeSlots _base;
  const PLMergeSlots _theirs;
  const PLMergeSlots _ours;
  const PLOurPages _ourPages;
  PLFriendPairs _friends;
  const PLPageMatch _pages;
  const PLMergeEdits _edits;
  PLMergePlaces _places;

  std::set<std::uint64_t> _left;                                  // pages of theirs that somebody left
  std::vector<Place> _givingWay;                                  // of friends that our clean-up removed
  std::unordered_map<std::uint64_t, std::uint64_t> _addedByBoth;  // by the slot of ours the slot of theirs
  std::vector<Newcomer> _newcomers;                               // to be put: the moved, then the added
  std::set<std::uint64_t> _neededPages;                           // pages of ours on which they are to be put
  std::map<std::uint64_t, std::uint64_t> _broughtBack;            // by the page of ours
  std::map<std::uint64_t, std::uint64_t> _ourPageBehind;          // the opposite
  std::unordered_map<std::uint64_t, Value> _forms;                // by the slot of theirs: with our fields
  PLMergeResult _result;
};

}  // namespace

PLMergeResult threeWayMerge(const PLMergeInput& input) { return ThreeWayMerge(input).merge(); }

PLTheirFriends findTheirFriends(const PLMergeInput& input) { return ThreeWayMerge(input).theirFriends(); }

}  // namespace pellor
