// The library's persons in their slots, for commands that rewrite the list or read its change log.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "cli/FriendSearch.h"
#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/PLPerson.h"

namespace pellor::cli {

/// The library's object of the session's list.
PLFriendsManager& managerOf(Session& session);

/// A person in a slot.
struct PersonAt {
  Place place;
  std::shared_ptr<PLPerson> person;
};

/// All persons on the pages, in slot order.
std::vector<PersonAt> allPersons(const PLFriendsManager& manager);

/// The person as a friend, as it is now; without id, colour and status.
Friend friendOf(const PLPerson& person);
std::string nameOf(const PLPerson& person);

/// Likewise, with the place.
FriendAt friendAt(const PersonAt& found);

}  // namespace pellor::cli
