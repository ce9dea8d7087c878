#include "pellor/friends/internal/PLExceptions.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "pellor/friends/PLFriendsManagerKeys.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/friends/internal/PLAttachedArrays.h"
#include "pellor/friends/internal/PLSlotList.h"
#include "pellor/platform/AddressBookStore.h"

namespace pellor {
namespace {

const std::string ExceptionsKey(PLFriendListExceptionsKey);

PLCardIdentity identityOf(const PLPerson& person) {
  const PLPersonRecord& record = person.record();
  PLCardIdentity identity{
      std::string(record.identifyingGUID()), std::string(record.text(PLPersonRecord::_name).value_or("")), {}};
  if (const auto destinations = record.destinations())
    identity.destinations.assign(destinations->begin(), destinations->end());
  std::ranges::sort(identity.destinations);
  return identity;
}

// Name and destinations are those that a friend takes over from the record.
bool isCardAsBefore(const RecordRef& record, const PLCardIdentity& before) {
  const auto destinations = *PLPerson::allValuesForPerson(record);
  return PLPerson::preferredNameForPerson(record).value_or("") == before.name &&
         std::set<std::string>(destinations.begin(), destinations.end()) ==
             std::set<std::string>(before.destinations.begin(), before.destinations.end());
}

bool limits(const PLException& exception, const PLPerson& person) {
  if (exception.person.guid != person.record().identifyingGUID()) return false;
  if (exception.kind == PLDecisionKind::relinked) return exception.person == identityOf(person);
  return exception.kind == PLDecisionKind::unlinked;
}

}  // namespace

PLExceptions::PLExceptions(const PLSlotList& friends, PLAttachedArrays& arrays) : _friends(friends), _arrays(arrays) {
  _arrays.attach(ExceptionsKey, {MostExceptions, {}});
}

const std::vector<PLException>& PLExceptions::all() const {
  const LongArray& stored = _arrays.at(ExceptionsKey);
  if (stored.chunks() == _read.chunks()) return _all;
  _read = stored;
  _all.clear();
  for (const Value& element : stored.elements())
    if (auto exception = exceptionOf(element)) _all.push_back(*std::move(exception));
  return _all;
}

// What a later version wrote stays.
void PLExceptions::dropIf(const std::function<bool(const PLException&)>& isOutdated) {
  if (all().empty()) return;
  Array kept;
  for (const Value& element : _arrays.at(ExceptionsKey).elements()) {
    const auto exception = exceptionOf(element);
    if (!exception || !isOutdated(*exception)) kept.push_back(element);
  }
  if (kept.size() != _arrays.at(ExceptionsKey).size()) _arrays.set(ExceptionsKey, LongArray(kept));
}

// --- Links ---------------------------------------------------------------------------------------------------------

// A record that is gone may come back as it was.
void PLExceptions::dropByContacts(AddressBook& addressBook) {
  const auto isOutdated = [&](const PLException& exception) {
    const bool isOfRecord = exception.kind == PLDecisionKind::relinked;
    if (!isOfRecord && exception.kind != PLDecisionKind::unlinked) return false;
    const auto& guid = isOfRecord ? exception.record.guid : exception.person.guid;
    const RecordRef record = addressBook.copyPersonMatchingGUID(guid);
    const bool isOther = record && !(isOfRecord && isCardAsBefore(record, exception.record));
    return isOther && addressBook.isReadable();
  };
  dropIf(isOutdated);
}

bool PLExceptions::limit(const PLPerson& person) const {
  return std::ranges::any_of(all(), [&](const PLException& exception) { return limits(exception, person); });
}

PLLinkLimits PLExceptions::limitsFor(const PLPerson& person) const {
  PLLinkLimits all;
  for (const PLException& exception : this->all()) {
    if (!limits(exception, person)) continue;
    all.keepsLink = true;
    if (exception.kind == PLDecisionKind::relinked) all.refusedRecords.insert(exception.record.guid);
  }
  return all;
}

// --- Clean-up ------------------------------------------------------------------------------------------------------

// Of those for one GUID as many hold as there are friends with it beyond the first one.
void PLExceptions::dropByList() {
  std::map<std::string, std::uint64_t> held;
  dropIf([&](const PLException& exception) {
    const PLCardIdentity& person = exception.person;
    switch (exception.kind) {
      case PLDecisionKind::relinked:
        return !isFriend(person);
      case PLDecisionKind::unlinked:
        return !_friends.people().containsGUID(person.guid);
      case PLDecisionKind::deduplicated:
        return countWithGUID(person.guid) < ++held[person.guid] + 1;
      case PLDecisionKind::cleanedUp:
        return !isFriendWithoutDestinations(person);
    }
    return false;
  });
}

// By slots: somebody may be in several.
std::uint64_t PLExceptions::countWithGUID(const std::string& guid) const {
  std::set<std::uint64_t> slots;
  _friends.people().forEachWithGUID(guid, [&](const PLPerson& person) {
    for (auto slot = _friends.indexOf(&person); slot; slot = _friends.indexOf(&person, *slot + 1)) slots.insert(*slot);
  });
  return slots.size();
}

bool PLExceptions::isFriend(const PLCardIdentity& identity) const {
  bool isFound = false;
  const auto look = [&](const PLPerson& person) { isFound = isFound || identityOf(person) == identity; };
  if (!identity.guid.empty()) {
    _friends.people().forEachWithGUID(identity.guid, look);
  } else if (!identity.destinations.empty()) {
    _friends.people().forEachWithDestination(identity.destinations.front(), look);
  }
  return isFound;
}

bool PLExceptions::isFriendWithoutDestinations(const PLCardIdentity& identity) const {
  for (std::uint64_t index = 0; index < _friends.count(); ++index) {
    const Slot& person = _friends.at(index);
    if (!person || person->allValuesCount() != 0) continue;
    const PLCardIdentity its = identityOf(*person);
    if (its.guid == identity.guid && (!its.guid.empty() || its.name == identity.name)) return true;
  }
  return false;
}

std::uint64_t PLExceptions::mostWithGUID(std::string_view guid) const {
  const auto isOfGUID = [&](const PLException& exception) {
    return exception.kind == PLDecisionKind::deduplicated && exception.person.guid == guid;
  };
  return 1 + static_cast<std::uint64_t>(std::ranges::count_if(all(), isOfGUID));
}

bool PLExceptions::keepWithoutDestinations(std::string_view guid, std::string_view name) const {
  return std::ranges::any_of(all(), [&](const PLException& exception) {
    return exception.kind == PLDecisionKind::cleanedUp && exception.person.guid == guid &&
           (!guid.empty() || exception.person.name == name);
  });
}

}  // namespace pellor
