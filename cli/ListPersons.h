// The library's persons in their slots, for what reads the change log of a load.
#pragma once

#include <memory>
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

}  // namespace pellor::cli
