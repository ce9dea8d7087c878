// Finding the friends of a list by what somebody types.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/list/ListIds.h"
#include "pellor/list/Snapshot.h"

namespace pellor {

/// Where a typed text was found, the best first.
enum class FriendFit {
  contact,          ///< it is the GUID of the friend's contact
  destination,      ///< it is one of the numbers and addresses, however both are written
  name,             ///< it is the name that the list shows, its words in any order, case and accents aside
  cardName,         ///< likewise it is the nickname, or another name on the friend's card
  nameWords,        ///< each typed word begins a word of one of these names
  addressWords,     ///< as `nameWords`; the word that fewest friends have is one of an e-mail address
  numberBeginning,  ///< a number begins with the typed digits, with or without its country
  numberEnding,     ///< a number ends with the typed digits, of which there are at least three
};

struct FoundFriend {
  FriendId id;
  FriendFit fit = FriendFit::name;
  friend bool operator==(const FoundFriend&, const FoundFriend&) = default;
};

/// The friends whom a text fits.
struct FoundFriends {
  /// By fit; those of one fit as the list has them, but of names and numbers that were typed in part whole words come
  /// before longer ones.
  std::vector<FoundFriend> friends = {};
  /// How many of the first ones the text may be meant for, who fit alike. 1: that friend is meant; more: a person has
  /// to choose; 0: nobody, as for one or two digits, which are no part of anybody's number.
  std::size_t meant = 0;
};

/// Finds the friends of one version of a list, as it is then; what it looks them up by is put together when it is
/// needed first, and the names on their cards are read then. Main queue.
class FriendSearch {
 public:
  explicit FriendSearch(Snapshot list);
  ~FriendSearch();
  FriendSearch(const FriendSearch&) = delete;
  FriendSearch& operator=(const FriendSearch&) = delete;

  const Snapshot& list() const;

  /// At most `limit` friends; nobody for a text without a word and without a digit.
  FoundFriends find(std::string_view text, std::size_t limit);
  /// Whom the text is meant for: all whom it fits best (`FoundFriends::meant`).
  std::vector<FriendId> named(std::string_view text);
  /// The friend whose name is nearest to a text that was mistyped, by letters that are wrong, missing, too many or
  /// exchanged with their neighbours; absent where a word differs by more than a third of its letters from all names.
  std::optional<FriendId> similar(std::string_view text);
  /// Those who are linked with the contact, in the order of the list.
  std::vector<FriendId> withContact(const std::string& guid);
  /// Those who have the number or address, however it is written, in the order of the list.
  std::vector<FriendId> withDestination(std::string_view destination);

 private:
  struct Tables;
  const std::unique_ptr<Tables> _tables;
};

}  // namespace pellor
