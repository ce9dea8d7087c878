#include "pellor/list/internal/TakeBack.h"

#include <algorithm>
#include <set>
#include <string_view>
#include <utility>

#include "pellor/friends/detail/PLPersonForm.h"
#include "pellor/friends/internal/PLMergeFields.h"
#include "pellor/list/internal/ExportedForm.h"
#include "pellor/list/internal/StepMatching.h"

namespace pellor {
namespace {

using Part = TakenBack::Part;

Dictionary metadataOf(const Dictionary& form) {
  const Value* value = valueForKey(form, PLPersonMetadataKey);
  return value && value->dictionary() ? *value->dictionary() : Dictionary();
}

std::optional<Value> entryOf(const Dictionary& dictionary, std::string_view key) {
  const Value* value = valueForKey(dictionary, key);
  return value ? std::optional(*value) : std::nullopt;
}

/// Compares the fields of one friend before the step, after it and now.
class FieldMerge {
 public:
  FieldMerge(TakenBack& result, FriendId id, const Dictionary& formNow) : _result(result), _id(id), _now(formNow) {}

  void merge(const Dictionary& before, const Dictionary& after) {
    const auto mergeEntry = [&](Part field, std::string_view key) {
      merge({_id, field, {}, entryOf(before, key)}, entryOf(after, key), entryOf(_now, key));
    };
    mergeEntry(Part::replyAs, PLPersonReplyAsKey);
    mergeEntry(Part::chosenNumber, PLPersonPreferredDestinationKey);
    mergeEntries(Part::metadata, metadataOf(before), metadataOf(after), metadataOf(_now));
    mergeEntries(Part::other, otherEntriesOf(before), otherEntriesOf(after), _now);
    merge({_id, Part::card, {}, blockOfForm(before)}, blockOfForm(after), blockOfForm(_now));
  }

 private:
  void mergeEntries(Part part, const Dictionary& before, const Dictionary& after, const Dictionary& now) {
    std::set<std::string> keys;
    for (const auto& [key, value] : before) keys.insert(key);
    for (const auto& [key, value] : after) keys.insert(key);
    for (const std::string& key : keys)
      merge({_id, part, key, entryOf(before, key)}, entryOf(after, key), entryOf(now, key));
  }

  void merge(TakenBack::FieldChange change, const std::optional<Value>& after, const std::optional<Value>& now) {
    if (change.value == after || change.value == now) return;
    if (now == after) {
      _result.changes.push_back(std::move(change));
    } else {
      _result.kept.push_back({change.field, _id, {}, nameToSay(_now), change.key});
    }
  }

  TakenBack& _result;
  const FriendId _id;
  const Dictionary& _now;
};

class TakingBack {
 public:
  TakingBack(const StepRecord& step, ListDraft& now, const FormOfFriend& formNow,
             const std::function<FriendId()>& newFriendId)
      : _step(step),
        _now(now),
        _formNow(formNow),
        _newFriendId(newFriendId),
        _laidOut(layOutEmptyEnd(step, now)),
        _stepPages(step),
        _matching(step, _stepPages, now, formNow) {
    for (std::size_t number = 0; number < step.pages.size(); ++number) _pages.push_back(_matching.page(number));
  }

  TakenBack run() {
    takeFriends();
    takePages();
    takeTitles();
    std::ranges::sort(_moved, {}, &Comer::from);
    std::ranges::sort(_restored, {}, &Comer::from);
    placeAll();
    if (_result.refusal) return std::move(_result);
    removeUnusedEnd();
    _now.addEmptyPageIfDue();
    return std::move(_result);
  }

 private:
  /// A friend who is to take the slot of before.
  struct Comer {
    FriendId id;
    Place from;
  };

  // --- Empty pages at the end ---

  // Each process lays them out for itself: one that the step left there is there, whether this one has it or not.
  static std::vector<PageId> layOutEmptyEnd(const StepRecord& step, ListDraft& now) {
    std::size_t count = now.pageCount();
    for (const PageRecord& page : step.pages)
      if (page.from && page.to && page.fingerprints.empty() && page.titleAfter.empty())
        count = std::max(count, *page.to + 1);
    std::vector<PageId> laidOut;
    while (now.pageCount() < count && now.canInsertPage()) laidOut.push_back(now.insertPage(now.pageCount(), ""));
    return laidOut;
  }

