#include "pellor/list/internal/ListMirror.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <string_view>
#include <utility>

#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/list/ShownDestination.h"
#include "pellor/list/internal/ListDraft.h"
#include "pellor/list/internal/PageMatching.h"
#include "pellor/list/internal/ReachabilityOfFriends.h"
#include "pellor/list/internal/TextHash.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/Process.h"

namespace pellor {
namespace {

constexpr std::uint32_t ColorCount = 12;

std::string titleOf(const PLFriendGroup& group) { return group.title().value_or(std::string()); }

// The lowest destination outlives a change of the name and of the contact.
std::uint8_t colorOf(const Friend& person) {
  const std::string guid = person.contactGUID.value_or(std::string());
  const std::string& mark = !person.destinations.empty() ? person.destinations.front()
                            : guid.empty()               ? person.name
                                                         : guid;
  return static_cast<std::uint8_t>(TextHash().add(mark).value() % ColorCount);
}

std::vector<MatchedPage> matched(const auto& pages, std::size_t begin, std::size_t end) {
  std::vector<MatchedPage> result;
  for (std::size_t index = begin; index < end; ++index) {
    MatchedPage page{{}, pages[index].title, pages[index].group.get()};
    for (const auto& person : pages[index].persons)
      if (person) page.friends.push_back(person.get());
    result.push_back(std::move(page));
  }
  return result;
}

}  // namespace

FriendId FriendIds::idOf(const std::shared_ptr<PLPerson>& person, std::size_t occurrence) {
  Known& known = _known[person.get()];
  // Another one may have been where this one is.
  if (known.person.lock() != person) known = {person, {}};
  while (known.ids.size() <= occurrence) {
    known.ids.push_back({++_lastNumber});
    _persons.emplace(_lastNumber, person.get());
  }
  const FriendId id = known.ids[occurrence];
  if (_known.size() > _tidyAt) forgetTheGone();
  return id;
}

void FriendIds::give(FriendId id, const std::shared_ptr<PLPerson>& person) {
  _known.insert_or_assign(person.get(), Known{person, {id}});
  _persons.insert_or_assign(id.number, person.get());
}

void FriendIds::forgetTheGone() {
  std::erase_if(_known, [this](const auto& entry) {
    if (!entry.second.person.expired()) return false;
    for (const FriendId id : entry.second.ids) _persons.erase(id.number);
    return true;
  });
  _tidyAt = 2 * _known.size() + 1024;
}

std::shared_ptr<PLPerson> FriendIds::personWith(FriendId id) const {
  const auto person = _persons.find(id.number);
  if (person == _persons.end()) return nullptr;
  const auto known = _known.find(person->second);
  const bool isIts = known != _known.end() && std::ranges::find(known->second.ids, id) != known->second.ids.end();
  return isIts ? known->second.person.lock() : nullptr;
}

std::optional<FriendId> FriendIds::knownId(const PLPerson& person) const {
  const auto known = _known.find(&person);
  if (known == _known.end() || known->second.person.expired()) return std::nullopt;
  return known->second.ids.front();
}

ListMirror::ListMirror(std::shared_ptr<PLFriendsManager> manager) : _manager(std::move(manager)) {
  noteChangeOfContacts();
}

ListMirror::~ListMirror() = default;

void ListMirror::noteChange(const std::shared_ptr<PLPerson>& person) {
  if (person) _stale.insert(person);
}

// A number that is shown may be another one by now although the friend's numbers are the same.
void ListMirror::noteChangeOfContacts() {
  constexpr std::size_t most = 1000;
  platformOf(Process::current()).addressBook->performWithAddressBook([this](AddressBook& addressBook) {
    const std::int32_t before = std::exchange(_contactsSequence, addressBook.sequenceNumber());
    const auto guids = addressBook.guidsOfPeopleChangedSince(before, most);
    if (!guids) return void(_allAreStale = true);
    for (const std::string& guid : *guids)
      if (_manager->containsFriendWithABRecordGUID(guid)) noteChange(_manager->personWithABRecordGUID(guid));
  });
}

// A step that keeps the pages where they are says which ones it touched. Else a look at each page: what is on it is
// compared by identity.
ListMirror::Window ListMirror::changedWindow(const ListDraft* step) const {
  const auto& groups = _manager->friendGroups();
  if (step && !step->changesPages() && step->pageCount() == _pages.size() && groups.size() == _pages.size()) {
    const auto touched = step->touchedPages();
    if (touched.empty()) return {};
    return {touched.front(), touched.back() + 1, touched.back() + 1};
  }
  const auto isSame = [&](std::size_t old, std::size_t now) { return _pages[old].persons == groups[now]->friends(); };
  Window window{0, _pages.size(), groups.size()};
  const std::size_t common = std::min(_pages.size(), groups.size());
  while (window.begin < common && _pages[window.begin].group == groups[window.begin] &&
         isSame(window.begin, window.begin))
    ++window.begin;
  while (window.oldEnd > window.begin && window.newEnd > window.begin &&
         _pages[window.oldEnd - 1].group == groups[window.newEnd - 1] && isSame(window.oldEnd - 1, window.newEnd - 1)) {
    --window.oldEnd;
    --window.newEnd;
  }
  return window;
}

void ListMirror::count(const Persons& persons, int sign) {
  for (const auto& person : persons) {
    if (!person) continue;
    int& times = _counts[person];
    const int before = times;
    times += sign;
    if (std::max(before, times) > 1) _surplus = sign > 0 ? _surplus + 1 : _surplus - 1;
    if (times == 0) _counts.erase(person);
  }
}

std::vector<ListMirror::MirrorPage> ListMirror::pagesOf(const Window& window, const ListDraft* step) {
  const auto& groups = _manager->friendGroups();
  std::vector<MirrorPage> pages;
  for (std::size_t index = window.begin; index < window.newEnd; ++index)
    pages.push_back({{}, groups[index], groups[index]->friends(), titleOf(*groups[index])});
  if (step && step->pageCount() == groups.size()) {
    for (std::size_t index = 0; index < pages.size(); ++index) pages[index].id = step->pageId(window.begin + index);
    return pages;
  }
  const auto matches = matchedPages(matched(_pages, window.begin, window.oldEnd), matched(pages, 0, pages.size()));
  for (std::size_t index = 0; index < pages.size(); ++index)
    pages[index].id = matches[index] ? _pages[window.begin + *matches[index]].id : newPageId();
  return pages;
}

const Snapshot& ListMirror::update(const ListDraft* step) {
  const bool isStale = !_stale.empty() || _titlesAreStale || _statusesAreStale || _allAreStale;
  const std::uint64_t version = _manager->layoutVersion();
  if (std::exchange(_layoutVersion, version) == version && !isStale) return _last;
  Window window = changedWindow(step);
  takeOver(window, pagesOf(window, step));
  // Somebody who is in two slots has an id for each, by their order: all pages are made then, and once more after it.
  if (std::exchange(_hadSurplus, _surplus > 0) || _surplus > 0) window = {0, _last.pageCount(), _pages.size()};
  SnapshotEdit edit(_last);
  withCardsOf(personsToShow(window), [&] {
    replace(window, edit);
    renewOthers(window, edit);
  });
  _last = edit.take();
  // To clear a table costs as much as it was large once.
  _stale = decltype(_stale)();
  _occurrences = decltype(_occurrences)();
  _titlesAreStale = _statusesAreStale = _allAreStale = false;
  return _last;
}

void ListMirror::takeOver(const Window& window, std::vector<MirrorPage> pages) {
  const auto begin = _pages.begin() + static_cast<std::ptrdiff_t>(window.begin);
  const auto end = _pages.begin() + static_cast<std::ptrdiff_t>(window.oldEnd);
  for (auto page = begin; page != end; ++page) count(page->persons, -1);
  for (const MirrorPage& page : pages) count(page.persons, 1);
  if (window.oldEnd == window.newEnd) return void(std::ranges::move(pages, begin));
  const auto next = _pages.erase(begin, end);
  _pages.insert(next, std::make_move_iterator(pages.begin()), std::make_move_iterator(pages.end()));
}

ListMirror::Persons ListMirror::personsToShow(const Window& window) const {
  Persons persons(_stale.begin(), _stale.end());
  const std::size_t begin = _allAreStale ? 0 : window.begin, end = _allAreStale ? _pages.size() : window.newEnd;
  for (std::size_t index = begin; index < end; ++index)
    std::ranges::copy_if(_pages[index].persons, std::back_inserter(persons), [this](const auto& person) {
      const auto id = person ? _ids.knownId(*person) : std::nullopt;
      return person && (_allAreStale || !id || !_last.friendWith(*id));
    });
  return persons;
}

void ListMirror::replace(const Window& window, SnapshotEdit& edit) {
  for (std::size_t index = window.begin; index < window.newEnd; ++index) edit.putPage(index, shownPage(_pages[index]));
  edit.setPageCount(_pages.size());
  if (window.oldEnd == window.newEnd) return;
  // The others keep what is on them, at another index.
  for (std::size_t index = window.newEnd; index < _pages.size(); ++index)
    edit.putPage(index, edit.formerPage(_pages[index].id));
}

// Friends and titles that are shown otherwise than before, on pages that stay.
void ListMirror::renewOthers(const Window& window, SnapshotEdit& edit) {
  std::set<std::size_t> indexes;
  for (const auto& person : _stale) {
    const auto id = _ids.knownId(*person);
    const auto place = id ? _last.placeOf(*id) : std::nullopt;
    if (!place) continue;
    // Behind the window pages have shifted with its end.
    const auto index = static_cast<std::size_t>(place->page);
    indexes.insert(index < window.oldEnd ? index : index - window.oldEnd + window.newEnd);
  }
  const bool areAll = _statusesAreStale || _allAreStale;
  for (std::size_t index = 0; (areAll || _titlesAreStale) && index < _pages.size(); ++index)
    if (areAll || titleOf(*_pages[index].group) != _pages[index].title) indexes.insert(index);
  for (const std::size_t index : indexes) {
    const bool isInWindow = index >= window.begin && index < window.newEnd;
    if (isInWindow || index >= _pages.size()) continue;
    MirrorPage& page = _pages[index];
    page.title = titleOf(*page.group);
    PageRef shown = shownPage(page);
    const PageRef former = edit.formerPage(page.id);
    if (former->title != shown->title || former->friends != shown->friends) edit.putPage(index, std::move(shown));
  }
}

PageRef ListMirror::shownPage(const MirrorPage& page) {
  auto shown = std::make_shared<Page>();
  shown->id = page.id;
  shown->title = page.title;
  for (const auto& person : page.persons) {
    shown->friends.push_back(person ? shownFriend(person) : nullptr);
    if (person) ++shown->friendCount;
  }
  return shown;
}

// A friend who is shown as before is the same object, by which versions are compared.
FriendRef ListMirror::shownFriend(const std::shared_ptr<PLPerson>& person) {
  const FriendId id = _ids.idOf(person, _occurrences[person.get()]++);
  const FriendRef former = _last.friendWith(id);
  if (former && isShownAsBefore(*former, person)) return former;
  Friend now = shown(person, id);
  if (former) now.color = former->color;
  if (former && *former == now) return former;
  return std::make_shared<const Friend>(std::move(now));
}

bool ListMirror::isShownAsBefore(const Friend& former, const std::shared_ptr<PLPerson>& person) const {
  if (_allAreStale || _stale.contains(person)) return false;
  return !_statusesAreStale || former.reachability == reachabilityOf(*_manager, person);
}

Friend ListMirror::shown(const std::shared_ptr<PLPerson>& person, FriendId id) const {
  Friend shown;
  shown.id = id;
  if (person->hasName()) shown.name = person->displayName().value_or(std::string());
  shown.monogram = person->initials().value_or(std::string());
  shown.destination = destinationShownOf(*person).value_or(std::string());
  if (const auto values = person->allValues()) shown.destinations.assign(values->begin(), values->end());
  shown.chosenNumber = person->preferredDestination();
  shown.replyAs = person->preferredReplyAs();
  shown.metadata = person->metadata();
  shown.contactGUID = person->abRecordGUID();
  shown.reachability = reachabilityOf(*_manager, person);
  shown.color = colorOf(shown);
  return shown;
}

}  // namespace pellor
