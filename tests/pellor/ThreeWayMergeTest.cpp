// The three-way merge: triples made by edits that are remembered, and judged by them.
#include "pellor/friends/internal/PLThreeWayMerge.h"

#include <gtest/gtest.h>

#include <algorithm>

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
  for (const std::string& fault : faultsOf(triple, input, result)) faults += fault + "\n";
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

// --- Which edits of two sides conflict ---

// What an edit concerns: a field of a friend, a place, the title or the removal of a page.
struct Concerns {
  std::set<std::pair<Tag, std::string>> fields;
  std::set<Tag> removed;
  std::set<Place> places;
  std::set<PageName> titles;
  std::set<PageName> removedPages;
  std::set<PageName> pages;  // that anything is done on
};

// What is changed together, by its name.
std::map<std::string, std::vector<std::optional<Value>>> fieldsOf(const Friend& person) {
  std::map<std::string, std::vector<std::optional<Value>>> fields{{"block", blockOf(person.form)}};
  for (const std::string_view key : OwnFields) fields[std::string(key)] = {at(person.form, key)};
  for (const auto& [key, value] : metadataOf(person.form)) fields["metadata " + key] = {value};
  return fields;
}

std::set<std::string> changedFields(const Friend& before, const Friend& after) {
  std::set<std::string> changed;
  auto one = fieldsOf(before), other = fieldsOf(after);
  for (const auto* fields : {&one, &other}) {
    for (const auto& [name, value] : std::map(*fields)) {
      if (one[name] != other[name]) changed.insert(name);
    }
  }
  return changed;
}

Concerns concernsOf(const Triple& triple, const Side& side) {
  Concerns concerns;
  for (const Tag tag : triple.base.tags()) {
    const Place before = *triple.base.placeOf(tag);
    const auto after = side.placeOf(tag);
    auto changed = after ? changedFields(*triple.base.find(tag), *side.find(tag)) : std::set<std::string>();
    if (!after) concerns.removed.insert(tag);
    if (after && *after != before) changed.insert("place");
    for (const std::string& field : changed) concerns.fields.emplace(tag, field);
    if (!after || !changed.empty()) concerns.pages.insert(before.page);
  }
  for (const Tag tag : side.tags()) {
    const Place after = *side.placeOf(tag);
    if (triple.base.placeOf(tag) == after) continue;
    concerns.places.insert(after);
    concerns.pages.insert(after.page);
  }
  concerns.titles = side.titled;
  concerns.pages.insert(side.titled.begin(), side.titled.end());
  for (const Page& page : triple.base.pages) {
    if (!side.page(page.name)) concerns.removedPages.insert(page.name);
  }
  return concerns;
}

template <class Element>
bool meet(const std::set<Element>& one, const std::set<Element>& other) {
  return std::ranges::any_of(one, [&](const Element& element) { return other.contains(element); });
}

bool concernsRemoved(const Concerns& one, const Concerns& other) {
  return meet(one.removed, other.removed) ||
         std::ranges::any_of(other.fields, [&](const auto& field) { return one.removed.contains(field.first); });
}

bool insertsPages(const Side& side) {
  return std::ranges::any_of(side.pages, [](const Page& page) { return page.name < 0; });
}

// Whether no edit of one side concerns what an edit of the other does.
bool areIndependent(const Triple& triple) {
  const Concerns theirs = concernsOf(triple, triple.theirs);
  const Concerns ours = concernsOf(triple, triple.ours);
  if (meet(theirs.fields, ours.fields) || meet(theirs.places, ours.places) || meet(theirs.titles, ours.titles)) {
    return false;
  }
  if (concernsRemoved(theirs, ours) || concernsRemoved(ours, theirs)) return false;
  if (meet(theirs.removedPages, ours.pages) || meet(ours.removedPages, theirs.pages)) return false;
  if (meet(triple.theirs.added, triple.ours.added)) return false;
  // Where both put pages between the same ones, theirs come first.
  if (insertsPages(triple.theirs) && insertsPages(triple.ours)) return false;
  // The last room.
  const std::size_t base = triple.base.pages.size();
  const auto grown = [&](const Side& side) {
    return static_cast<std::size_t>(std::ranges::count_if(
        side.pages, [&](const Page& page) { return page.name < 0 || page.name >= static_cast<PageName>(base); }));
  };
  return base + grown(triple.theirs) + grown(triple.ours) <= triple.maxGroupCount;
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
