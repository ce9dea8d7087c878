// Which page of one list of a three-way merge is which of another.
#pragma once

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "pellor/friends/internal/PLMergeFriends.h"
#include "pellor/friends/internal/PLMergeInput.h"
#include "pellor/friends/internal/PLMergePageMatching.h"
#include "pellor/friends/internal/PLMergeSlots.h"

namespace pellor {

/// Where the pages of base are in theirs. Behind the last page of base and of theirs go on in empty pages, which follow
/// one another in both.
///
/// Of all matchings that keep the order it is the one with the most friends and titles (but "") in common, less the
/// pages without counterpart up to the last friend of either list; then with the most pages up to the last friend of
/// each; then with the fewest pages of theirs added among them, the most in common, the most pages at all, the lower
/// page numbers. Where friends left one page for another over more than `CountedShifts` different distances, those over
/// which the fewest went are not counted.
class PLPageMatch {
 public:
  static constexpr std::size_t CountedShifts = PLShiftedPages::CountedShifts;

  PLPageMatch(const PLMergeSlots& base, const Array& baseTitles, const PLMergeSlots& theirs, const Array& theirTitles,
              const PLFriendPairs& friends);

  /// The page of theirs, maybe behind its end, that a page of base, maybe behind its end, is; absent: they removed it.
  std::optional<std::uint64_t> theirs(std::uint64_t basePage) const;
  /// The opposite; absent: they added the page.
  std::optional<std::uint64_t> base(std::uint64_t theirPage) const;
  /// How many pages of theirs come before the place where the page of base is or was.
  std::uint64_t theirCountBefore(std::uint64_t basePage) const;
  /// Whether some page is one of another number.
  bool isShifted() const { return !_shifted.empty(); }

 private:
  using Pair = std::pair<std::uint64_t, std::uint64_t>;

  std::uint64_t _baseCount;
  std::uint64_t _sameCount;    // pages below are the ones of the same number
  std::vector<Pair> _shifted;  // the others: pages of base and theirs, ascending
  std::uint64_t _firstBehind;  // the page of theirs that is the first behind base's
};

/// Where our pages are in base. A group that was appended is the next page behind base's. Pages behind the groups are
/// the last of base.
class PLOurPages {
 public:
  PLOurPages(const PLPageOrigins& origins, std::uint64_t groupCount, const PLMergeSlots& ours,
             const PLMergeSlots& base);

  /// How many pages we have, with those behind the groups.
  std::uint64_t count() const { return _count; }
  /// The page of base, maybe behind its end; absent: we put the page between those of base.
  std::optional<std::uint64_t> base(std::uint64_t ourPage) const;
  /// The opposite; absent: we removed it, or never had it.
  std::optional<std::uint64_t> ours(std::uint64_t basePage) const;
  /// Pages below it are the ones of the same number in base.
  std::uint64_t sameCount() const { return _sameCount; }
  bool isSame() const { return _pages.empty(); }

 private:
  std::uint64_t _count;
  std::uint64_t _sameCount;
  PLPageOrigins _pages;  // from _sameCount on; empty when page i is page i for all
  std::vector<std::pair<std::uint64_t, std::uint64_t>> _byBase;  // pages of base from _sameCount on, and which they are
};

}  // namespace pellor
