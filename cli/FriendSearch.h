// Finds friends by what the user calls them.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Pellor/PLFriendGroup.h"
#include "Pellor/PLFriendsManager.h"
#include "Pellor/PLPerson.h"
#include "cli/Place.h"

namespace pellor::cli {

/// A friend in its slot. Holds the page, so that it stays valid while other pages come and go.
struct FriendAt {
  Place place;
  std::shared_ptr<PLFriendGroup> page;
  std::shared_ptr<PLPerson> person;
};

/// All friends on the pages, in slot order.
std::vector<FriendAt> allFriends(const PLFriendsManager& manager);

/// The friends for whom `fits` is true, in slot order.
template <class Fits>
std::vector<FriendAt> friendsThat(const PLFriendsManager& manager, Fits fits) {
  std::vector<FriendAt> found = allFriends(manager);
  std::erase_if(found, [&](const FriendAt& candidate) { return !fits(*candidate.person); });
  return found;
}

/// The friends that have the number or address, however it is written.
std::vector<FriendAt> friendsWithDestination(const PLFriendsManager& manager, const std::string& destination);

/// The one friend that `who` names: by PAGE:SLOT, GUID, number or address, whole name, or the beginning of the name.
/// The first of these that fits anybody decides. Throws CommandError when nobody fits, AmbiguousError when several do.
FriendAt friendNamed(const PLFriendsManager& manager, const std::string& who);

/// The same for each of several names. Throws UsageError when two name the same friend.
std::vector<FriendAt> friendsNamed(const PLFriendsManager& manager, const std::vector<std::string>& who);

/// The page with that index. Throws CommandError when there is none.
std::shared_ptr<PLFriendGroup> pageAt(const PLFriendsManager& manager, std::uint64_t index);

/// What to call a friend: its name, else its first number or address.
std::string nameOf(const PLPerson& person);

/// The first number or address as it is shown; empty without one.
std::string shownDestination(const PLPerson& person);
std::string shownDestination(const std::string& destination);

}  // namespace pellor::cli
