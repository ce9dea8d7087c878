#include "pellor/list/internal/ListDraft.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace pellor {
namespace {

constexpr FriendId Nobody{};

FriendId idOf(const std::shared_ptr<const Friend>& person) { return person ? person->id : Nobody; }

}  // namespace

ListDraft::ListDraft(Snapshot list, ListLimits limits, std::function<PageId()> newPageId)
    : _before(std::move(list)),
      _limits(limits),
      _newPageId(std::move(newPageId)),
      _nextSource(_before.pageCount()),
      _firstPageWithRoom(_before.firstPageWithRoom()) {}

// --- What it is ----------------------------------------------------------------------------------------------------

std::size_t ListDraft::pageCount() const { return _order ? _order->size() : _before.pageCount(); }

std::optional<std::size_t> ListDraft::indexOfSource(Source source) const {
  if (!_order) return source;
  // Pages that were put at the end have the next numbers, too.
  if (source < _order->size() && (*_order)[source] == source) return source;
  const auto found = std::ranges::find(*_order, source);
  return found == _order->end() ? std::nullopt : std::optional<std::size_t>(found - _order->begin());
}

const ListDraft::DraftPage* ListDraft::changed(Source source) const {
  const auto found = _pages.find(source);
  return found == _pages.end() ? nullptr : &found->second;
}

PageId ListDraft::pageId(std::size_t index) const {
  const DraftPage* page = changed(sourceOf(index));
  return page ? page->id : _before.page(sourceOf(index)).id;
}

const std::string& ListDraft::title(std::size_t index) const {
  const DraftPage* page = changed(sourceOf(index));
  return page ? page->title : _before.page(sourceOf(index)).title;
}

std::vector<FriendId> ListDraft::friendsOn(std::size_t index) const {
  if (const DraftPage* page = changed(sourceOf(index))) return page->friends;
  std::vector<FriendId> friends;
  for (const auto& person : _before.page(sourceOf(index)).friends) friends.push_back(idOf(person));
  friends.resize(_limits.pageSize);
  return friends;
}

bool ListDraft::isEmpty(std::size_t index) const {
  const DraftPage* page = changed(sourceOf(index));
  if (!page) return _before.page(sourceOf(index)).friendCount == 0;
  return std::ranges::count(page->friends, Nobody) == std::ssize(page->friends);
}

bool ListDraft::hasRoom(std::size_t index) const {
  const DraftPage* page = changed(sourceOf(index));
  if (!page) return _before.page(sourceOf(index)).friendCount < _limits.pageSize;
  return std::ranges::count(page->friends, Nobody) > 0;
}

std::optional<std::size_t> ListDraft::indexOf(PageId page) const {
  if (const auto known = _before.indexOf(page)) return indexOfSource(*known);
  for (const auto& [source, content] : _pages)
    if (content.id == page) return indexOfSource(source);
  return std::nullopt;
}

FriendId ListDraft::at(Place place) const {
  if (!isPlace(place)) return Nobody;
  const Source source = sourceOf(place.page);
  if (const DraftPage* page = changed(source)) return page->friends[place.slot];
  return idOf(_before.friendAt({source, place.slot}));
}

std::optional<Place> ListDraft::placeOf(FriendId id) const {
  std::optional<Slot> slot;
  if (const auto known = _slots.find(id.number); known != _slots.end()) {
    slot = known->second;
  } else if (const auto place = _before.placeOf(id)) {
    slot = Slot{place->page, place->slot};
  }
  const auto index = slot ? indexOfSource(slot->source) : std::nullopt;
  return index ? std::optional(Place{*index, slot->slot}) : std::nullopt;
}

std::optional<Place> ListDraft::firstFreeSlot() const {
  for (std::size_t index = _firstPageWithRoom; index < pageCount(); ++index) {
    if (!hasRoom(index)) continue;
    const std::vector<FriendId> friends = friendsOn(index);
    const auto slot = std::ranges::find(friends, Nobody) - friends.begin();
    return Place{index, static_cast<std::uint64_t>(slot)};
  }
  return std::nullopt;
}

std::optional<Place> ListDraft::freeSlotNear(Place place) const {
  if (place.page >= pageCount() || !hasRoom(place.page)) return firstFreeSlot();
  place.slot = std::min(place.slot, _limits.pageSize - 1);
  for (std::uint64_t distance = 0; distance < _limits.pageSize; ++distance) {
    const Place later{place.page, place.slot + distance};
    if (isPlace(later) && at(later) == Nobody) return later;
    if (distance <= place.slot && at({place.page, place.slot - distance}) == Nobody)
      return Place{place.page, place.slot - distance};
  }
  return std::nullopt;
}