  void removeUnusedEnd() {
    while (_now.pageCount() > 1) {
      const std::size_t last = _now.pageCount() - 1;
      const bool isUnused = _now.isEmpty(last) && _now.title(last).empty();
      if (!isUnused || std::ranges::find(_laidOut, _now.pageId(last)) == _laidOut.end()) return;
      _now.removePage(last);
    }
  }

  // --- Friends ---

  // Nobody is placed yet: those who come may change places with each other.
  void takeFriends() {
    for (std::size_t number = 0; number < _step.friends.size(); ++number) {
      const FriendRecord& person = _step.friends[number];
      const auto id = _matching.friendNow(number);
      if (!person.from) {
        if (id) _lifted.push_back(*id);
      } else if (!person.to) {
        id ? keep(Part::membership, *id, person.before) : restore(person);
      } else if (id) {
        takeMove(person, *id);
        if (person.before != person.after) takeFields(person, *id);
      } else if (_stepPages.isMoved(person) || person.before != person.after) {
        keep(Part::membership, {}, person.after);
      }
    }
    for (const FriendId id : _lifted) _now.lift(id);
  }

  void keep(Part part, FriendId id, const Dictionary& form) {
    _result.kept.push_back({part, id, {}, nameToSay(form), {}});
  }

  void restore(const FriendRecord& person) {
    const FriendId id = person.id.number == 0 ? _newFriendId() : person.id;
    _result.restored.push_back({id, person.before});
    _restored.push_back({id, *person.from});
  }

  void takeMove(const FriendRecord& person, FriendId id) {
    if (!_stepPages.isMoved(person)) return;
    const auto place = _now.placeOf(id);
    if (place == placeNow(_stepPages.after(person.to->page), person.to->slot)) {
      _lifted.push_back(id);
      _moved.push_back({id, *person.from});
    } else if (place != placeNow(_stepPages.before(person.from->page), person.from->slot)) {
      keep(Part::place, id, person.after);
    }
  }

  // What a friend got from its card since it was linked by an automatic decision is no change of its link.
  void takeFields(const FriendRecord& person, FriendId id) {
    const Dictionary now = _formNow(id);
    Dictionary after = person.after;
    if (isAutomatic(_step.kind) && identifyingGUID(now) == identifyingGUID(after)) {
      for (const auto& [key, value] : blockOfForm(person.after)) after.erase(key);
      for (auto& [key, value] : blockOfForm(now)) after.insert_or_assign(key, value);
    }
    FieldMerge(_result, id, now).merge(person.before, after);
  }

  // Absent for a page that is not in the draft.
  std::optional<std::size_t> indexNow(std::size_t number) const {
    if (!_pages[number]) return std::nullopt;
    return _now.indexOf(*_pages[number]);
  }

  // The slot of a page of the step in the draft.
  std::optional<Place> placeNow(std::optional<std::size_t> number, std::uint64_t slot) const {
    const auto index = number ? indexNow(*number) : std::nullopt;
    return index ? std::optional(Place{*index, slot}) : std::nullopt;
  }

  // --- Pages ---

  // Those that come back or are moved back are put at their indexes in ascending order, while the moved ones wait at
  // the end: so each meets the pages that were before it.
  void takePages() {
    std::vector<std::size_t> coming;
    for (std::size_t number = 0; number < _step.pages.size(); ++number) {
      const PageRecord& page = _step.pages[number];
      const bool isToCome = page.from && (page.to ? page.isMoved && isWhereLeft(number) : !_pages[number]);
      if (isToCome) coming.push_back(number);
    }
    removeInserted(!coming.empty());
    std::ranges::sort(coming, {}, [&](std::size_t number) { return *_step.pages[number].from; });
    for (const std::size_t number : coming)
      if (_pages[number]) movePage(*_now.indexOf(*_pages[number]), _now.pageCount() - 1);
    auto waiting = static_cast<std::size_t>(
        std::ranges::count_if(coming, [&](std::size_t number) { return _pages[number].has_value(); }));
    for (const std::size_t number : coming) {
      const std::size_t index = std::min(*_step.pages[number].from, _now.pageCount() - waiting);
      if (_pages[number]) {
        movePage(*_now.indexOf(*_pages[number]), index);
        --waiting;
      } else {
        bringBack(number, index);
      }
    }
  }

