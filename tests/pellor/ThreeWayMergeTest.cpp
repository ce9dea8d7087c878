// The three-way merge: triples made by edits that are remembered, and judged by them.
#include "pellor/friends/internal/PLThreeWayMerge.h"

#include <gtest/gtest.h>

#include "tests/pellor/MergeJudge.h"
#include "tests/pellor/MergeTriples.h"
#include "tests/pellor/SeededTest.h"

namespace pellor::merging {
namespace {

// PELLOR_TRIPLES sets how many there are.
class TripleTest : public SeededTest {
 protected:
  void forEachTriple(const std::function<void(const Triple&)>& judge) {
    forEachSeed(countOf("PELLOR_TRIPLES", 20'000, 1'000), [&](std::uint64_t seed) {
      const Triple triple = makeTriple(seed);
      SCOPED_TRACE(triple.description());
      judge(triple);
    });
  }
};

// Without those that are the same objects in two lists.
void unshare(PLMergeInput& input) {
  input.theirs = copyOf(input.theirs);
  input.ours = copyOf(input.ours);
}

std::string describe(const PLMergeResult& result, std::size_t groupSize) {
  std::string text = merging::describe(result.list, groupSize);
  for (const Value& title : result.titles) text += title.description() + ", ";
  return text;
}

// Friends in their written form, titles without those that say nothing.
std::pair<Array, Array> meaningOf(const PLMergeResult& result) {
  std::pair<Array, Array> meaning;
  for (const Value& element : result.list.elements()) {
    const Dictionary& form = *element.dictionary();
    meaning.first.emplace_back(form.empty() ? form : writtenForm(form));
  }
  meaning.second = result.titles;
  while (!meaning.second.empty() && meaning.second.back() == Value("")) meaning.second.pop_back();
  return meaning;
}

void expectSame(const PLMergeResult& one, const PLMergeResult& other, std::size_t groupSize, const char* what) {
  EXPECT_TRUE(meaningOf(one) == meaningOf(other)) << what << "\n"
                                                  << describe(one, groupSize) << "\n"
                                                  << describe(other, groupSize);
}

void judgeResult(const Triple& triple, PLMergeInput input) {
  const PLMergeResult result = threeWayMerge(input);
  std::string faults;
  for (const std::string& fault : Judge(triple, input, result).faults()) faults += fault + "\n";
  EXPECT_EQ(faults, "") << "result " << describe(result, triple.groupSize);
  if (!triple.ours.removedAutomatically.empty()) return;
  unshare(input);
  expectSame(threeWayMerge(input), result, triple.groupSize, "not the same without shared chunks");
}

void judgeSidesThatAreBase(const Triple& triple) {
  PLMergeInput ours = inputOf(triple, triple.base, triple.ours);
  PLMergeResult expected;
  expected.list = ours.ours;
  expected.titles = titlesOf(triple.ours);
  expectSame(threeWayMerge(ours), expected, triple.groupSize, "theirs is base");
  if (triple.ours.removedAutomatically.empty()) {
    unshare(ours);
    expectSame(threeWayMerge(ours), expected, triple.groupSize, "theirs is equal to base");
  }
  PLMergeInput theirs = inputOf(triple, triple.theirs, triple.base);
  if (theirs.theirs.chunks() == theirs.base.chunks()) return;
  EXPECT_EQ(threeWayMerge(theirs).list.chunks(), theirs.theirs.chunks()) << "ours is base";
  unshare(theirs);
  const PLMergeResult result = threeWayMerge(theirs);
  EXPECT_EQ(result.list.chunks(), theirs.theirs.chunks()) << "ours is equal to base";
  EXPECT_EQ(result.titles, theirs.theirTitles);
  EXPECT_FALSE(result.differsInLayout || result.differsInTitles || result.needsRefresh);
}

// What was merged is ours now, and theirs is what it was made of; then it is stored.
void judgeSecondMerge(const Triple& triple) {
  const PLMergeInput first = inputOf(triple, triple.theirs, triple.ours);
  const PLMergeResult result = threeWayMerge(first);
  PLMergeInput again = first;
  again.base = first.theirs;
  again.baseTitles = first.theirTitles;
  again.ours = result.list;
  again.ourFriends = result.theirFriends;
  again.ourPages = result.theirPages;
  again.ourPageCount =
      std::min<std::uint64_t>(triple.maxGroupCount, (result.list.size() + triple.groupSize - 1) / triple.groupSize);
  if (again.ourPages.size() > again.ourPageCount) again.ourPages.resize(again.ourPageCount);
  again.ourTitles.clear();
  for (std::uint64_t page = 0; page < result.titles.size(); ++page) {
    again.ourTitles.emplace(page, *result.titles[page].string());
  }
  again.ourAutomaticRemovals.clear();
  expectSame(threeWayMerge(again), result, triple.groupSize, "merged with theirs again");
  again.theirs = copyOf(first.theirs);
  expectSame(threeWayMerge(again), result, triple.groupSize, "merged with equal theirs again");
  // Where pages went or came, it cannot be told of empty ones which they were.
  if (!result.theirPages.empty() || !first.ourPages.empty()) return;
  again.theirs = result.list;
  again.theirTitles = result.titles;
  expectSame(threeWayMerge(again), result, triple.groupSize, "merged with itself");
}

void judgeOrder(const Triple& triple) {
  if (!areIndependent(triple)) return;
  Triple other = triple;
  std::swap(other.theirs, other.ours);
  if (!areToldApart(other)) return;
  const PLMergeResult one = threeWayMerge(inputOf(triple, triple.theirs, triple.ours));
  const PLMergeResult opposite = threeWayMerge(inputOf(other, other.theirs, other.ours));
  expectSame(one, opposite, triple.groupSize, "the other writer first");
}

TEST_P(TripleTest, WhatEachSideDidHolds) {
  std::uint64_t count = 0;
  std::uint64_t judged = 0;
  forEachTriple([&](const Triple& triple) {
    ++count;
    judgeSidesThatAreBase(triple);
    judgeSecondMerge(triple);
    if (!areToldApart(triple)) return;
    ++judged;
    judgeResult(triple, inputOf(triple, triple.theirs, triple.ours));
    if (triple.alike.empty() && triple.ours.removedAutomatically.empty()) judgeOrder(triple);
  });
  // Of which nobody could tell what is to come out, there may be a few.
  EXPECT_TRUE(count < 1000 || judged * 10 >= count * 9) << judged << " of " << count;
}

INSTANTIATE_TEST_SUITE_P(Seeds, TripleTest, ::testing::Range(std::uint64_t{0}, SeededTest::PartCount));

}  // namespace
}  // namespace pellor::merging
