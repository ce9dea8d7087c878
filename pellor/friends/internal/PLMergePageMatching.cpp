// A matching is a chain of pairs of pages that have something in common. Between two pairs of the chain as many pages
// as possible are matched, the lowest ones; so what a step of the chain costs follows from the shift of its two ends
// alone, the distance of the page of theirs from the page of base. The best chain to each pair is found from the best
// ones on every shift.
#include "pellor/friends/internal/PLMergePageMatching.h"

#include <algorithm>
#include <limits>
#include <map>
#include <tuple>
#include <unordered_map>

namespace pellor {
namespace {

using Page = std::int64_t;  // one before the first page is a place as well

// More bearers do not tell which page is which.
constexpr std::size_t TitleBearers = 16;
// Up to as much in common, it is cheaper to stop counting early than to count pages once.
constexpr std::int64_t FewInCommon = 64;

struct Node {
  Page base;
  Page theirs;
  std::int64_t inCommon;
  Page shift() const { return theirs - base; }
  Page low() const { return std::min(base, theirs); }
  Page high() const { return std::max(base, theirs); }
};

struct Score {
  std::int64_t value = 0;      // in common, less what is lost
  std::int64_t matched = 0;    // pages before the last friend of each list, less an offset of the last pair's shift
  std::int64_t added = 0;      // pages of theirs among the others, counted downwards: pages come behind the last friend
  std::int64_t inCommon = 0;   // of as good matchings the one that tells most: few friends stand on small pages
  std::int64_t unmatched = 0;  // pages, counted downwards
  std::int64_t height = 0;     // the numbers of the unmatched pages: the higher, the lower are the matched ones
  friend auto operator<=>(const Score&, const Score&) = default;
};

std::uint64_t toIndex(Page page) { return static_cast<std::uint64_t>(page); }

// What the pages of the same number have in common.
class Diagonal {
 public:
  Diagonal(const PLTitledSlots& base, const PLTitledSlots& theirs, const PLFriendPairs& friends)
      : _base(base), _theirs(theirs), _pageCount(std::min(base.list.pageCount(), theirs.list.pageCount())) {
    for (const PLFriendPairs::Pair& pair : friends.pairs()) {
      const std::uint64_t page = base.list.pageOf(pair.base);
      if (page == theirs.list.pageOf(pair.theirs)) ++_friends[page];
    }
  }

  Page pageCount() const { return static_cast<Page>(_pageCount); }

  std::int64_t inCommon(Page page) {
    const std::uint64_t index = toIndex(page);
    if (index >= _pageCount) return 0;
    const auto [entry, isNew] = _inCommon.try_emplace(index, 0);
    if (isNew) entry->second = friendsInCommon(index) + (haveSameTitle(page, page) ? 1 : 0);
    return entry->second;
  }

  bool haveSameTitle(Page basePage, Page theirPage) const {
    const std::string* title = titleOfPage(_base.titles, toIndex(basePage));
    const std::string* other = titleOfPage(_theirs.titles, toIndex(theirPage));
    return title && other && !title->empty() && *title == *other;
  }

  // Whether pages from `first` to `last` have at least so much in common.
  bool reaches(Page first, Page last, std::int64_t limit) {
    std::int64_t sum = 0;
    for (Page page = first; page <= last && sum < limit; ++page) sum += inCommon(page);
    return sum >= limit;
  }

 private:
  // Friends in chunks that both lists share are there without having been paired.
  std::int64_t friendsInCommon(std::uint64_t page) const {
    const auto found = _friends.find(page);
    std::int64_t count = found == _friends.end() ? 0 : found->second;
    const std::uint64_t first = page * _base.list.groupSize();
    for (std::uint64_t slot = first; slot < first + _base.list.groupSize() && slot < _base.list.size(); ++slot) {
      const std::uint64_t chunk = chunkOfSlot(slot);
      if (_base.list.chunk(chunk) == _theirs.list.chunk(chunk) && !_base.list.isEmpty(slot)) ++count;
    }
    return count;
  }