  bool isWhereLeft(std::size_t number) {
    const PageRecord& page = _step.pages[number];
    const auto index = indexNow(number);
    if (!index) return false;
    if (index == page.to) return true;
    if (index != page.from) keepPage(Part::place, number);
    return false;
  }

  void keepPage(Part part, std::size_t number) {
    const auto index = indexNow(number);
    const std::string& title = index ? _now.title(*index) : _step.pages[number].titleBefore;
    _result.kept.push_back({part, {}, _pages[number].value_or(PageId{}), title, {}});
  }

  void removeInserted(bool areOthersComing) {
    for (std::size_t number = 0; number < _step.pages.size(); ++number) {
      const PageRecord& page = _step.pages[number];
      const auto index = indexNow(number);
      if (page.from || !index) continue;
      const bool isTheOnlyOne = _now.pageCount() == 1 && !areOthersComing;
      if (!_now.isEmpty(*index) || _now.title(*index) != page.titleAfter) {
        keepPage(Part::page, number);
      } else if (isTheOnlyOne) {
        _now.rename(*index, "");
      } else {
        _now.removePage(*index);
      }
    }
  }

  void movePage(std::size_t from, std::size_t to) {
    if (from == to) return;
    const std::size_t count = _now.pageCount();
    _now.movePage(from, to);
    // It is not known yet whether the last page is to be the last one.
    if (_now.pageCount() > count) _now.removePage(count);
  }

  void bringBack(std::size_t number, std::size_t index) {
    const PageRecord& page = _step.pages[number];
    if (_now.canInsertPage()) {
      _pages[number] = _now.insertPage(index, page.titleBefore, page.id);
    } else {
      keepPage(Part::page, number);
    }
  }

  void takeTitles() {
    for (std::size_t number = 0; number < _step.pages.size(); ++number) {
      const PageRecord& page = _step.pages[number];
      const auto index = indexNow(number);
      if (!page.from || !page.to || !index || page.titleBefore == page.titleAfter) continue;
      if (_now.title(*index) == page.titleAfter) {
        _now.rename(*index, page.titleBefore);
      } else if (_now.title(*index) != page.titleBefore) {
        keepPage(Part::title, number);
      }
    }
  }

  // --- Places ---

  // Nobody loses a slot to somebody who is only near it.
  void placeAll() {
    std::vector<Comer> rest;
    for (const auto* comers : {&_moved, &_restored}) {
      for (const Comer& comer : *comers) {
        const auto place = placeBefore(comer);
        if (place && _now.isPlace(*place) && _now.at(*place).number == 0) {
          _now.put(comer.id, *place);
        } else {
          rest.push_back(comer);
        }
      }
    }
    for (const Comer& comer : rest) {
      const auto place = placeNear(comer);
      if (!place) {
        _result.refusal = Refusal{RefusalReason::noRoom};
        return;
      }
      _now.put(comer.id, *place);
    }
  }

  std::optional<Place> placeBefore(const Comer& comer) const {
    return placeNow(_stepPages.before(comer.from.page), comer.from.slot);
  }

  std::optional<Place> placeNear(const Comer& comer) {
    const auto wanted = placeBefore(comer);
    if (const auto place = wanted ? _now.freeSlotNear(*wanted) : _now.firstFreeSlot()) return place;
    if (!_now.canInsertPage()) return std::nullopt;
    const std::size_t index = _now.pageCount();
    _now.insertPage(index, "");
    return Place{index, std::min(comer.from.slot, _now.limits().pageSize - 1)};
  }

  const StepRecord& _step;
  ListDraft& _now;
  const FormOfFriend& _formNow;
  const std::function<FriendId()>& _newFriendId;
  const std::vector<PageId> _laidOut;
  const StepPages _stepPages;
  const StepMatching _matching;
  std::vector<std::optional<PageId>> _pages;  // of the step, as they are in the draft
  std::vector<FriendId> _lifted;
  std::vector<Comer> _moved;
  std::vector<Comer> _restored;
  TakenBack _result;
};

}  // namespace

TakenBack takeBack(const StepRecord& step, ListDraft& now, const FormOfFriend& formNow,
                   const std::function<FriendId()>& newFriendId) {
  if (!canBeTakenBack(step)) return {.refusal = Refusal{RefusalReason::notUndoable}};
  return TakingBack(step, now, formNow, newFriendId).run();
}

}  // namespace pellor
