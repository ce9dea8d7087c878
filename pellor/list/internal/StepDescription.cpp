// How a change between two snapshots becomes the friends and pages of a step.
#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "pellor/list/internal/FriendIdentity.h"
#include "pellor/list/internal/StepRecord.h"
#include "pellor/runtime/CBOR.h"

namespace pellor {
namespace {

using FriendRef = std::shared_ptr<const Friend>;

/// Of the pages that both versions have, in the order of the later one: which keep their order among each other, as
/// many as there can be.
std::vector<bool> pagesInOrder(const std::vector<std::size_t>& indexesBefore) {
  constexpr std::size_t None = static_cast<std::size_t>(-1);
  std::vector<std::size_t> lastOfLength;  // numbers of the pages with which the best chains end
  std::vector<std::size_t> previous(indexesBefore.size(), None);
  for (std::size_t number = 0; number < indexesBefore.size(); ++number) {
    const auto place = std::ranges::lower_bound(lastOfLength, indexesBefore[number], {},
                                                [&](std::size_t other) { return indexesBefore[other]; });
    if (place != lastOfLength.begin()) previous[number] = *(place - 1);
    if (place == lastOfLength.end()) {
      lastOfLength.push_back(number);
    } else {
      *place = number;
    }
  }
  std::vector<bool> isInOrder(indexesBefore.size());
  for (std::size_t number = lastOfLength.empty() ? None : lastOfLength.back(); number != None;
       number = previous[number])
    isInOrder[number] = true;
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
    std::vector<std::size_t> before;
    std::vector<PageId> ids;
    for (std::size_t index = 0; index < _change.after.pageCount(); ++index) {
      const PageId id = _change.after.page(index).id;
      const auto former = _change.before.indexOf(id);
      if (!former) continue;
      before.push_back(*former);
      ids.push_back(id);
    }
    if (std::ranges::is_sorted(before)) return;
    const std::vector<bool> isInOrder = pagesInOrder(before);
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
