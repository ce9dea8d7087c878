// The manager's part in importing favorites, and the checks of contacts to be added.
#include "pellor/friends/PLBundle.h"
#include "pellor/friends/PLFavoritesImport.h"
#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/friends/PLUtility.h"
#include "pellor/friends/internal/PLFriendsManagerParts.h"
#include "pellor/friends/internal/PLListWriter.h"
#include "pellor/friends/internal/PLMainQueueCheck.h"
#include "pellor/platform/ContactStore.h"

namespace pellor {
namespace {

// The text of a format with one %u, filled in.
std::string filledIn(std::string format, std::uint64_t number) {
  const auto place = format.find("%u");
  return place == std::string::npos ? format : format.replace(place, 2, std::to_string(number));
}

// Groups that have no title get the one of an import.
void titleAsCurated(const std::vector<std::shared_ptr<PLFriendGroup>>& groups, const PLPageLayout& pages) {
  const auto bundle = PellorBundle();
  if (!bundle) return;
  const std::string format = bundle->localizedString("NUMBERED_FAVORITES_FORMAT_STRING", "");
  for (const auto& group : groups) {
    const auto index = pages.indexOfGroup(*group);
    if (!index || !group->title().value_or("").empty()) continue;
    group->setTitle(*index == 0 ? bundle->localizedString("FAVORITES", "") : filledIn(format, *index + 1));
  }
}

}  // namespace

void PLFriendsManager::_addCuratedFriends(const std::vector<std::shared_ptr<PLPerson>>& friends) {
  if (friends.empty()) return;
  for (std::uint64_t index = 0; index < friends.size(); ++index) {
    if (index < _parts->friendList.count()) {
      _parts->friendList.set(index, friends[index]);
    } else {
      _parts->friendList.append(friends[index]);
    }
  }
  while (_parts->friendList.count() % _parts->settings.maxFriendsPerGroup() != 0) _parts->friendList.append(EmptySlot);
  _parts->pages._updateFriendGroups();
  std::vector<std::shared_ptr<PLFriendGroup>> groups = friendGroups();
  if (groups.size() > 1 && groups.back()->count() == 0) groups.pop_back();
  titleAsCurated(groups, _parts->pages);
  saveFriendGroupTitles();
}

bool PLFriendsManager::isFirstListDue() const { return _parts->favorites.isDue(); }

PLFavoritesImport PLFriendsManager::importFavorites() {
  checkMainQueue(_process, "importFavorites");
  PLFavoritesImport import;
  if (!_didCompleteInitialLoading) return import;
  const auto found = _parts->favorites.newFriends(_parts->friendList.snapshot());
  import.couldRead = found.isReadable();
  if (!import.couldRead) return import;
  std::vector<std::shared_ptr<PLFriendGroup>> groups;
  for (const auto& person : found.value().value_or(std::vector<std::shared_ptr<PLPerson>>())) {
    if (!addFriend(person)) {
      ++import.withoutRoom;
      import.leftOut.push_back(person);
      continue;
    }
    import.added.push_back(person);
    groups.push_back(friendGroups()[*_parts->friendList.indexOf(person.get()) / _parts->settings.maxFriendsPerGroup()]);
  }
  titleAsCurated(groups, _parts->pages);
  if (!import.added.empty()) saveFriendGroupTitles();
  _parts->steps.noteLeftOut(import.leftOut);
  _parts->steps.tellLeftOut();
  if (!_parts->favorites.isDue()) return import;
  // The write that brings the favorites tells that the list waits for none.
  _parts->favorites.setDue(false);
  import.added.empty() ? _writer->markFavoritesCame() : _writer->markLayout(std::nullopt, false);
  save();
  return import;
}

void PLFriendsManager::_bringFavoritesIfDue() {
  if (_parts->favorites.isDue() && !importFavorites().couldRead) _parts->favorites.bringLater();
}

bool PLFriendsManager::shouldAllowAddingContactWithContactStorePersonValueCache(
    const Contact& contact, ContactStore& contactStore, PersonValueCache& personValueCache) const {
  const RecordRef record = contactStore.personFromContact(contact);
  if (!record || containsFriendWithABRecordGUID(record->recordGUID())) return false;
  const auto [count, isNew] = personValueCache.try_emplace(record->recordID(), 0);
  if (isNew) count->second = PLPerson::allValuesForPerson(record)->size();
  return count->second > 0;
}

}  // namespace pellor
