// Which page is which, against all matchings there are.
#include "pellor/friends/internal/PLMergePages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "pellor/friends/detail/PLPersonForm.h"
#include "tests/pellor/SeededTest.h"

namespace pellor {
namespace {

using Matching = std::vector<std::optional<std::uint64_t>>;  // pages of theirs, by the page of base

struct Page {
  std::vector<int> friends;  // by position; 0 for nobody
  std::string title;

  int inCommon(const Page& other) const {
    const auto isThere = [&](int each) { return each != 0 && std::ranges::count(other.friends, each) > 0; };
    const bool hasTitle = !title.empty() && title == other.title;
    return static_cast<int>(std::ranges::count_if(friends, isThere)) + (hasTitle ? 1 : 0);
  }
  bool isOccupied() const {
    return std::ranges::any_of(friends, [](int each) { return each != 0; });
  }
};

using Pages = std::vector<Page>;

LongArray listOf(const Pages& pages) {
  std::vector<Value> elements;
  for (const Page& page : pages) {
    for (const int each : page.friends) {
      Dictionary form;
      if (each != 0) form.emplace(PLPersonRecordGUIDKey, Value(std::to_string(each)));
      elements.emplace_back(std::move(form));
    }
  }
  return LongArray(elements);
}

Array titlesOf(const Pages& pages) {
  Array titles;
  for (const Page& page : pages) titles.emplace_back(page.title);
  return titles;
}

// What tells of two matchings which one it is, the first difference first.
struct Worth {
  int value = 0;     // friends and titles in common, less the pages without counterpart up to the last friend
  int both = 0;      // pages with a counterpart, both of them before the last friend of their list
  int added = 0;     // pages of theirs without one before its last friend, counted downwards
  int inCommon = 0;  // friends and titles
  int pages = 0;     // with a counterpart
  int lowness = 0;   // of their numbers
  friend auto operator<=>(const Worth&, const Worth&) = default;
  friend std::ostream& operator<<(std::ostream& out, const Worth& worth) {
    return out << worth.value << ", " << worth.both << ", " << worth.added << ", " << worth.inCommon << ", "
               << worth.pages << ", " << worth.lowness;
  }
};

std::size_t occupiedCount(const Pages& pages) {
  std::size_t count = pages.size();
  while (count > 0 && !pages[count - 1].isOccupied()) --count;
  return count;
}

int unmatchedCount(const Pages& pages, const std::vector<bool>& isMatched) {
  const auto end = isMatched.begin() + static_cast<std::ptrdiff_t>(occupiedCount(pages));
  return static_cast<int>(std::count(isMatched.begin(), end, false));
}

Worth worthOf(const Pages& base, const Pages& theirs, const Matching& matching) {
  Worth worth;
  std::vector<bool> isMatched(base.size()), isTheirsMatched(theirs.size());
  for (std::size_t page = 0; page < base.size(); ++page) {
    if (!matching[page]) continue;
    isMatched[page] = isTheirsMatched[*matching[page]] = true;
    worth.inCommon += base[page].inCommon(theirs[*matching[page]]);
    worth.lowness -= static_cast<int>(page + *matching[page]);
    if (page < occupiedCount(base) && *matching[page] < occupiedCount(theirs)) ++worth.both;
    ++worth.pages;
  }
  worth.added = -unmatchedCount(theirs, isTheirsMatched);
  worth.value = worth.inCommon - unmatchedCount(base, isMatched) + worth.added;
  return worth;
}

// Of all that keep the order and match the pages of base from `page` on with those of theirs from `next` on.
Worth bestOfAll(const Pages& base, const Pages& theirs, Matching& matching, std::size_t page, std::uint64_t next) {
  if (page == base.size()) return worthOf(base, theirs, matching);
  matching[page] = std::nullopt;
  Worth best = bestOfAll(base, theirs, matching, page + 1, next);
  for (std::uint64_t other = next; other < theirs.size(); ++other) {
    matching[page] = other;
    best = std::max(best, bestOfAll(base, theirs, matching, page + 1, other + 1));
  }
  return best;
}

Matching matched(const Pages& base, const Pages& theirs, std::size_t groupSize) {
  const LongArray baseList = listOf(base), theirList = listOf(theirs);
  const PLMergeSlots baseSlots(baseList, groupSize), theirSlots(theirList, groupSize);
  const auto itself = [](std::uint64_t slot) { return std::optional(slot); };
  const PLFriendPairs friends(
      baseSlots, theirSlots, [](const Dictionary& form) { return form; }, itself);
  const PLPageMatch match(baseSlots, titlesOf(base), theirSlots, titlesOf(theirs), friends);
  Matching matching;
  for (std::uint64_t page = 0; page < base.size(); ++page) matching.push_back(match.theirs(page));
  return matching;
}

class MergePagesTest : public SeededTest {
 protected:
  std::size_t below(std::size_t count) { return _random() % count; }

