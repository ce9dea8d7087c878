// How a change between two snapshots becomes the friends and pages of a step.
#include <algorithm>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "pellor/list/internal/FriendIdentity.h"
#include "pellor/list/internal/StepRecord.h"
#include "pellor/runtime/CBOR.h"

namespace pellor {
namespace {

using FriendRef = std::shared_ptr<const Friend>;

/// A page that both versions have.
struct KeptPage {
  std::size_t indexBefore;
  bool isEmpty;  ///< in the later version: without friends and title
};

/// Of the pages that both versions have, in the order of the later one: which keep their order among each other, as
/// many as there can be, and of these as few empty ones as there can be. Whether an empty page is there at the end
/// depends on the process: one that moved is better told of than one that it moved past.
std::vector<bool> pagesInOrder(const std::vector<KeptPage>& pages) {
  struct Chain {
    std::size_t worth;
    std::size_t last;  // number of a page
  };
  std::map<std::size_t, Chain> chains;  // by the index before of the last page: the later it is the more worth
  std::vector<std::optional<std::size_t>> previous(pages.size());
  for (std::size_t number = 0; number < pages.size(); ++number) {
    std::size_t worth = pages.size() + 1 + (pages[number].isEmpty ? 0 : 1);
    const auto next = chains.lower_bound(pages[number].indexBefore);
    if (next != chains.begin()) {
      const Chain& goesOn = std::prev(next)->second;
      worth += goesOn.worth;
      previous[number] = goesOn.last;
    }
    auto end = next;
    while (end != chains.end() && end->second.worth <= worth) ++end;
    chains.erase(next, end);
    chains.emplace(pages[number].indexBefore, Chain{worth, number});
  }
  std::vector<bool> isInOrder(pages.size());
  auto number = chains.empty() ? std::nullopt : std::optional(chains.rbegin()->second.last);
  for (; number; number = previous[*number]) isInOrder[*number] = true;
  return isInOrder;
}

class Description {
 public:
  Description(StepRecord& step, const ListChange& change, const FormOfFriend& formBefore, const FormOfFriend& formAfter)
      : _step(step), _change(change), _formBefore(formBefore), _formAfter(formAfter) {}

  void write(const FriendsSharing& sharing) {
    writeFriends();
    countLookalikes(sharing);
    writePages();
  }

 private:
  void writeFriends() {
    std::vector<FriendId> moved;
    for (const auto& each : _change.removed) add({each.id, _formBefore(each.id), {}, each.from, std::nullopt});
    for (const auto& each : _change.moved) {
      add({each.id, _formBefore(each.id), _formAfter(each.id), each.from, each.to});
      moved.push_back(each.id);
    }
    for (const auto& each : _change.added) add({each.id, {}, _formAfter(each.id), std::nullopt, each.to});
    std::ranges::sort(moved);
    for (const auto& each : _change.changed)
      if (!std::ranges::binary_search(moved, each.id)) addChanged(each.id);
  }

  // What is shown of a friend may change without the friend: a status does.
  void addChanged(FriendId id) {
    Dictionary before = _formBefore(id), after = _formAfter(id);
    if (before == after) return;
    add({id, std::move(before), std::move(after), _change.before.placeOf(id), _change.after.placeOf(id)});
  }

  void add(FriendRecord person) { _step.friends.push_back(std::move(person)); }

  void countLookalikes(const FriendsSharing& sharing) {
    Removed removed;
    for (FriendRecord& person : _step.friends) {
      if (person.to) continue;
      const FriendIdentity identity = identityOf(person.before);
      const bool canShare = !identity.guid.empty() || !identity.destinations.empty();
      if (sharing && canShare) {
        countAmong(sharing(*_change.before.friendWith(person.id)), identity, person);
      } else {
        auto& alike = identity.guid.empty() ? removed.byName[identity.name] : removed.byGUID[identity.guid];
        alike.push_back(&person);
      }
    }
    if (removed.byGUID.empty() && removed.byName.empty()) return;
    for (std::size_t index = 0; index < _change.after.pageCount(); ++index)
      for (const FriendRef& other : _change.after.page(index).friends)
        if (other) countAmongRemoved(*other, removed);
  }

