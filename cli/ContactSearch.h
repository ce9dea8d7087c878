// Finds contacts by what the user calls them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cli/FriendSearch.h"
#include "cli/Session.h"

namespace pellor::cli {

/// One record of the address book: plain values, which outlive the handle.
struct ContactEntry {
  std::string guid;
  std::optional<std::string> name;
  std::vector<std::string> destinations;  ///< of this record, numbers first, as they are written
  std::vector<std::string> linkedGuids;   ///< of the other records of the same person
  std::uint64_t reachableBy = 0;          ///< how many destinations the person has, linked records included
};

/// What to call a contact: its name, else its first number or address, else its GUID.
std::string nameOf(const ContactEntry& contact);

/// Every record whose name, number, address or GUID contains the pattern; all for an absent one. By name.
std::vector<ContactEntry> contactsMatching(Session& session, const std::optional<std::string>& pattern);

/// The persons that have the number or address, one record each.
std::vector<ContactEntry> contactsWithDestination(Session& session, const std::string& destination);

/// The one person that `who` names: by GUID, number or address, whole name, or the beginning of the name. Absent when
/// nobody fits; throws AmbiguousError when several do.
std::optional<ContactEntry> contactNamed(Session& session, const std::string& who);

/// The friend that the contact is, by its GUID or that of a linked record; absent when it is none.
std::optional<FriendAt> friendThatIs(const PLFriendsManager& manager, const ContactEntry& contact);

}  // namespace pellor::cli
