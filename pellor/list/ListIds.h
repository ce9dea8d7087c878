// What names a friend, a page and a slot of a list.
#pragma once

#include <compare>
#include <cstdint>
#include <functional>

namespace pellor {

/// Names one friend as long as the process has it: through moves, reloads and edits of other programs, and also while
/// it is in no slot. Never given to another friend, and not stored.
struct FriendId {
  std::uint64_t number = 0;  ///< from 1, in the order in which the process met them; 0 names nobody
  friend auto operator<=>(const FriendId&, const FriendId&) = default;
};

/// Names one page as long as the process has it, whatever stands on it. Never given to another page, and not stored.
struct PageId {
  std::uint64_t number = 0;  ///< from 1; 0 names none
  friend auto operator<=>(const PageId&, const PageId&) = default;
};

/// A slot of a snapshot, by index.
struct Place {
  std::uint64_t page = 0;  ///< from 0
  std::uint64_t slot = 0;  ///< from 0
  friend auto operator<=>(const Place&, const Place&) = default;
};

}  // namespace pellor
