#include "pellor/list/internal/SnapshotEdit.h"

#include <algorithm>
#include <utility>

namespace pellor {
namespace {

/// The parts of a version while it is made.
struct Draft {
  explicit Draft(const ChunkedVector<PageRef>& thePages, const ChunkedVector<std::size_t>& theIndexes,
                 const ChunkedVector<Standing>& theFriends)
      : pages(thePages), indexes(theIndexes), friends(theFriends) {}

  void leave(const PageRef& page) {
    if (!page) return;
    indexes.set(page->id.number, 0);
    for (const FriendRef& person : page->friends) {
      if (!person) continue;
      friends.set(person->id.number, {});
      --growth;
    }
  }
  void enter(std::size_t index, const PageRef& page) {
    pages.set(index, page);
    indexes.set(page->id.number, index + 1);
    for (std::size_t slot = 0; slot < page->friends.size(); ++slot) {
      const FriendRef& person = page->friends[slot];
      if (!person) continue;
      friends.set(person->id.number, {person, page->id, slot});
      ++growth;
    }
  }

  ChunkedVector<PageRef>::Edit pages;
  ChunkedVector<std::size_t>::Edit indexes;
  ChunkedVector<Standing>::Edit friends;
  std::ptrdiff_t growth = 0;
};

}  // namespace

PageRef SnapshotEdit::formerPage(PageId id) const {
  const std::size_t index = _before->indexes[id.number];
  return index == 0 ? nullptr : _before->pages[index - 1];
}

// All leave before anybody enters: a friend may have gone from one page to another.
Snapshot SnapshotEdit::take() const {
  if (_put.empty() && _pageCount == _before->pageCount) return Snapshot(_before);
  Draft draft(_before->pages, _before->indexes, _before->friends);
  for (const auto& [index, page] : _put) draft.leave(_before->pages[index]);
  for (std::size_t index = _pageCount; index < _before->pageCount; ++index) {
    if (!_put.contains(index)) draft.leave(_before->pages[index]);
    draft.pages.set(index, nullptr);
  }
  for (const auto& [index, page] : _put) draft.enter(index, page);
  auto next = std::make_shared<SnapshotContent>();
  next->pages = draft.pages.take();
  next->pageCount = _pageCount;
  next->indexes = draft.indexes.take();
  next->friends = draft.friends.take();
  next->friendCount = static_cast<std::size_t>(static_cast<std::ptrdiff_t>(_before->friendCount) + draft.growth);
  next->firstPageWithRoom = firstPageWithRoom(*next);
  return Snapshot(std::move(next));
}

// Full pages are passed over once: those before the last answer are full unless they were put in now.
std::size_t SnapshotEdit::firstPageWithRoom(const SnapshotContent& next) const {
  const auto hasRoom = [](const Page& page) { return page.friendCount < page.friends.size(); };
  std::size_t index = std::min(_before->firstPageWithRoom, next.pageCount);
  for (const auto& [put, page] : _put)
    if (put < index && hasRoom(*page)) index = put;
  while (index < next.pageCount && !hasRoom(*next.pages[index])) ++index;
  return index;
}

}  // namespace pellor
