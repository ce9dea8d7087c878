#include "pellor/list/Snapshot.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "pellor/list/internal/SnapshotContent.h"

namespace pellor {

Snapshot::Snapshot() : _content(std::make_shared<const SnapshotContent>()) {}

Snapshot::Snapshot(std::shared_ptr<const SnapshotContent> content) : _content(std::move(content)) {}

std::size_t Snapshot::pageCount() const { return _content->pageCount; }

const Page& Snapshot::page(std::size_t index) const { return *_content->pages[index]; }

std::size_t Snapshot::friendCount() const { return _content->friendCount; }

std::vector<std::shared_ptr<const Friend>> Snapshot::friends() const {
  std::vector<std::shared_ptr<const Friend>> all;
  for (std::size_t index = 0; index < pageCount(); ++index)
    std::ranges::copy_if(page(index).friends, std::back_inserter(all),
                         [](const auto& person) { return person != nullptr; });
  return all;
}

std::size_t Snapshot::firstPageWithRoom() const { return _content->firstPageWithRoom; }

std::shared_ptr<const Friend> Snapshot::friendAt(Place place) const {
  if (place.page >= pageCount()) return nullptr;
  const auto& slots = page(place.page).friends;
  return place.slot < slots.size() ? slots[place.slot] : nullptr;
}

std::shared_ptr<const Friend> Snapshot::friendWith(FriendId id) const { return _content->friends[id.number].person; }

std::optional<Place> Snapshot::placeOf(FriendId id) const {
  const Standing& standing = _content->friends[id.number];
  if (!standing.person) return std::nullopt;
  return Place{*indexOf(standing.page), standing.slot};
}

std::optional<std::size_t> Snapshot::indexOf(PageId id) const {
  const std::size_t index = _content->indexes[id.number];
  return index == 0 ? std::nullopt : std::optional(index - 1);
}

}  // namespace pellor
