// What explains a friend as he is.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "pellor/list/History.h"
#include "pellor/list/ListIds.h"
#include "pellor/list/Reachability.h"

namespace pellor {

/// An automatic decision that a person took back. The library does not make it again until what it rested on changes.
struct FriendException {
  StepKind kind = StepKind::unknown;  ///< relinked, unlinked, deduplicated or cleanedUp
  std::string step = {};              ///< the id of the step that was taken back
  /// The GUID of the contact: that the friend is not to be linked with; that it stays linked with although the contact
  /// is gone; that it has together with another friend. Empty for a friend who stays without numbers and addresses.
  std::string contact = {};
  friend bool operator==(const FriendException&, const FriendException&) = default;
};

/// Why one number or address is shown and written to.
enum class NumberReason {
  none,    ///< the friend has no number and no address
  chosen,  ///< by a person
  card,    ///< the first one on the contact, of those that the friend has
  first,   ///< the friend's first number, else the first address: there is no contact to ask
};

struct Explanation {
  FriendId id = {};
  std::string contactGUID = {};  ///< of the contact that the friend is linked with; empty without a link
  bool isContactThere = false;   ///< whether the contacts have it, as far as they can be read
  /// The id of the step that made this link, or by whose taking back it is there again; empty where the history has
  /// none.
  std::string linkedSince = {};
  std::vector<HistoryStep> steps = {};           ///< all that tell of the friend, the newest first
  std::vector<FriendException> exceptions = {};  ///< that hold for the friend
  std::string number = {};                       ///< that is shown, in canonical form; empty without one
  NumberReason numberReason = NumberReason::none;
  std::optional<std::string> chosenNumber = {};  ///< a person's choice, also one that the friend does not have any more
  bool isReachabilityChecked = false;            ///< false: nobody is asked, and everybody counts as reachable
  Reachability reachability = {};
};

}  // namespace pellor
