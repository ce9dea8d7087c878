// What a manager does not decide again, because a user took it back.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/friends/detail/PLLinkLimits.h"
#include "pellor/friends/internal/PLException.h"
#include "pellor/runtime/LongArray.h"

namespace pellor {

class AddressBook;
class PLAttachedArrays;
class PLPerson;
class PLSlotList;

/// The exceptions of a list: read from the array that is attached to it, and taken out of it when what they rest on is
/// another thing. Main queue.
class PLExceptions {
 public:
  static constexpr std::size_t MostExceptions = 200;

  /// Both outlive this object. Attaches the array.
  PLExceptions(const PLSlotList& friends, PLAttachedArrays& arrays);

  // --- Links ---

  /// Takes those out of which the contacts say otherwise by now.
  void dropByContacts(AddressBook& addressBook);
  /// Whether there are limits for the person.
  bool limit(const PLPerson& person) const;
  PLLinkLimits limitsFor(const PLPerson& person) const;

  // --- Clean-up ---

  /// Takes those out of which the list says otherwise by now.
  void dropByList();
  /// How many friends may have one GUID.
  std::uint64_t mostWithGUID(std::string_view guid) const;
  /// Whether a friend of that GUID, empty for none, and that name stays without destinations.
  bool keepWithoutDestinations(std::string_view guid, std::string_view name) const;

 private:
  const std::vector<PLException>& all() const;
  void dropIf(const std::function<bool(const PLException&)>& isOutdated);
  std::uint64_t countWithGUID(const std::string& guid) const;
  bool isFriend(const PLCardIdentity& identity) const;
  bool isFriendWithoutDestinations(const PLCardIdentity& identity) const;

  const PLSlotList& _friends;
  PLAttachedArrays& _arrays;
  mutable LongArray _read;  // what the exceptions were made of
  mutable std::vector<PLException> _all;
};

}  // namespace pellor
