#include "pellor/list/internal/PageMatching.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <unordered_map>

namespace pellor {
namespace {

using Matches = std::vector<std::optional<std::size_t>>;

/// Two pages with something in common, and how much.
struct Pair {
  std::size_t before;
  std::size_t after;
  std::uint64_t weight;
};

// Friends count more than all titles.
constexpr std::uint64_t TitleWeight = 1, FriendWeight = 1U << 20;

std::vector<Pair> pairsOf(const std::vector<MatchedPage>& before, const std::vector<MatchedPage>& after) {
  std::unordered_map<const void*, std::size_t> pageOfFriend;
  std::multimap<std::string, std::size_t> pagesOfTitle;
  for (std::size_t index = 0; index < before.size(); ++index) {
    for (const void* each : before[index].friends) pageOfFriend.emplace(each, index);
    if (!before[index].title.empty()) pagesOfTitle.emplace(before[index].title, index);
  }
  std::vector<Pair> pairs;
  for (std::size_t index = 0; index < after.size(); ++index) {
    std::map<std::size_t, std::uint64_t> weights;
    for (const void* each : after[index].friends)
      if (const auto page = pageOfFriend.find(each); page != pageOfFriend.end()) weights[page->second] += FriendWeight;
    const auto [first, last] = pagesOfTitle.equal_range(after[index].title);
    for (auto titled = first; titled != last; ++titled) weights[titled->second] += TitleWeight;
    // The higher page first, so that no chain takes two pairs of one page.
    for (auto weight = weights.rbegin(); weight != weights.rend(); ++weight)
      pairs.push_back({weight->first, index, weight->second});
  }
  return pairs;
}

/// The best chain that ends on a page or before it: largest values of all beginnings, as a Fenwick tree.
class BestChains {
 public:
  struct Chain {
    std::uint64_t weight = 0;
    std::optional<std::size_t> last;  ///< its last pair
  };

  explicit BestChains(std::size_t pages) : _best(pages + 1) {}
  /// Of those that end before that page.
  Chain before(std::size_t page) const {
    Chain best;
    for (std::size_t index = page; index > 0; index &= index - 1)
      if (_best[index].weight > best.weight) best = _best[index];
    return best;
  }
  void add(std::size_t page, const Chain& chain) {
    for (std::size_t index = page + 1; index < _best.size(); index += index & (~index + 1))
      if (chain.weight > _best[index].weight) _best[index] = chain;
  }

 private:
  std::vector<Chain> _best;
};

Matches heaviestMatching(const std::vector<MatchedPage>& before, const std::vector<MatchedPage>& after) {
  const std::vector<Pair> pairs = pairsOf(before, after);
  std::vector<std::optional<std::size_t>> previous(pairs.size());
  BestChains chains(before.size());
  for (std::size_t index = 0; index < pairs.size(); ++index) {
    const BestChains::Chain best = chains.before(pairs[index].before);
    previous[index] = best.last;
    chains.add(pairs[index].before, {best.weight + pairs[index].weight, index});
  }
  Matches matches(after.size());
  for (auto pair = chains.before(before.size()).last; pair; pair = previous[*pair])
    matches[pairs[*pair].after] = pairs[*pair].before;
  return matches;
}

// Pages between two that are matched: by their objects, and as they stand where there are as many.
void matchBetween(const std::vector<MatchedPage>& before, std::size_t beforeBegin, std::size_t beforeEnd,
                  const std::vector<MatchedPage>& after, std::size_t afterBegin, std::size_t afterEnd,
                  Matches& matches) {
  if (beforeEnd - beforeBegin == afterEnd - afterBegin) {
    for (std::size_t index = afterBegin; index < afterEnd; ++index) matches[index] = beforeBegin + (index - afterBegin);
    return;
  }
  std::unordered_map<const void*, std::size_t> pageOfObject;
  for (std::size_t index = beforeBegin; index < beforeEnd; ++index) pageOfObject.emplace(before[index].object, index);
  std::size_t next = beforeBegin;
  for (std::size_t index = afterBegin; index < afterEnd; ++index) {
    const auto page = pageOfObject.find(after[index].object);
    if (page == pageOfObject.end() || page->second < next) continue;
    matches[index] = page->second;
    next = page->second + 1;
  }
}

}  // namespace

Matches matchedPages(const std::vector<MatchedPage>& before, const std::vector<MatchedPage>& after) {
  Matches matches = heaviestMatching(before, after);
  std::size_t beforeBegin = 0, afterBegin = 0;
  for (std::size_t index = 0; index <= after.size(); ++index) {
    if (index < after.size() && !matches[index]) continue;
    const std::size_t beforeEnd = index < after.size() ? *matches[index] : before.size();
    matchBetween(before, beforeBegin, beforeEnd, after, afterBegin, index, matches);
    beforeBegin = beforeEnd + 1;
    afterBegin = index + 1;
  }
  return matches;
}

}  // namespace pellor
