#include "pellor/list/internal/StepPageMatching.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <utility>

#include "pellor/list/internal/FriendIdentity.h"

namespace pellor {
namespace {

using Fingerprints = std::vector<std::uint32_t>;

/// A page of the step that may be one of now; the better pair comes first.
struct Pair {
  std::size_t common = 0;  // friends
  bool hasSameTitle = false;
  std::size_t distance = 0;
  std::size_t number = 0;  // in the step
  std::size_t index = 0;   // in now

  auto order() const {
    return std::tuple(-static_cast<std::ptrdiff_t>(common), !hasSameTitle, distance, number, index);
  }
};

class PageFinder {
 public:
  PageFinder(const StepRecord& step, const ListDraft& now) : _step(step), _now(now) {}

  std::vector<std::optional<PageId>> find() {
    _matches.resize(_step.pages.size());
    _isTaken.resize(_now.pageCount());
    findByIds();
    if (std::ranges::any_of(numbers(), [&](std::size_t number) { return isWanted(number); })) findByContent();
    return std::move(_matches);
  }

 private:
  std::vector<std::size_t> numbers() const {
    std::vector<std::size_t> numbers(_step.pages.size());
    for (std::size_t number = 0; number < numbers.size(); ++number) numbers[number] = number;
    return numbers;
  }
  bool isWanted(std::size_t number) const { return !_matches[number] && _step.pages[number].to; }

  void findByIds() {
    for (const std::size_t number : numbers()) {
      const PageId id = _step.pages[number].id;
      const auto index = id.number == 0 ? std::nullopt : _now.indexOf(id);
      if (index) match(number, *index);
    }
  }

  void match(std::size_t number, std::size_t index) {
    _matches[number] = _now.pageId(index);
    _isTaken[index] = true;
  }

  void findByContent() {
    look();
    std::vector<Pair> pairs;
    for (const std::size_t number : numbers()) {
      if (!isWanted(number)) continue;
      for (const std::size_t index : candidates(number))
        if (const auto pair = pairOf(number, index)) pairs.push_back(*pair);
    }
    std::ranges::sort(pairs, {}, &Pair::order);
    for (const Pair& pair : pairs)
      if (!_matches[pair.number] && !_isTaken[pair.index]) match(pair.number, pair.index);
  }

  void look() {
    _fingerprints.resize(_now.pageCount());
    for (std::size_t index = 0; index < _now.pageCount(); ++index) {
      for (const FriendId id : _now.friendsOn(index)) {
        const auto person = _now.before().friendWith(id);
        if (!person) continue;
        _fingerprints[index].push_back(fingerprintOf(identityOf(*person)));
        _pagesWith[_fingerprints[index].back()].insert(index);
      }
      std::ranges::sort(_fingerprints[index]);
      if (!_now.title(index).empty()) _pagesTitled[_now.title(index)].push_back(index);
    }
  }

  std::set<std::size_t> candidates(std::size_t number) const {
    const PageRecord& page = _step.pages[number];
    std::set<std::size_t> indexes;
    if (*page.to < _now.pageCount()) indexes.insert(*page.to);
    for (const std::uint32_t fingerprint : page.fingerprints)
      if (const auto found = _pagesWith.find(fingerprint); found != _pagesWith.end())
        indexes.insert(found->second.begin(), found->second.end());
    if (const auto found = _pagesTitled.find(page.titleAfter); found != _pagesTitled.end())
      indexes.insert(found->second.begin(), found->second.end());
    return indexes;
  }

  // Absent where nothing speaks for it. A page that is made anew gets a higher id: one with a lower id was another page
  // already when the step was made.
  std::optional<Pair> pairOf(std::size_t number, std::size_t index) const {
    const PageRecord& page = _step.pages[number];
    if (_now.pageId(index) < page.id) return std::nullopt;
    Fingerprints common;
    std::ranges::set_intersection(page.fingerprints, _fingerprints[index], std::back_inserter(common));
    const bool hasSameTitle = page.titleAfter == _now.title(index);
    if (common.empty() && !(hasSameTitle && !page.titleAfter.empty()) && !mayBeByIndex(page, index))
      return std::nullopt;
    const std::size_t distance = std::max(*page.to, index) - std::min(*page.to, index);
    return Pair{common.size(), hasSameTitle, distance, number, index};
  }

  // What the step did to a page itself is not taken back on another one.
  bool mayBeByIndex(const PageRecord& page, std::size_t index) const {
    if (*page.to != index) return false;
    const bool wasEmpty = page.fingerprints.empty(), isEmpty = _fingerprints[index].empty();
    if (page.titleAfter != _now.title(index)) return wasEmpty && isEmpty;
    return wasEmpty || isEmpty || !StepPages::isTouched(page);
  }

  const StepRecord& _step;
  const ListDraft& _now;
  std::vector<std::optional<PageId>> _matches;
  std::vector<bool> _isTaken;                                           // by index in now
  std::vector<Fingerprints> _fingerprints;                              // by index in now, ascending
  std::unordered_map<std::uint32_t, std::set<std::size_t>> _pagesWith;  // indexes in now
  std::unordered_map<std::string_view, std::vector<std::size_t>> _pagesTitled;
};

}  // namespace

std::vector<std::optional<PageId>> pagesOfStep(const StepRecord& step, const ListDraft& now) {
  return PageFinder(step, now).find();
}

}  // namespace pellor
