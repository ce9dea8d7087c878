#include "pellor/friends/internal/PLMergePlaces.h"

#include <algorithm>

namespace pellor {

PLMergePlaces::Occupant PLMergePlaces::at(Place place) const {
  const auto changed = _changed.find(place);
  if (changed != _changed.end()) return changed->second;
  if (place.page >= FirstInserted) return {};
  const std::uint64_t slot = place.page * _theirs.groupSize() + place.position;
  return _theirs.isEmpty(slot) ? Occupant() : Occupant{Occupant::Side::theirs, slot};
}

std::uint64_t PLMergePlaces::occupiedCount(std::uint64_t page) const {
  std::uint64_t count = 0;
  for (std::uint64_t position = 0; position < _theirs.groupSize(); ++position) {
    if (!isFree({page, position})) ++count;
  }
  return count;
}

std::optional<std::uint64_t> PLMergePlaces::insertPage(std::uint64_t theirCount) {
  if (pageCount() >= _maxGroupCount) return std::nullopt;
  const std::uint64_t page = FirstInserted + _inserted.size();
  const auto next = std::ranges::upper_bound(_inserted, theirCount, {}, &Insertion::behind);
  _inserted.insert(next, {theirCount, page});
  return page;
}

bool PLMergePlaces::extendTo(std::uint64_t theirPage) {
  if (theirPage < _end) return true;
  if (pageCount() + (theirPage + 1 - _end) > _maxGroupCount) return false;
  _end = theirPage + 1;
  return true;
}

std::optional<std::uint64_t> PLMergePlaces::appendPage() {
  return extendTo(_end) ? std::optional(_end - 1) : std::nullopt;
}

std::optional<std::uint64_t> PLMergePlaces::restorePage() {
  if (_gone.empty()) return std::nullopt;
  return _gone.extract(_gone.begin()).value();
}

std::optional<std::uint64_t> PLMergePlaces::theirPage(std::uint64_t page) const {
  return page < FirstInserted ? std::optional(page) : std::nullopt;
}

std::uint64_t PLMergePlaces::indexOf(std::uint64_t page) const {
  std::uint64_t theirCount = page;
  std::uint64_t inserted = 0;
  if (page >= FirstInserted) {
    const auto found = std::ranges::find(_inserted, page, &Insertion::page);
    theirCount = found->behind;
    inserted = static_cast<std::uint64_t>(found - _inserted.begin());
  } else {
    const auto next = std::ranges::upper_bound(_inserted, page, {}, &Insertion::behind);
    inserted = static_cast<std::uint64_t>(next - _inserted.begin());
  }
  const auto gone = std::distance(_gone.begin(), _gone.lower_bound(theirCount));
  return theirCount - static_cast<std::uint64_t>(gone) + inserted;
}

bool PLMergePlaces::isInGroups(std::uint64_t page) const {
  if (page < FirstInserted && (page >= _end || _gone.contains(page))) return false;
  return indexOf(page) < _maxGroupCount;
}

bool PLMergePlaces::isLast(std::uint64_t page) const {
  return page < _end && !_gone.contains(page) && indexOf(page) + 1 == pageCount();
}

std::optional<PLMergePlaces::Place> PLMergePlaces::nearestFree(Place place) const {
  const std::uint64_t size = _theirs.groupSize();
  for (std::uint64_t distance = 0; distance < size; ++distance) {
    const Place later{place.page, place.position + distance};
    if (later.position < size && isFree(later)) return later;
    if (distance > place.position) continue;
    const Place earlier{place.page, place.position - distance};
    if (isFree(earlier)) return earlier;
  }
  return std::nullopt;
}

std::optional<PLMergePlaces::Place> PLMergePlaces::firstFreeIn(std::uint64_t page) const {
  for (std::uint64_t position = 0; position < _theirs.groupSize(); ++position) {
    if (isFree({page, position})) return Place{page, position};
  }
  return std::nullopt;
}

// Calls `visit` with each page from a page of theirs on, with what was put before it, until it gives false.
template <class Visit>
void PLMergePlaces::forEachPageFrom(std::uint64_t theirPage, const Visit& visit) const {
  auto inserted = std::ranges::lower_bound(_inserted, theirPage, {}, &Insertion::behind);
  auto gone = _gone.lower_bound(theirPage);
  for (; theirPage <= _end; ++theirPage) {
    for (; inserted != _inserted.end() && inserted->behind == theirPage; ++inserted) {
      if (!visit(inserted->page)) return;
    }
    if (gone != _gone.end() && *gone == theirPage) {
      ++gone;
    } else if (theirPage < _end && !visit(theirPage)) {
      return;
    }
  }
}

std::optional<PLMergePlaces::Place> PLMergePlaces::firstFreeInGroups() const {
  std::optional<Place> found;
  std::uint64_t index = 0;
  forEachPageFrom(0, [&](std::uint64_t page) {
    if (index++ >= _maxGroupCount) return false;
    found = firstFreeIn(page);
    return !found;
  });
  return found;
}

std::optional<PLMergePlaces::Place> PLMergePlaces::firstFree() const {
  std::optional<Place> found;
  forEachPageFrom(0, [&](std::uint64_t page) {
    found = firstFreeIn(page);
    return !found;
  });
  return found;
}

std::uint64_t PLMergePlaces::freeCountInGroups(std::uint64_t limit) const {
  std::uint64_t count = (_maxGroupCount - std::min(_maxGroupCount, pageCount())) * _theirs.groupSize();
  std::uint64_t index = 0;
  forEachPageFrom(0, [&](std::uint64_t page) {
    if (index++ >= _maxGroupCount || count >= limit) return false;
    count += _theirs.groupSize() - occupiedCount(page);
    return true;
  });
  return count;
}

std::uint64_t PLMergePlaces::firstOtherPage() const {
  std::uint64_t first = pageCount();
  if (!_gone.empty()) first = std::min(first, *_gone.begin());
  if (!_inserted.empty()) first = std::min(first, _inserted.front().behind);
  return first;
}

std::vector<std::uint64_t> PLMergePlaces::otherPages() const {
  std::vector<std::uint64_t> pages;
  if (_gone.empty() && _inserted.empty()) return pages;
  const std::uint64_t first =
      std::min(_gone.empty() ? _end : *_gone.begin(), _inserted.empty() ? _end : _inserted.front().behind);
  forEachPageFrom(first, [&](std::uint64_t page) {
    pages.push_back(page);
    return true;
  });
  return pages;
}

}  // namespace pellor
