#include "pellor/list/internal/StepPlan.h"

#include <algorithm>
#include <utility>

namespace pellor {
namespace {

using enum RefusalReason;

bool haveCommon(const std::vector<std::string>& some, const std::vector<std::string>& others) {
  return std::ranges::any_of(some, [&](const auto& each) { return std::ranges::find(others, each) != others.end(); });
}

}  // namespace

std::optional<RefusalReason> StepPlan::add(PlannedEdit& planned) {
  _isAgain = false;
  return attempt(planned);
}

std::optional<RefusalReason> StepPlan::addAgain(PlannedEdit planned) {
  _isAgain = true;
  return attempt(planned);
}

StepPlan::Answer StepPlan::attempt(PlannedEdit& planned) {
  return std::visit([&](const auto& edit) { return perform(edit, planned); }, planned.edit);
}

// Friends and pages that were there at the call are missing because another program took them out.
RefusalReason StepPlan::missing() const { return _isAgain ? overtaken : notFound; }

StepPlan::Answer StepPlan::refuse(RefusalReason reason, FriendId inTheWay) {
  _inTheWay = inTheWay;
  return reason;
}

StepPlan::Answer StepPlan::requireFriend(FriendId id) const {
  return _draft.placeOf(id) ? std::nullopt : Answer(missing());
}

// At the call an index names a page, later the page's id does.
std::optional<Place> StepPlan::meantBy(Place place, PlannedEdit& planned) const {
  if (!_isAgain) {
    if (!_draft.isPlace(place)) return std::nullopt;
    planned.page = _draft.pageId(place.page);
    return place;
  }
  const auto page = _draft.indexOf(planned.page);
  return page ? std::optional(Place{*page, place.slot}) : _draft.firstFreeSlot();
}

// --- Friends -------------------------------------------------------------------------------------------------------

// Two members of a family may share a line: whose contact was named is another friend. Who has nothing but it is not.
StepPlan::Answer StepPlan::requireNobody(const Newcomer& newcomer) {
  const auto isThere = [&](const std::optional<FriendId>& known) { return known && _draft.placeOf(*known); };
  for (const std::string& guid : newcomer.guids) {
    const auto known = _friends.friendWithGUID(guid);
    if (isThere(known)) return refuse(isFriend, *known);
  }
  const auto known = newcomer.destination ? _friends.friendWithDestination(*newcomer.destination) : std::nullopt;
  if (isThere(known)) return refuse(isFriend, *known);
  for (const Newcomer& other : _newcomers) {
    const bool isSame = other.id == newcomer.id || haveCommon(other.guids, newcomer.guids);
    if (isSame && isThere(other.id)) return isFriend;
  }
  return std::nullopt;
}

StepPlan::Answer StepPlan::perform(const AddFriend& edit, PlannedEdit& planned) {
  const Newcomer& newcomer = *planned.newcomer;
  if (!newcomer.isReachable) return noDestination;
  if (const Answer refused = requireNobody(newcomer)) return refused;
  auto place = edit.to ? meantBy(*edit.to, planned) : _draft.firstFreeSlot();
  if (!place) return edit.to && !_isAgain ? noSuchPlace : noRoom;
  if (const FriendId there = _draft.at(*place); there.number != 0) {
    if (!_isAgain) return refuse(noSuchPlace, there);
    place = _draft.freeSlotNear(*place);
    if (!place) return noRoom;
  }
  _draft.put(newcomer.id, *place);
  _newcomers.push_back(newcomer);
  return std::nullopt;
}

// Somebody who is gone already was to go.
StepPlan::Answer StepPlan::perform(const RemoveFriend& edit, PlannedEdit&) {
  const auto place = _draft.placeOf(edit.id);
  if (!place) return _isAgain ? std::nullopt : Answer(notFound);
  _leftPages.push_back(_draft.pageId(place->page));
  _draft.lift(edit.id);
  return std::nullopt;
}

StepPlan::Answer StepPlan::perform(const MoveFriend& edit, PlannedEdit& planned) {
  if (const Answer refused = requireFriend(edit.id)) return refused;
  const Place from = *_draft.placeOf(edit.id);
  const auto to = meantBy(edit.to, planned);
  if (!to) return _isAgain ? std::nullopt : Answer(noSuchPlace);
  const FriendId other = _draft.at(*to);
  if (other == edit.id) return std::nullopt;
  _draft.lift(edit.id);
  if (other.number != 0) _draft.lift(other);
  _draft.put(edit.id, *to);
  if (other.number != 0) _draft.put(other, from);
  return std::nullopt;
}

StepPlan::Answer StepPlan::perform(const ChooseNumber& edit, PlannedEdit&) {
  if (const Answer refused = requireFriend(edit.id)) return refused;
  if (!edit.number || _friends.hasDestination(edit.id, *edit.number)) return std::nullopt;
  return noDestination;
}

StepPlan::Answer StepPlan::perform(const SetReplyAs& edit, PlannedEdit&) { return requireFriend(edit.id); }

StepPlan::Answer StepPlan::perform(const SetMetadata& edit, PlannedEdit&) { return requireFriend(edit.id); }

// --- Pages ---------------------------------------------------------------------------------------------------------

StepPlan::Answer StepPlan::perform(const RenamePage& edit, PlannedEdit&) {
  const auto index = _draft.indexOf(edit.page);
  if (!index) return missing();
  _draft.rename(*index, edit.title);
  return std::nullopt;
}

StepPlan::Answer StepPlan::requireAllNamed(const FillPage& edit, std::size_t index) {
  for (auto id = edit.friends.begin(); id != edit.friends.end(); ++id) {
    if (id->number == 0) continue;
    if (const Answer refused = requireFriend(*id)) return refused;
    if (std::find(edit.friends.begin(), id, *id) != id) return refuse(noSuchPlace, *id);
  }
  for (const FriendId id : _draft.friendsOn(index)) {
    if (id.number != 0 && std::ranges::find(edit.friends, id) == edit.friends.end())
      return refuse(_isAgain ? overtaken : noSuchPlace, id);
  }
  return std::nullopt;
}

StepPlan::Answer StepPlan::perform(const FillPage& edit, PlannedEdit&) {
  const auto index = _draft.indexOf(edit.page);
  if (!index) return missing();
  if (edit.friends.size() > _draft.limits().pageSize) return noSuchPlace;
  if (const Answer refused = requireAllNamed(edit, *index)) return refused;
  for (const FriendId id : edit.friends) _draft.lift(id);
  for (std::uint64_t slot = 0; slot < edit.friends.size(); ++slot)
    if (edit.friends[slot].number != 0) _draft.put(edit.friends[slot], {*index, slot});
  return std::nullopt;
}

StepPlan::Answer StepPlan::perform(const InsertPage& edit, PlannedEdit& planned) {
  if (!_draft.canInsertPage()) return noRoom;
  std::size_t index = edit.index;
  if (_isAgain) {
    index = _draft.indexOf(planned.page).value_or(_draft.pageCount());
  } else {
    if (index > _draft.pageCount()) return noSuchPlace;
    planned.page = index < _draft.pageCount() ? _draft.pageId(index) : PageId{};
  }
  planned.inserted = _draft.insertPage(index, edit.title, planned.inserted);
  return std::nullopt;
}

StepPlan::Answer StepPlan::perform(const MovePage& edit, PlannedEdit&) {
  const auto index = _draft.indexOf(edit.page);
  if (!index) return missing();
  if (edit.index >= _draft.pageCount()) return _isAgain ? std::nullopt : Answer(noSuchPlace);
  if (*index != edit.index) _draft.movePage(*index, edit.index);
  return std::nullopt;
}

StepPlan::Answer StepPlan::perform(const RemovePage& edit, PlannedEdit& planned) {
  const auto index = _draft.indexOf(edit.page);
  if (!index) return _isAgain ? std::nullopt : Answer(notFound);
  for (const FriendId id : _draft.friendsOn(*index)) {
    if (id.number == 0) continue;
    if (!_isAgain) planned.leaving.push_back(id);
    if (std::ranges::find(planned.leaving, id) == planned.leaving.end()) return refuse(overtaken, id);
  }
  for (const FriendId id : planned.leaving) _draft.lift(id);
  if (_draft.pageCount() == 1) {
    _draft.rename(0, "");
  } else {
    _draft.removePage(*index);
  }
  return std::nullopt;
}

// --- The end -------------------------------------------------------------------------------------------------------

void StepPlan::finish() {
  for (const PageId page : _leftPages) {
    const auto index = _draft.indexOf(page);
    if (index && _draft.isEmpty(*index) && _draft.pageCount() > 1 && _draft.limits().mostPages > 1)
      _draft.removePage(*index);
  }
  _draft.addEmptyPageIfDue();
}

EditResult StepPlan::resultOf(const PlannedEdit& planned) const {
  EditResult result;
  std::visit(
      [&](const auto& edit) {
        if constexpr (requires { edit.id; }) result.id = edit.id;
        if constexpr (requires { edit.page; }) result.page = edit.page;
      },
      planned.edit);
  if (planned.newcomer) result.id = planned.newcomer->id;
  result.restored = planned.restores;
  if (planned.inserted.number != 0) result.page = planned.inserted;
  if (result.id.number != 0) result.place = _draft.placeOf(result.id);
  return result;
}

}  // namespace pellor
