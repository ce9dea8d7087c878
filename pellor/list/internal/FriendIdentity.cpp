#include "pellor/list/internal/FriendIdentity.h"

#include <algorithm>
#include <string_view>

#include "pellor/friends/detail/PLPersonForm.h"
#include "pellor/list/Snapshot.h"
#include "pellor/list/internal/TextHash.h"

namespace pellor {

FriendIdentity identityOf(const Friend& person) {
  return {person.contactGUID.value_or(std::string()), person.name, person.destinations};
}

FriendIdentity identityOf(const Dictionary& form) {
  FriendIdentity identity;
  identity.guid = stringForKey(form, PLPersonRecordGUIDKey).value_or(std::string());
  identity.name = stringForKey(form, PLPersonNameKey).value_or(std::string());
  const Value* destinations = valueForKey(form, PLPersonAllValuesKey);
  if (!destinations || !destinations->array()) return identity;
  for (const Value& destination : *destinations->array())
    if (const std::string* text = destination.string()) identity.destinations.push_back(*text);
  std::ranges::sort(identity.destinations);
  return identity;
}

bool haveCommonDestination(const FriendIdentity& one, const FriendIdentity& other) {
  return std::ranges::any_of(one.destinations, [&](const std::string& destination) {
    return std::ranges::binary_search(other.destinations, destination);
  });
}

bool areAddedAlike(const FriendIdentity& one, const FriendIdentity& other) {
  if (!one.guid.empty() || !other.guid.empty()) return one.guid == other.guid;
  if (one.name != other.name) return false;
  if (one.destinations.empty() && other.destinations.empty()) return !one.name.empty();
  return haveCommonDestination(one, other);
}

std::uint32_t fingerprintOf(const FriendIdentity& identity) {
  TextHash hash;
  const auto add = [&](std::string_view text) { hash.add(text).add("\xFF"); };
  if (!identity.guid.empty()) {
    add(identity.guid);
    return hash.value();
  }
  add(identity.name);
  for (const std::string& destination : identity.destinations) add(destination);
  return hash.value();
}

}  // namespace pellor
