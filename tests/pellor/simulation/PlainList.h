// A friend list as its users see it, without the library: pages of slots with titles, and what each friend was told.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace pellor {

class PLFriendsManager;
class PLPerson;

/// Names a friend by its address; the empty one is an empty slot.
using FriendName = std::string;

struct PlainFriend {
  std::string replyAs;                          ///< empty: none
  std::map<std::string, std::string> metadata;  ///< texts only
  std::string later;                            ///< what a later version of the library keeps of it; empty: nothing
  /// "{home, a=1}"; empty if nothing is known.
  std::string text() const;
  friend bool operator==(const PlainFriend&, const PlainFriend&) = default;
};

struct PlainPage {
  std::vector<FriendName> slots;
  std::string title;  ///< empty: none
  bool isEmpty() const;
};

struct PlainPlace {
  std::size_t page = 0;
  std::size_t position = 0;
  friend bool operator==(const PlainPlace&, const PlainPlace&) = default;
};

struct PlainList {
  std::vector<PlainPage> pages;
  std::map<FriendName, PlainFriend> friends;  ///< of a friend who is there twice the first
  std::set<FriendName> doubled;               ///< friends who stand in more than one slot

  bool contains(const FriendName& name) const { return friends.contains(name); }
  /// The first slot of the friend; absent when there is none.
  std::optional<PlainPlace> placeOf(const FriendName& name) const;
  const FriendName& at(const PlainPlace& place) const { return pages.at(place.page).slots.at(place.position); }
  /// "Family: p1{home, a=1} - p2 | p3 -".
  std::string text() const;
};

/// The last of the person's destinations: numbers come before addresses.
FriendName nameOf(const PLPerson& person);
PlainFriend plainFriendOf(const PLPerson& person);
/// The key of a stored friend that only a later version of the library knows: `PlainFriend::later`.
constexpr const char* LaterKey = "Later";
/// The list as the manager shows it.
PlainList plainListOf(const PLFriendsManager& manager);

}  // namespace pellor