  const PLTitledSlots& _base;
  const PLTitledSlots& _theirs;
  const std::uint64_t _pageCount;
  std::unordered_map<std::uint64_t, std::int64_t> _friends;
  std::unordered_map<std::uint64_t, std::int64_t> _inCommon;
};

using PagesByTitle = std::map<std::string, std::vector<Page>>;

PagesByTitle pagesByTitle(const PLTitledSlots& slots) {
  PagesByTitle pages;
  for (std::uint64_t page = 0; page < std::min<std::uint64_t>(slots.titles.size(), slots.list.pageCount()); ++page) {
    const std::string* title = titleOfPage(slots.titles, page);
    if (title && !title->empty()) pages[*title].push_back(static_cast<Page>(page));
  }
  return pages;
}

using PairsInCommon = std::map<std::pair<Page, Page>, std::int64_t>;

// Pages that bear the title of a page of another number.
void addTitles(PairsInCommon& inCommon, const PLTitledSlots& base, const PLTitledSlots& theirs) {
  if (base.titles == theirs.titles) return;
  const PagesByTitle theirPages = pagesByTitle(theirs);
  for (const auto& [title, pages] : pagesByTitle(base)) {
    const auto found = theirPages.find(title);
    if (found == theirPages.end() || std::max(pages.size(), found->second.size()) > TitleBearers) continue;
    for (const Page page : pages) {
      for (const Page other : found->second) {
        if (page != other) inCommon.try_emplace({page, other}, 0);
      }
    }
  }
}

// The pairs of pages of different numbers that have something in common.
std::vector<Node> shiftedNodes(const PLTitledSlots& base, const PLTitledSlots& theirs, const PLFriendPairs& friends,
                               const Diagonal& diagonal) {
  PairsInCommon inCommon;
  for (const PLFriendPairs::Pair& pair : friends.pairs()) {
    const auto page = static_cast<Page>(base.list.pageOf(pair.base));
    const auto other = static_cast<Page>(theirs.list.pageOf(pair.theirs));
    if (page != other) ++inCommon[{page, other}];
  }
  addTitles(inCommon, base, theirs);
  std::map<Page, std::int64_t> byShift;
  std::vector<Node> nodes;
  for (const auto& [pages, count] : inCommon) {
    const auto [page, other] = pages;
    nodes.push_back({page, other, count + (diagonal.haveSameTitle(page, other) ? 1 : 0)});
    byShift[nodes.back().shift()] += nodes.back().inCommon;
  }
  if (byShift.size() <= PLShiftedPages::CountedShifts) return nodes;
  std::vector<std::int64_t> counts;
  for (const auto& [shift, count] : byShift) counts.push_back(count);
  std::ranges::nth_element(counts, counts.begin() + PLShiftedPages::CountedShifts - 1, std::greater<>());
  const std::int64_t least = counts[PLShiftedPages::CountedShifts - 1];
  std::erase_if(nodes, [&](const Node& node) { return byShift[node.shift()] < least; });
  return nodes;
}

std::int64_t sumOf(const std::vector<Node>& nodes) {
  std::int64_t sum = 0;
  for (const Node& node : nodes) sum += node.inCommon;
  return sum;
}

// To match two pages of different numbers leaves the friends between them, on pages of the same number, unmatched.
// Where that costs as much as can be won in all, it is not worth a look.
void dropHopeless(std::vector<Node>& nodes, Diagonal& diagonal) {
  const std::int64_t limit = sumOf(nodes);
  if (limit <= FewInCommon) {
    std::erase_if(nodes, [&](const Node& node) { return diagonal.reaches(node.low(), node.high(), limit); });
    return;
  }
  const Page low = std::ranges::min(nodes, {}, &Node::low).low();
  const Page high = std::ranges::max(nodes, {}, &Node::high).high();
  std::vector<std::int64_t> sums{0};
  for (Page page = low; page <= high; ++page) sums.push_back(sums.back() + diagonal.inCommon(page));
  std::erase_if(nodes, [&](const Node& node) {
    return sums[toIndex(node.high() + 1 - low)] - sums[toIndex(node.low() - low)] >= limit;
  });
}

// Adds the pages of the same number among the others, and behind them so many that a matching comes back to them.
void addDiagonal(std::vector<Node>& nodes, Diagonal& diagonal) {
  const std::int64_t limit = sumOf(nodes);
  std::vector<std::pair<Page, Page>> ranges;
  for (const Node& node : nodes) ranges.emplace_back(node.low(), node.high());
  std::ranges::sort(ranges);
  Page next = ranges.front().first;
  const auto addUpTo = [&](Page end, std::int64_t enough) {
    for (std::int64_t sum = 0; next < std::min(end, diagonal.pageCount()) && sum <= enough; ++next) {
      const std::int64_t inCommon = diagonal.inCommon(next);
      if (inCommon > 0) nodes.push_back({next, next, inCommon});
      sum += inCommon;
    }
  };
  for (const auto& [low, high] : ranges) {
    addUpTo(low, limit);
    next = std::max(next, low);
    addUpTo(high + 1, std::numeric_limits<std::int64_t>::max());
  }
  addUpTo(diagonal.pageCount(), limit);
}

class ChainSearch {
 public:
  ChainSearch(const PLTitledSlots& base, const PLTitledSlots& theirs)
      : _baseCount(static_cast<Page>(base.list.pageCount())),
        _theirCount(static_cast<Page>(theirs.list.pageCount())),
        _baseOccupied(static_cast<Page>(base.list.occupiedPageCount())),
        _theirOccupied(static_cast<Page>(theirs.list.occupiedPageCount())) {}

