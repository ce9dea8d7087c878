// Finds friends by what the user calls them.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/Choice.h"
#include "cli/Place.h"
#include "cli/Session.h"
#include "pellor/list/FriendSearch.h"
#include "pellor/list/Snapshot.h"

namespace pellor::cli {

/// A friend in its slot.
struct FriendAt {
  Place place;
  std::shared_ptr<const Friend> person;
};

/// All friends on the pages, in slot order.
std::vector<FriendAt> allFriends(const Snapshot& list);

/// Those of `friends` who are in the list, with their places there, in slot order.
std::vector<FriendAt> placesOf(const Snapshot& list, const std::vector<FriendId>& friends);

/// Finds the friends that are on the pages when it is asked first.
class FriendFinder {
 public:
  explicit FriendFinder(Session& session);
  /// Finds those of that version of the list.
  FriendFinder(Session& session, const Snapshot& list);
  ~FriendFinder();

  /// In slot order.
  std::vector<FriendAt> withGuid(const std::string& guid);
  /// The friends that have the number or address, however it is written, in slot order.
  std::vector<FriendAt> withDestination(const std::string& destination);
  /// The one friend that `who` names: by PAGE:SLOT, or as friends are searched for (FriendFit). Of several it is the
  /// one whom the user chooses, or who has the number N of WHO#N. Throws CommandError when nobody fits or is chosen,
  /// AmbiguousError where the user cannot be asked.
  FriendAt named(const std::string& who);

 private:
  FriendSearch& search();
  std::vector<FriendAt> friendsOf(const std::vector<FriendId>& friends);
  std::vector<FriendAt> fitting(const std::string& who);
  bool isCalled(const std::string& who, const NumberedWho& numbered);
  std::string nearestName(const std::string& who);

  Session& _session;
  std::unique_ptr<FriendSearch> _search;
};

/// `FriendFinder::named`, for one search.
FriendAt friendNamed(Session& session, const std::string& who);

/// The friends of several names, in their order. Throws UsageError when two names are of one friend.
std::vector<FriendAt> friendsNamed(Session& session, const std::vector<std::string>& who);

/// The page with that index. Throws CommandError when there is none.
Page pageAt(const Snapshot& list, std::uint64_t index);

/// What to call a friend: its name, else the number or address under which it is shown.
std::string nameOf(const Friend& person);

/// The first number of a friend, else the first address; absent without any.
std::optional<std::string> primaryDestination(const Friend& person);

/// The number or address under which a friend is shown, for the user; empty without one.
std::string shownDestination(const Friend& person);
std::string shownDestination(const std::string& destination);

}  // namespace pellor::cli
