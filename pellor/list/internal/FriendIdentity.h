// By what a friend is known where no process has it any more.
#pragma once

#include <compare>
#include <cstdint>
#include <string>
#include <vector>

#include "pellor/runtime/Value.h"

namespace pellor {

struct Friend;

/// What a friend of a snapshot and a stored form both tell of who it is.
struct FriendIdentity {
  std::string guid;                       ///< of the contact; empty without one
  std::string name;                       ///< empty without one
  std::vector<std::string> destinations;  ///< ascending
  friend auto operator<=>(const FriendIdentity&, const FriendIdentity&) = default;
};

FriendIdentity identityOf(const Friend& person);
/// Of a stored form; what is of a wrong type is absent.
FriendIdentity identityOf(const Dictionary& form);

bool haveCommonDestination(const FriendIdentity& one, const FriendIdentity& other);
/// Whether one is the other who was added anew: the GUIDs are equal; or neither has one, the names are equal and a
/// destination is shared, or neither has any.
bool areAddedAlike(const FriendIdentity& one, const FriendIdentity& other);
/// A short number that is equal in all processes for equal identities, and seldom for others.
std::uint32_t fingerprintOf(const FriendIdentity& identity);

}  // namespace pellor