  Page newPage() {
    Page page{{}, below(2) == 0 ? "" : "T" + std::to_string(below(4))};
    for (std::size_t position = 0; position < groupSize; ++position) {
      page.friends.push_back(below(3) == 0 ? 0 : ++_lastFriend);
    }
    return page;
  }

  Pages newPages() {
    Pages pages(1 + below(6));
    std::ranges::generate(pages, [this] { return newPage(); });
    return pages;
  }

  // Pages go, come and change places with others; friends move.
  Pages edited(Pages pages) {
    for (std::size_t count = below(4); count > 0 && !pages.empty(); --count) {
      Page& page = pages[below(pages.size())];
      Page& other = pages[below(pages.size())];
      switch (below(4)) {
        case 0:
          pages.erase(pages.begin() + (&page - pages.data()));
          break;
        case 1:
          pages.insert(pages.begin() + (&page - pages.data()), newPage());
          break;
        case 2:
          std::swap(page, other);
          break;
        default:
          std::swap(page.friends[below(groupSize)], other.friends[below(groupSize)]);
      }
    }
    return pages;
  }

  void begin(std::uint64_t seed) {
    _random.seed(seed);
    _lastFriend = 0;
    groupSize = 1 + below(4);
  }

  std::size_t groupSize = 1;

 private:
  std::mt19937_64 _random;
  int _lastFriend = 0;
};

std::string describe(const Pages& pages) {
  std::string text;
  for (const Page& page : pages) {
    text += page.title + "[";
    for (const int each : page.friends) text += std::to_string(each) + " ";
    text += "] ";
  }
  return text;
}

TEST_P(MergePagesTest, NoOtherMatchingIsWorthMore) {
  forEachSeed(seedCount(10'000, 1'000), [this](std::uint64_t seed) {
    begin(seed);
    const Pages base = newPages();
    const Pages theirs = edited(base);
    Matching tried(base.size());
    const Worth best = bestOfAll(base, theirs, tried, 0, 0);
    EXPECT_EQ(worthOf(base, theirs, matched(base, theirs, groupSize)), best) << describe(base) << "\n"
                                                                             << describe(theirs);
  });
}

// More of them than can be looked at one by one.
TEST(MergeLongPagesTest, ARemovedPageIsFoundThoughFriendsWentOverManyDistances) {
  constexpr std::uint64_t pageCount = 300, removed = 10, wanderers = 100;
  Pages base;
  for (std::uint64_t page = 0; page < pageCount; ++page) {
    const int first = static_cast<int>(page) * 3;
    base.push_back({{first + 1, first + 2, first + 3, 0}, ""});
  }
  Pages theirs = base;
  for (std::uint64_t page = 0; page < wanderers; ++page) {
    std::swap(theirs[20 + page].friends[2], theirs[22 + 2 * page].friends[3]);
  }
  theirs.erase(theirs.begin() + removed);
  const Matching matching = matched(base, theirs, 4);
  for (std::uint64_t page = 0; page < pageCount; ++page) {
    const auto expected = page == removed ? std::nullopt : std::optional(page < removed ? page : page - 1);
    EXPECT_EQ(matching[page], expected) << page;
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, MergePagesTest, ::testing::Range(std::uint64_t{0}, SeededTest::PartCount));

}  // namespace
}  // namespace pellor
