// A copy of a list that is kept by its changes alone.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "pellor/list/ListChange.h"

namespace pellor {

/// Does what a batch says, in the order in which it says so.
class ListCopy {
 public:
  explicit ListCopy(const Snapshot& list) {
    for (std::size_t index = 0; index < list.pageCount(); ++index) _pages.push_back(copyOf(list.page(index)));
  }

  void take(const ListChange& change) {
    for (const auto& removal : change.removed) leave(removal.from, removal.id);
    for (const auto& move : change.moved) leave(move.from, move.id);
    takePagesOut(change);
    putPagesIn(change);
    for (const auto& page : change.renamed) {
      ASSERT_EQ(_pages.at(page.index).id, page.id);
      _pages.at(page.index).title = change.after.page(page.index).title;
    }
    for (const auto& move : change.moved) enter(move.to, move.id);
    for (const auto& addition : change.added) enter(addition.to, addition.id);
  }

  /// Whether the copy looks like that version.
  void expectLike(const Snapshot& list) const { EXPECT_EQ(text(), ListCopy(list).text()); }

  std::string text() const {
    std::string text;
    for (const CopiedPage& page : _pages) {
      text += "page " + std::to_string(page.id.number) + " \"" + page.title + "\":";
      for (const FriendId id : page.friends) text += " " + std::to_string(id.number);
      text += "\n";
    }
    return text;
  }

 private:
  struct CopiedPage {
    PageId id;
    std::string title;
    std::vector<FriendId> friends;  // by slot; 0: empty
  };

  static CopiedPage copyOf(const Page& page) {
    CopiedPage copy{page.id, page.title, {}};
    for (const auto& person : page.friends) copy.friends.push_back(person ? person->id : FriendId{});
    return copy;
  }
  FriendId& at(Place place) { return _pages.at(place.page).friends.at(place.slot); }
  void leave(Place from, FriendId id) {
    ASSERT_EQ(at(from), id);
    at(from) = {};
  }
  void enter(Place to, FriendId id) {
    ASSERT_EQ(at(to), FriendId{}) << "the slot is taken";
    at(to) = id;
  }
  void takePagesOut(const ListChange& change) {
    std::map<std::size_t, PageId, std::greater<>> leaving;
    for (const auto& page : change.pagesRemoved) {
      for (const FriendId id : _pages.at(page.index).friends) ASSERT_EQ(id, FriendId{}) << "somebody is on the page";
      leaving.emplace(page.index, page.id);
    }
    for (const auto& page : change.pagesMoved) {
      _lifted[page.id] = _pages.at(page.from);
      leaving.emplace(page.from, page.id);
    }
    for (const auto& [index, id] : leaving) {
      ASSERT_EQ(_pages.at(index).id, id);
      _pages.erase(_pages.begin() + static_cast<std::ptrdiff_t>(index));
    }
  }
  void putPagesIn(const ListChange& change) {
    std::map<std::size_t, CopiedPage> coming;
    for (const auto& page : change.pagesInserted)
      coming[page.index] = {page.id, "", std::vector<FriendId>(change.after.page(page.index).friends.size())};
    for (const auto& page : change.pagesMoved) coming[page.to] = _lifted.at(page.id);
    _lifted.clear();
    for (const auto& [index, page] : coming) {
      ASSERT_LE(index, _pages.size());
      _pages.insert(_pages.begin() + static_cast<std::ptrdiff_t>(index), page);
    }
  }

  std::vector<CopiedPage> _pages;
  std::map<PageId, CopiedPage> _lifted;
};

}  // namespace pellor