std::vector<std::size_t> ListDraft::renamedPages() const {
  std::vector<std::size_t> indexes;
  for (const auto& [source, page] : _pages) {
    const auto index = indexOfSource(source);
    const bool isNew = source >= _before.pageCount();
    if (index && page.title != (isNew ? std::string() : _before.page(source).title)) indexes.push_back(*index);
  }
  std::ranges::sort(indexes);
  return indexes;
}

std::vector<std::size_t> ListDraft::touchedPages() const {
  std::vector<std::size_t> indexes;
  for (const auto& [source, page] : _pages)
    if (const auto index = indexOfSource(source)) indexes.push_back(*index);
  std::ranges::sort(indexes);
  return indexes;
}

std::vector<FriendId> ListDraft::touchedFriends() const {
  std::vector<FriendId> friends;
  for (const auto& [number, slot] : _slots) friends.push_back({number});
  std::ranges::sort(friends);
  return friends;
}

bool ListDraft::isWhereItWas(FriendId id) const {
  const auto known = _slots.find(id.number);
  if (known == _slots.end()) return _before.placeOf(id).has_value();
  const auto before = _before.placeOf(id);
  return before && known->second && before->page == known->second->source && before->slot == known->second->slot;
}

// --- What becomes of it --------------------------------------------------------------------------------------------

ListDraft::DraftPage& ListDraft::changing(Source source) {
  const auto found = _pages.find(source);
  if (found != _pages.end()) return found->second;
  const Page& former = _before.page(source);
  DraftPage page{former.id, former.title, {}};
  for (const auto& person : former.friends) page.friends.push_back(idOf(person));
  page.friends.resize(_limits.pageSize);
  return _pages.emplace(source, std::move(page)).first->second;
}

std::vector<ListDraft::Source>& ListDraft::order() {
  if (!_order) {
    _order.emplace(_before.pageCount());
    std::iota(_order->begin(), _order->end(), Source{0});
  }
  return *_order;
}

void ListDraft::lift(FriendId id) {
  const auto place = placeOf(id);
  if (!place) return;
  changing(sourceOf(place->page)).friends[place->slot] = Nobody;
  _slots[id.number] = std::nullopt;
  _firstPageWithRoom = std::min<std::size_t>(_firstPageWithRoom, place->page);
}

void ListDraft::put(FriendId id, Place place) {
  const Source source = sourceOf(place.page);
  changing(source).friends[place.slot] = id;
  _slots[id.number] = Slot{source, place.slot};
  addEmptyPageIfDue();
}

void ListDraft::rename(std::size_t index, std::string title) { changing(sourceOf(index)).title = std::move(title); }

PageId ListDraft::insertPage(std::size_t index, std::string title, PageId id) {
  const Source source = _nextSource++;
  if (id.number == 0) id = _newPageId();
  _pages.emplace(source, DraftPage{id, std::move(title), std::vector<FriendId>(_limits.pageSize)});
  order().insert(order().begin() + static_cast<std::ptrdiff_t>(index), source);
  _firstPageWithRoom = std::min(_firstPageWithRoom, index);
  return id;
}

void ListDraft::removePage(std::size_t index) {
  _pages.erase(sourceOf(index));
  order().erase(order().begin() + static_cast<std::ptrdiff_t>(index));
  _firstPageWithRoom = std::min(_firstPageWithRoom, index);
}

void ListDraft::movePage(std::size_t from, std::size_t to) {
  auto& pages = order();
  const auto first = pages.begin() + static_cast<std::ptrdiff_t>(std::min(from, to));
  const auto last = pages.begin() + static_cast<std::ptrdiff_t>(std::max(from, to)) + 1;
  from < to ? std::rotate(first, first + 1, last) : std::rotate(first, last - 1, last);
  _firstPageWithRoom = std::min(_firstPageWithRoom, std::min(from, to));
  addEmptyPageIfDue();
}

void ListDraft::addEmptyPageIfDue() {
  const std::size_t count = pageCount();
  if (_limits.addsEmptyPage && canInsertPage() && (count == 0 || !isEmpty(count - 1))) insertPage(count, "");
}

}  // namespace pellor
