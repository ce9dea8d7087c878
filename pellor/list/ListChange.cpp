#include "pellor/list/ListChange.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <tuple>

#include "pellor/list/internal/SnapshotContent.h"

namespace pellor {
namespace {

using FriendRef = std::shared_ptr<const Friend>;

FriendFields differences(const Friend& before, const Friend& after) {
  FriendFields fields;
  const auto compare = [&](FriendField field, const auto& one, const auto& other) {
    if (one != other) fields.insert(field);
  };
  compare(FriendField::name, before.name, after.name);
  compare(FriendField::monogram, before.monogram, after.monogram);
  compare(FriendField::destination, before.destination, after.destination);
  compare(FriendField::destinations, before.destinations, after.destinations);
  compare(FriendField::chosenNumber, before.chosenNumber, after.chosenNumber);
  compare(FriendField::replyAs, before.replyAs, after.replyAs);
  compare(FriendField::metadata, before.metadata, after.metadata);
  compare(FriendField::contact, before.contactGUID, after.contactGUID);
  compare(FriendField::reachability, before.reachability, after.reachability);
  return fields;
}

}  // namespace

/// Goes through the pages that are other ones in the two versions. What these share is passed over: there each page is
/// the same at the same index.
class SnapshotComparison {
 public:
  explicit SnapshotComparison(ListChange& change) : _change(change), _before(change.before), _after(change.after) {}

  void run() {
    for (std::size_t index = next(0); index < _before.pageCount(); index = next(index + 1)) compareOld(index);
    for (std::size_t index = next(0); index < _after.pageCount(); index = next(index + 1)) compareNew(index);
    if (hasShiftedPages()) findMovedPages();
  }

 private:
  std::size_t next(std::size_t index) const {
    return _before._content->pages.pastShared(_after._content->pages, index);
  }

  bool hasShiftedPages() const {
    for (std::size_t index = next(0); index < _after.pageCount(); index = next(index + 1))
      if (_before.indexOf(_after.page(index).id).value_or(index) != index) return true;
    return false;
  }

  /// A page of both versions.
  struct CommonPage {
    std::size_t from;
    std::size_t to;
  };

  // As few as possible count as moved: the longest ascending part of the pages stays.
  void findMovedPages() {
    std::vector<CommonPage> pages;
    for (std::size_t index = 0; index < _after.pageCount(); ++index)
      if (const auto former = _before.indexOf(_after.page(index).id)) pages.push_back({*former, index});
    if (std::ranges::is_sorted(pages, {}, &CommonPage::from)) return;
    std::vector<std::size_t> ends;  // of the best ascending part of each length
    std::vector<std::size_t> lengths;
    for (const CommonPage& page : pages) {
      const auto end = std::ranges::lower_bound(ends, page.from);
      lengths.push_back(static_cast<std::size_t>(end - ends.begin()) + 1);
      end == ends.end() ? ends.push_back(page.from) : void(*end = page.from);
    }
    std::size_t wanted = ends.size();
    std::size_t next = _before.pageCount();
    for (std::size_t index = pages.size(); index-- > 0;) {
      const CommonPage& page = pages[index];
      if (lengths[index] == wanted && page.from < next) {
        --wanted;
        next = page.from;
      } else {
        _change.pagesMoved.push_back({_after.page(page.to).id, page.from, page.to});
      }
    }
    std::ranges::reverse(_change.pagesMoved);
  }

  void compareOld(std::size_t index) {
    const Page& page = _before.page(index);
    const auto now = _after.indexOf(page.id);
    if (now && &_after.page(*now) == &page) return;
    if (!now) _change.pagesRemoved.push_back({page.id, index});
    for (std::size_t slot = 0; slot < page.friends.size(); ++slot) {
      const FriendRef& person = page.friends[slot];
      if (person && !_after.friendWith(person->id)) _change.removed.push_back({person->id, {index, slot}});
    }
  }

  void compareNew(std::size_t index) {
    const Page& page = _after.page(index);
    const auto former = _before.indexOf(page.id);
    if (former && &_before.page(*former) == &page) return;
    if (!former) _change.pagesInserted.push_back({page.id, index});
    if (page.title != (former ? _before.page(*former).title : std::string()))
      _change.renamed.push_back({page.id, index});
    for (std::size_t slot = 0; slot < page.friends.size(); ++slot)
      if (page.friends[slot]) compareFriend(*page.friends[slot], page.id, {index, slot});
  }

  void compareFriend(const Friend& person, PageId page, Place place) {
    const FriendRef former = _before.friendWith(person.id);
    if (!former) return _change.added.push_back({person.id, place});
    const Place from = *_before.placeOf(person.id);
    if (from.slot != place.slot || _before.page(from.page).id != page)
      _change.moved.push_back({person.id, from, place});
    if (former.get() == &person) return;
    const FriendFields fields = differences(*former, person);
    if (!fields.isEmpty()) _change.changed.push_back({person.id, fields});
  }

  ListChange& _change;
  const Snapshot& _before;
  const Snapshot& _after;
};

bool ListChange::isEmpty() const {
  return removed.empty() && pagesRemoved.empty() && pagesInserted.empty() && renamed.empty() && moved.empty() &&
         pagesMoved.empty() && added.empty() && changed.empty();
}

ListChange changeBetween(const Snapshot& before, const Snapshot& after) {
  ListChange change;
  change.before = before;
  change.after = after;
  if (before != after) SnapshotComparison(change).run();
  return change;
}

}  // namespace pellor