  // The best chain behind `start`, which has nothing in common.
  std::vector<Node> best(Node start, std::vector<Node> nodes) {
    std::ranges::sort(nodes, {}, [](const Node& node) { return std::tuple(node.base, node.theirs); });
    _links = {{start, {}, 0}};
    enter(0);
    for (const Node& node : nodes) {
      Link link = bestTo(node);
      link.score.value += node.inCommon;
      link.score.inCommon += node.inCommon;
      _links.push_back(link);
      enter(_links.size() - 1);
    }
    std::vector<Node> chain;
    for (std::size_t at = bestTo({_baseCount, _theirCount, 0}).previous; at > 0; at = _links[at].previous) {
      chain.push_back(_links[at].node);
    }
    std::ranges::reverse(chain);
    return chain;
  }

 private:
  struct Link {
    Node node;
    Score score;           // of the best chain that ends here
    std::size_t previous;  // the link before
  };
  struct Shift {
    std::vector<Page> basePages;    // ascending
    std::vector<std::size_t> best;  // of the links up to there
  };

  void enter(std::size_t index) {
    Shift& shift = _shifts[_links[index].node.shift()];
    const bool isBest = shift.best.empty() || _links[index].score > _links[shift.best.back()].score;
    shift.basePages.push_back(_links[index].node.base);
    shift.best.push_back(isBest ? index : shift.best.back());
  }

  Link bestTo(const Node& node) const {
    std::optional<Link> best;
    for (const auto& [shift, links] : _shifts) {
      const Page before = std::min(node.base, node.theirs - shift);
      const auto end = std::ranges::lower_bound(links.basePages, before);
      if (end == links.basePages.begin()) continue;
      const std::size_t previous = links.best[static_cast<std::size_t>(end - links.basePages.begin()) - 1];
      const Score score = afterStep(_links[previous].score, shift, node);
      if (!best || score > best->score) best = Link{node, score, previous};
    }
    return *best;
  }

  Score afterStep(Score score, Page shift, const Node& node) const {
    const Page baseUnmatched = std::max<Page>(0, shift - node.shift());
    const Page theirUnmatched = std::max<Page>(0, node.shift() - shift);
    leaveUnmatched(score, node.base - baseUnmatched, node.base, _baseOccupied);
    leaveUnmatched(score, node.theirs - theirUnmatched, node.theirs, _theirOccupied);
    score.added -= occupiedCount(node.theirs - theirUnmatched, node.theirs, _theirOccupied);
    score.matched += beforeLastFriend(node.base - baseUnmatched, shift) - beforeLastFriend(node.base, node.shift());
    return score;
  }

  // How many pages of base up to `end` that are matched on that shift come before the last friend of each list, counted
  // from an origin of that shift.
  Page beforeLastFriend(Page end, Page shift) const { return std::min({end, _baseOccupied, _theirOccupied - shift}); }

  static Page occupiedCount(Page first, Page end, Page occupied) {
    return std::max<Page>(0, std::min(end, occupied) - first);
  }

  static void leaveUnmatched(Score& score, Page first, Page end, Page occupied) {
    score.value -= occupiedCount(first, end, occupied);
    score.unmatched -= end - first;
    score.height += (first + end - 1) * (end - first) / 2;
  }

  const Page _baseCount;
  const Page _theirCount;
  const Page _baseOccupied;
  const Page _theirOccupied;
  std::vector<Link> _links;
  std::map<Page, Shift> _shifts;
};

}  // namespace

const std::string* titleOfPage(const Array& titles, std::uint64_t page) {
  return page < titles.size() ? titles[page].string() : nullptr;
}

std::optional<PLShiftedPages> matchShiftedPages(const PLTitledSlots& base, const PLTitledSlots& theirs,
                                                const PLFriendPairs& friends) {
  Diagonal diagonal(base, theirs, friends);
  std::vector<Node> nodes = shiftedNodes(base, theirs, friends, diagonal);
  if (nodes.empty()) return std::nullopt;
  dropHopeless(nodes, diagonal);
  if (nodes.empty()) return std::nullopt;
  const Page first = std::ranges::min(nodes, {}, &Node::low).low();
  addDiagonal(nodes, diagonal);
  const std::vector<Node> chain = ChainSearch(base, theirs).best({first - 1, first - 1, 0}, std::move(nodes));
  if (std::ranges::none_of(chain, [](const Node& node) { return node.shift() != 0; })) return std::nullopt;
  PLShiftedPages shifted{toIndex(first), {}};
  Page basePage = first;
  Page theirPage = first;
  const auto matchUpTo = [&](Page baseEnd, Page theirEnd) {
    while (basePage < baseEnd && theirPage < theirEnd) shifted.pairs.emplace_back(basePage++, theirPage++);
    basePage = baseEnd;
    theirPage = theirEnd;
  };
  for (const Node& node : chain) {
    matchUpTo(node.base, node.theirs);
    matchUpTo(node.base + 1, node.theirs + 1);
  }
  matchUpTo(static_cast<Page>(base.list.pageCount()), static_cast<Page>(theirs.list.pageCount()));
  return shifted;
}

}  // namespace pellor
