#include "pellor/list/internal/TheirList.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "pellor/friends/PLDestination.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/list/internal/PageMatching.h"
#include "pellor/list/internal/SnapshotEdit.h"

namespace pellor {
namespace {

std::vector<MatchedPage> ownPages(const Snapshot& list, const FriendIds& ids) {
  std::vector<MatchedPage> pages;
  for (std::size_t index = 0; index < list.pageCount(); ++index) {
    MatchedPage page{{}, list.page(index).title, nullptr};
    for (const auto& person : list.page(index).friends)
      if (person) page.friends.push_back(ids.personWith(person->id).get());
    pages.push_back(std::move(page));
  }
  return pages;
}

}  // namespace

TheirList::TheirList(const PLStoredPages& theirs, ListMirror& mirror, const Snapshot& ours) {
  std::vector<MatchedPage> matched;
  std::vector<std::shared_ptr<Page>> pages;
  for (std::size_t first = 0; first < theirs.contents.size(); first += theirs.groupSize) {
    auto page = std::make_shared<Page>();
    MatchedPage known;
    if (pages.size() < theirs.titles.size()) page->title = known.title = theirs.titles[pages.size()];
    for (std::size_t slot = first; slot < first + theirs.groupSize; ++slot) {
      const bool isOccupied = slot < theirs.contents.size() && theirs.contents[slot].stored;
      page->friends.push_back(isOccupied ? shown(theirs.contents[slot], mirror) : nullptr);
      if (!isOccupied) continue;
      ++page->friendCount;
      if (theirs.contents[slot].known) known.friends.push_back(theirs.contents[slot].known.get());
    }
    pages.push_back(std::move(page));
    matched.push_back(std::move(known));
  }
  const auto matches = matchedPages(ownPages(ours, mirror.ids()), matched);
  SnapshotEdit edit{Snapshot()};
  for (std::size_t index = 0; index < pages.size(); ++index) {
    pages[index]->id = matches[index] ? ours.page(*matches[index]).id : mirror.newPageId();
    edit.putPage(index, std::move(pages[index]));
  }
  edit.setPageCount(pages.size());
  _snapshot = edit.take();
}

std::shared_ptr<const Friend> TheirList::shown(const PLStoredSlot& slot, ListMirror& mirror) {
  auto shown = std::make_shared<Friend>();
  const auto known = slot.known ? mirror.ids().knownId(*slot.known) : std::nullopt;
  const bool isFirst = known && _entered.try_emplace(known->number, true).second;
  shown->id = isFirst ? *known : mirror.ids().idOf(slot.stored, 0);
  if (slot.stored->hasName()) shown->name = slot.stored->displayName().value_or(std::string());
  if (const auto values = slot.stored->allValues()) shown->destinations.assign(values->begin(), values->end());
  shown->contactGUID = slot.stored->abRecordGUID();
  enter(*shown);
  return shown;
}

void TheirList::enter(const Friend& person) {
  if (person.contactGUID && !person.contactGUID->empty()) _byGUID.try_emplace(*person.contactGUID, person.id);
  for (const std::string& destination : person.destinations) _byDestination.try_emplace(destination, person.id);
}

std::optional<FriendId> TheirList::friendWithGUID(const std::string& guid) const {
  const auto found = _byGUID.find(guid);
  return found == _byGUID.end() ? std::nullopt : std::optional(found->second);
}

std::optional<FriendId> TheirList::friendWithDestination(const std::string& destination) const {
  const auto found = _byDestination.find(destination);
  return found == _byDestination.end() ? std::nullopt : std::optional(found->second);
}

bool TheirList::hasDestination(FriendId id, const std::string& destination) const {
  const auto person = _snapshot.friendWith(id);
  const auto canonical = plMessageCanonicalRawAddress(destination);
  return !person || (canonical && std::ranges::binary_search(person->destinations, *canonical));
}

}  // namespace pellor
