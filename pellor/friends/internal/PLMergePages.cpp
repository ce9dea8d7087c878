#include "pellor/friends/internal/PLMergePages.h"

#include <algorithm>

#include "pellor/friends/internal/PLMergePageMatching.h"

namespace pellor {
namespace {

bool isBelow(const std::pair<std::uint64_t, std::uint64_t>& pair, std::uint64_t page) { return pair.first < page; }

}  // namespace

PLPageMatch::PLPageMatch(const PLMergeSlots& base, const Array& baseTitles, const PLMergeSlots& theirs,
                         const Array& theirTitles, const PLFriendPairs& friends)
    : _baseCount(base.pageCount()), _sameCount(std::min(base.pageCount(), theirs.pageCount())) {
  if (const auto shifted = matchShiftedPages({base, baseTitles}, {theirs, theirTitles}, friends)) {
    _sameCount = shifted->sameCount;
    _shifted = shifted->pairs;
  }
  _firstBehind = _shifted.empty() ? _sameCount : _shifted.back().second + 1;
}

std::optional<std::uint64_t> PLPageMatch::theirs(std::uint64_t basePage) const {
  if (basePage >= _baseCount) return _firstBehind + (basePage - _baseCount);
  if (basePage < _sameCount) return basePage;
  const auto found = std::ranges::lower_bound(_shifted, basePage, {}, &Pair::first);
  return found != _shifted.end() && found->first == basePage ? std::optional(found->second) : std::nullopt;
}

std::optional<std::uint64_t> PLPageMatch::base(std::uint64_t theirPage) const {
  if (theirPage >= _firstBehind) return _baseCount + (theirPage - _firstBehind);
  if (theirPage < _sameCount) return theirPage;
  const auto found = std::ranges::lower_bound(_shifted, theirPage, {}, &Pair::second);
  return found != _shifted.end() && found->second == theirPage ? std::optional(found->first) : std::nullopt;
}

std::uint64_t PLPageMatch::theirCountBefore(std::uint64_t basePage) const {
  if (const auto same = theirs(basePage)) return *same;
  const auto behind = std::lower_bound(_shifted.begin(), _shifted.end(), basePage, isBelow);
  return behind == _shifted.begin() ? _sameCount : std::prev(behind)->second + 1;
}

PLOurPages::PLOurPages(const PLPageOrigins& origins, std::uint64_t groupCount, const PLMergeSlots& ours,
                       const PLMergeSlots& base)
    : _count(std::max<std::uint64_t>(groupCount, ours.pageCount())), _sameCount(_count) {
  if (origins.empty()) return;
  std::uint64_t page = 0;
  while (page < origins.size() && origins[page] == page) ++page;
  _sameCount = page;
  const auto isKnown = [](const auto& origin) { return origin.has_value(); };
  const auto appended = std::find_if(origins.rbegin(), origins.rend(), isKnown).base();
  std::uint64_t next = page;  // the lowest page of base that may follow
  for (; page < _count; ++page) {
    std::optional<std::uint64_t> origin;
    if (page >= origins.size()) {
      // Behind the groups pages only move down.
      const std::uint64_t fromEnd = _count - page;
      origin = std::max(next, base.pageCount() - std::min(base.pageCount(), fromEnd));
    } else if (origins[page] && *origins[page] >= next) {
      origin = origins[page];
    } else if (page >= static_cast<std::uint64_t>(appended - origins.begin())) {
      origin = std::max(next, base.pageCount());
    }
    if (origin) next = *origin + 1;
    if (origin == page && page == _sameCount) {
      ++_sameCount;
      continue;
    }
    if (origin) _byBase.emplace_back(*origin, page);
    _pages.push_back(origin);
  }
}

std::optional<std::uint64_t> PLOurPages::base(std::uint64_t ourPage) const {
  return ourPage < _sameCount || isSame() ? ourPage : _pages[ourPage - _sameCount];
}

std::optional<std::uint64_t> PLOurPages::ours(std::uint64_t basePage) const {
  if (basePage < _sameCount) return basePage;
  const auto found = std::ranges::lower_bound(_byBase, basePage, {}, &std::pair<std::uint64_t, std::uint64_t>::first);
  return found != _byBase.end() && found->first == basePage ? std::optional(found->second) : std::nullopt;
}

}  // namespace pellor
