#include "pellor/friends/internal/PLFavorites.h"

#include <algorithm>
#include <limits>
#include <set>
#include <string>
#include <utility>

#include "pellor/friends/PLBundle.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/Fatal.h"

namespace pellor {
namespace {

// In seconds.
constexpr BackOff::Pauses ImportRetryPauses{.first = 1, .longest = 60};

using Persons = std::vector<std::shared_ptr<PLPerson>>;

Persons personsOf(const std::vector<FavoriteEntry>& entries, AddressBook& addressBook) {
  Persons persons;
  std::set<std::string> imported;
  for (const FavoriteEntry& entry : entries) {
    const auto person = PLPerson::initWithFavoriteAddressBook(entry, &addressBook);
    require(person != nullptr, "newFriend");
    const auto guid = person->abRecordGUID();
    if (guid && !guid->empty() && !imported.insert(*guid).second) {
      _PLGetLogSystem().log(
          LogFormat("not importing phone favorite [%@ | %@] with record GUID %@; person was already imported")
              .as("_curatedFriendList"),
          redactable(entry.displayName), redactable(entry.value), redactable(guid));
      continue;
    }
    persons.push_back(person);
    _PLGetLogSystem().log(
        LogFormat("imported phone favorite [%@ | %@] with record ID %d and GUID %@").as("_curatedFriendList"),
        redactable(entry.displayName), redactable(entry.value), entry.abRecordID, redactable(guid));
  }
  return persons;
}

// What the friends of a list are known by.
struct KnownFriends {
  explicit KnownFriends(const PLSlotSnapshot& friends) {
    friends.forEach([this](const Slot& person) {
      if (person == EmptySlot) return;
      const std::string guid(person->record().identifyingGUID());
      const auto values = person->allValues();
      if (!guid.empty()) guids.insert(guid);
      if (!values) return;
      destinations.insert(values->begin(), values->end());
      if (guid.empty()) unlinkedDestinations.insert(values->begin(), values->end());
    });
  }

  bool contains(const PLPerson& person, AddressBook& addressBook) const {
    const std::string guid(person.record().identifyingGUID());
    const auto values = person.allValues();
    const DestinationSet& known = guid.empty() ? destinations : unlinkedDestinations;
    const bool isShared =
        values && std::ranges::any_of(*values, [&](const std::string& value) { return known.contains(value); });
    if (isShared || guid.empty()) return isShared;
    const RecordRef record = addressBook.copyPersonMatchingGUID(guid);
    if (!record) return guids.contains(guid);
    return std::ranges::any_of(record->allLinkedPeople(),
                               [&](const RecordRef& linked) { return guids.contains(linked->recordGUID()); });
  }

  std::set<std::string, std::less<>> guids;
  DestinationSet destinations;
  DestinationSet unlinkedDestinations;  // of friends without a record
};

}  // namespace

PLFavorites::PLFavorites(Process& process, std::function<void()> bring)
    : _process(process), _bring(std::move(bring)), _retry(process.mainQueue(), ImportRetryPauses) {}

Answer<PLCuratedFriends> PLFavorites::_curatedFriendList(std::uint64_t capacity) const {
  using Friends = Answer<PLCuratedFriends>;
  Persons friends;
  bool isReadable = false;
  platformOf(_process).addressBook->performWithAddressBook([&](AddressBook& addressBook) {
    const auto answer = platformOf(_process).favorites->favoriteEntries();
    isReadable = answer.isReadable() && addressBook.isReadable();
    if (!isReadable) return;
    if (!answer.value()) {
      _PLGetLogSystem().log("no phone favorites found to import to Tapnote friends");
      return;
    }
    _PLGetLogSystem().log("processing %tu phone favorites for Tapnote friend import", answer.value()->size());
    friends = personsOf(*answer.value(), addressBook);
    isReadable = addressBook.isReadable();
  });
  if (!isReadable) return Friends::unreadable();
  if (friends.empty()) return Friends::none();
  const auto end = friends.begin() + static_cast<std::ptrdiff_t>(std::min<std::uint64_t>(capacity, friends.size()));
  Persons leftOut(end, friends.end());
  friends.erase(end, friends.end());
  _PLGetLogSystem().log("phone favorites import complete with %tu Tapnote friends", friends.size());
  return Friends::some({std::move(friends), std::move(leftOut)});
}

Answer<Persons> PLFavorites::newFriends(const PLSlotSnapshot& friends) const {
  auto answer = Answer<Persons>::unreadable();
  platformOf(_process).addressBook->performWithAddressBook([&](AddressBook& addressBook) {
    const auto curated = _curatedFriendList(std::numeric_limits<std::uint64_t>::max());
    if (!curated.isReadable()) return;
    Persons found = curated.value().value_or(PLCuratedFriends()).friends;
    const KnownFriends known(friends);
    std::erase_if(found, [&](const auto& person) { return known.contains(*person, addressBook); });
    // A record without those that it is linked with would look like a stranger's.
    if (!addressBook.isReadable()) return;
    answer = found.empty() ? Answer<Persons>::none() : Answer<Persons>::some(std::move(found));
  });
  return answer;
}

void PLFavorites::setDue(bool isDue) {
  if (isDue && !_isDue) {
    _PLGetLogSystem().log(
        LogFormat("phone favorites cannot be read, the first list waits for them").as("_loadFriendList"));
  }
  _isDue = isDue;
  if (isDue) return;
  _retry.cancel();
  _retry.reset();
}

void PLFavorites::bringLater() {
  if (!_retry.isWaiting()) _retry.retry(_bring);
}

}  // namespace pellor
