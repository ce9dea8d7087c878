#include "cli/PageRewrite.h"

#include <algorithm>
#include <utility>

#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/PLPerson.h"

namespace pellor::cli {
namespace {

using Page = std::shared_ptr<PLFriendGroup>;

bool isEmpty(const std::vector<Slot>& slots) { return std::ranges::count(slots, EmptySlot) == std::ssize(slots); }

/// What `rewritePages` does, step by step.
class Rewrite {
 public:
  Rewrite(PLFriendsManager& manager, const std::vector<PageContent>& pages)
      : _manager(manager), _pages(pages), _before(pagesOf(manager)) {}

  // A page is added behind one that holds a friend. What a page is only given is looked at for that, but not stored: a
  // page that is unchanged is the one to be synchronised, and asks for no save.
  bool grow() {
    while (_manager.friendGroups().size() < _pages.size()) {
      const std::size_t count = _manager.friendGroups().size();
      const Page last = _manager.friendGroups().back();
      last->setFriends(contentToGrow(count - 1));
      _manager.syncFriendGroup(_manager.friendGroups().front());
      if (_manager.friendGroups().size() == count) return giveBack();
    }
    return true;
  }

  void setSlots() {
    const std::vector<Page> groups = _manager.friendGroups();
    for (std::size_t index = 0; index < groups.size(); ++index) {
      std::vector<Slot> content = index < _pages.size() ? _pages[index].slots : emptySlots();
      const std::vector<Slot> moved = comers(content, index);
      groups[index]->setFriends(std::move(content));
      _manager.friendGroupDidMoveFriends(groups[index], moved);
    }
  }

  void setTitles() {
    for (std::size_t index = 0; index < _pages.size(); ++index) {
      const Page& page = _manager.friendGroups()[index];
      if (page->title().value_or("") == _pages[index].title) continue;
      page->setTitle(_pages[index].title);
      _hasTitles = true;
    }
  }

  // Empty pages that are to stay are no empty ones for as long as the others are removed.
  void removeOthers() {
    if (_manager.friendGroups().size() <= _pages.size()) return;
    const std::vector<Page> groups = _manager.friendGroups();
    std::vector<Slot> held = emptySlots();
    held.front() = PLPerson::init();
    for (std::size_t index = 0; index < _pages.size(); ++index) {
      if (_pages[index].isEmpty()) groups[index]->setFriends(held);
    }
    _manager.purgeEmptyFriendGroups();
    for (std::size_t index = 0; index < _pages.size(); ++index) {
      if (_pages[index].isEmpty()) groups[index]->setFriends(emptySlots());
    }
  }

  void save() {
    if (_hasTitles) _manager.saveFriendGroupTitles();
    // The last page may have got its first friend: this adds the empty page behind it.
    _manager.syncFriendGroup(_manager.friendGroups().back());
    _manager.save();
  }

 private:
  std::vector<Slot> emptySlots() const { return std::vector<Slot>(_manager.groupSize(), EmptySlot); }

  // A single page is synchronised itself: it gets nobody who is not to be in the list.
  std::vector<Slot> contentToGrow(std::size_t index) const {
    if (!_pages[index].isEmpty()) return _pages[index].slots;
    const auto filled = std::ranges::find_if(_pages, [](const PageContent& page) { return !page.isEmpty(); });
    if (index == 0) return filled == _pages.end() ? emptySlots() : filled->slots;
    std::vector<Slot> content = emptySlots();
    content.front() = PLPerson::init();
    return content;
  }

  // The setting or the number of pages does not allow it: the pages are what they were.
  bool giveBack() {
    const std::vector<Page> groups = _manager.friendGroups();
    for (std::size_t index = 0; index < groups.size(); ++index) {
      groups[index]->setFriends(index < _before.size() ? _before[index].slots : emptySlots());
      _manager.friendGroupDidMoveFriends(groups[index], {});
    }
    return false;
  }

  std::vector<Slot> comers(const std::vector<Slot>& content, std::size_t index) const {
    std::vector<Slot> comers;
    for (std::size_t slot = 0; slot < content.size(); ++slot) {
      const Slot& before = index < _before.size() ? _before[index].slots[slot] : EmptySlot;
      if (content[slot] != EmptySlot && content[slot] != before) comers.push_back(content[slot]);
    }
    return comers;
  }

  PLFriendsManager& _manager;
  const std::vector<PageContent>& _pages;
  const std::vector<PageContent> _before;
  bool _hasTitles = false;
};

}  // namespace

bool PageContent::isEmpty() const { return cli::isEmpty(slots); }

std::vector<PageContent> pagesOf(const PLFriendsManager& manager) {
  std::vector<PageContent> pages;
  for (const Page& page : manager.friendGroups()) pages.push_back({page->title().value_or(""), page->friends()});
  return pages;
}

bool rewritePages(PLFriendsManager& manager, const std::vector<PageContent>& pages) {
  Rewrite rewrite(manager, pages);
  if (!rewrite.grow()) return false;
  rewrite.setSlots();
  rewrite.setTitles();
  rewrite.removeOthers();
  rewrite.save();
  return true;
}

}  // namespace pellor::cli