  /// Those who may look like somebody: with an equal GUID, or with none and an equal name.
  struct Removed {
    using Alike = std::map<std::string, std::vector<FriendRecord*>, std::less<>>;
    Alike byGUID;
    Alike byName;
  };

  void countAmongRemoved(const Friend& other, const Removed& removed) const {
    const bool hasContact = other.contactGUID && !other.contactGUID->empty();
    const Removed::Alike& all = hasContact ? removed.byGUID : removed.byName;
    const auto alike = all.find(hasContact ? *other.contactGUID : other.name);
    if (alike == all.end() || wasAdded(other.id)) return;
    for (FriendRecord* person : alike->second)
      if (areAddedAlike(identityOf(person->before), identityOf(other))) ++person->lookalikes;
  }

  bool wasAdded(FriendId id) const { return !_change.before.friendWith(id); }

  void countAmong(const std::vector<FriendId>& others, const FriendIdentity& identity, FriendRecord& person) const {
    for (const FriendId id : others) {
      const FriendRef other = wasAdded(id) ? nullptr : _change.after.friendWith(id);
      if (other && areAddedAlike(identity, identityOf(*other))) ++person.lookalikes;
    }
  }

  void writePages() {
    for (const auto& page : _change.pagesRemoved) tell(page.id);
    for (const auto& page : _change.pagesInserted) tell(page.id);
    for (const auto& page : _change.renamed) tell(page.id);
    for (const FriendRecord& person : _step.friends) {
      if (person.from) tell(_change.before.page(person.from->page).id);
      if (person.to) tell(_change.after.page(person.to->page).id);
    }
    tellOfMovedPages();
    for (auto& [id, page] : _pages) _step.pages.push_back(std::move(page));
    std::ranges::sort(_step.pages, {}, [](const PageRecord& page) { return std::pair(page.to, page.from); });
  }

  void tellOfMovedPages() {
    if (_change.pagesMoved.empty()) return;
    std::vector<KeptPage> kept;
    std::vector<PageId> ids;
    for (std::size_t index = 0; index < _change.after.pageCount(); ++index) {
      const Page& page = _change.after.page(index);
      const auto former = _change.before.indexOf(page.id);
      if (!former) continue;
      kept.push_back({*former, page.friendCount == 0 && page.title.empty()});
      ids.push_back(page.id);
    }
    const std::vector<bool> isInOrder = pagesInOrder(kept);
    for (std::size_t number = 0; number < ids.size(); ++number)
      if (!isInOrder[number]) tell(ids[number]).isMoved = true;
  }

  PageRecord& tell(PageId id) {
    const auto [found, isNew] = _pages.try_emplace(id);
    PageRecord& page = found->second;
    if (!isNew) return page;
    page.id = id;
    page.from = _change.before.indexOf(id);
    page.to = _change.after.indexOf(id);
    if (page.from) page.titleBefore = _change.before.page(*page.from).title;
    if (!page.to) return page;
    page.titleAfter = _change.after.page(*page.to).title;
    for (const FriendRef& person : _change.after.page(*page.to).friends)
      if (person) page.fingerprints.push_back(fingerprintOf(identityOf(*person)));
    std::ranges::sort(page.fingerprints);
    return page;
  }

  StepRecord& _step;
  const ListChange& _change;
  const FormOfFriend& _formBefore;
  const FormOfFriend& _formAfter;
  std::map<PageId, PageRecord> _pages;
};

}  // namespace

void describe(StepRecord& step, const ListChange& change, const FormOfFriend& formBefore, const FormOfFriend& formAfter,
              const FriendsSharing& sharing) {
  Description(step, change, formBefore, formAfter).write(sharing);
}

StepRecord storable(StepRecord step) {
  // In an array, as it is stored.
  const auto bytes = encodeCBOR(Array{Value(dictionaryOf(step))});
  if (bytes && bytes->size() <= StepRecord::LargestSize) return step;
  return summaryAlone(std::move(step));
}

}  // namespace pellor
