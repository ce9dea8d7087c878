#include "pellor/list/internal/FriendIdentity.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "pellor/friends/internal/PLException.h"
#include "pellor/list/Snapshot.h"
#include "pellor/list/internal/TextHash.h"

namespace pellor {

FriendIdentity identityOf(const Friend& person) {
  return {person.contactGUID.value_or(std::string()), person.name, person.destinations};
}

FriendIdentity identityOf(const Dictionary& form) {
  PLCardIdentity card = cardIdentityOf(form);
  return {std::move(card.guid), std::move(card.name), std::move(card.destinations)};
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
