// Which pages of base are pages of another number in theirs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "pellor/friends/internal/PLMergeFriends.h"
#include "pellor/friends/internal/PLMergeSlots.h"

namespace pellor {

/// The title of a page; null when there is none.
const std::string* titleOfPage(const Array& titles, std::uint64_t page);

struct PLTitledSlots {
  const PLMergeSlots& list;
  const Array& titles;
};

struct PLShiftedPages {
  /// Friends that left one page for another count over so many different distances.
  static constexpr std::size_t CountedShifts = 64;

  std::uint64_t sameCount;                                     ///< pages below it are the ones of the same number
  std::vector<std::pair<std::uint64_t, std::uint64_t>> pairs;  ///< the others, ascending
};

/// The matching that `PLPageMatch` describes; absent when every page is the one of the same number, as far as there is
/// one. Looks only at pages between those that friends or titles left for one another.
std::optional<PLShiftedPages> matchShiftedPages(const PLTitledSlots& base, const PLTitledSlots& theirs,
                                                const PLFriendPairs& friends);

}  // namespace pellor
