// A list as it would be after edits.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "pellor/list/ListIds.h"
#include "pellor/list/Snapshot.h"

namespace pellor {

/// How large a list may be.
struct ListLimits {
  std::uint64_t pageSize = 1;
  std::uint64_t mostPages = 1;
  bool addsEmptyPage = true;  ///< whether an empty page follows the last one that holds a friend
};

/// A snapshot with changes on top of it. It has the list's ways: an empty page comes behind the last one that holds a
/// friend, where the limits allow one. Costs what changes; pages that come, go or move cost the number of pages. A
/// friend stands in one slot. One thread.
class ListDraft {
 public:
  /// `newPageId` names the pages that are inserted.
  ListDraft(Snapshot list, ListLimits limits, std::function<PageId()> newPageId);

  const Snapshot& before() const { return _before; }
  const ListLimits& limits() const { return _limits; }

  std::size_t pageCount() const;
  PageId pageId(std::size_t index) const;
  const std::string& title(std::size_t index) const;
  /// By slot; number 0: empty.
  std::vector<FriendId> friendsOn(std::size_t index) const;
  bool isEmpty(std::size_t index) const;
  std::optional<std::size_t> indexOf(PageId page) const;

  bool isPlace(Place place) const { return place.page < pageCount() && place.slot < _limits.pageSize; }
  /// Number 0 for an empty slot and for a place that there is not.
  FriendId at(Place place) const;
  /// Absent for somebody who is in no slot.
  std::optional<Place> placeOf(FriendId id) const;

  /// The first empty slot; absent when all are taken.
  std::optional<Place> firstFreeSlot() const;
  /// That slot if it is empty, else the nearest empty one on its page, of two the later one, else the first one on any
  /// page.
  std::optional<Place> freeSlotNear(Place place) const;

  /// The friend leaves the slot, and is in none.
  void lift(FriendId id);
  /// A friend who is in no slot takes an empty one.
  void put(FriendId id, Place place);
  void rename(std::size_t index, std::string title);

  bool canInsertPage() const { return pageCount() < _limits.mostPages; }
  /// Puts an empty page before the one with that index, at most the number of pages. `id`: its name, where it has one.
  PageId insertPage(std::size_t index, std::string title, PageId id = {});
  /// The page, on which nobody stands, goes.
  void removePage(std::size_t index);
  /// The page with the index `from` gets the index `to`; those between shift.
  void movePage(std::size_t from, std::size_t to);

  /// Puts an empty page behind the last one if that holds a friend and the limits allow it. Friends that are put have
  /// it follow by itself.
  void addEmptyPageIfDue();

  /// Those who were lifted or put, by id.
  std::vector<FriendId> touchedFriends() const;
  /// Whether a friend has the same slot of the same page as before.
  bool isWhereItWas(FriendId id) const;
  /// The indexes of the pages, ascending, that have another title than before, or are new and have one.
  std::vector<std::size_t> renamedPages() const;
  /// The indexes of the pages, ascending, of which friends or titles were touched, or that are new.
  std::vector<std::size_t> touchedPages() const;
  /// Whether nothing was done to the page with that index, and it had it before.
  bool isAsBefore(std::size_t index) const { return sourceOf(index) == index && !changed(index); }
  /// Whether pages came, went or moved.
  bool changesPages() const { return _order.has_value(); }

 private:
  /// Where a page comes from: its index before, or behind these the number of a new one.
  using Source = std::size_t;
  struct DraftPage {
    PageId id;
    std::string title;
    std::vector<FriendId> friends;
  };
  struct Slot {
    Source source;
    std::uint64_t slot;
  };

  Source sourceOf(std::size_t index) const { return _order ? (*_order)[index] : index; }
  std::optional<std::size_t> indexOfSource(Source source) const;
  const DraftPage* changed(Source source) const;
  DraftPage& changing(Source source);
  std::vector<Source>& order();
  bool hasRoom(std::size_t index) const;

  Snapshot _before;
  ListLimits _limits;
  std::function<PageId()> _newPageId;
  std::optional<std::vector<Source>> _order;  // absent: as before
  std::unordered_map<Source, DraftPage> _pages;
  std::unordered_map<std::uint64_t, std::optional<Slot>> _slots;  // of friends who do not stand where they did
  Source _nextSource;
  std::size_t _firstPageWithRoom;  // those before it have none
};

}  // namespace pellor
