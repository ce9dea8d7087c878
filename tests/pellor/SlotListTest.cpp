// The slot list and its versions, checked against plain vectors.
#include "Pellor/PLSlotList.h"

#include <algorithm>
#include <random>
#include <utility>

#include "Pellor/PLPerson.h"
#include "tests/pellor/OneProcess.h"

namespace pellor {
namespace {

std::vector<Slot> contentOf(const PLSlotSnapshot& snapshot) {
  std::vector<Slot> content;
  snapshot.forEach([&](const Slot& slot) { content.push_back(slot); });
  EXPECT_EQ(content.size(), snapshot.count());
  return content;
}

using SlotListTest = OneProcess;

void expectSame(const PLSlotList& list, const std::vector<Slot>& model) {
  ASSERT_EQ(list.count(), model.size());
  ASSERT_EQ(list.occupiedCount(), model.size() - static_cast<std::size_t>(std::ranges::count(model, EmptySlot)));
  const auto firstEmpty = static_cast<std::uint64_t>(std::ranges::find(model, EmptySlot) - model.begin());
  ASSERT_EQ(list.firstEmptyIndex().value_or(model.size()), firstEmpty);
  for (std::uint64_t index = 0; index < model.size(); ++index) ASSERT_EQ(list.at(index), model[index]);
}

std::vector<std::uint64_t> differingLeaves(const PLSlotSnapshot& later, const PLSlotSnapshot& earlier) {
  std::vector<std::uint64_t> leaves;
  later.forEachDifferingLeaf(earlier, [&](std::uint64_t leaf) { leaves.push_back(leaf); });
  return leaves;
}

// The leaves that are not named are there in both, with the same slots.
void expectDifference(const PLSlotSnapshot& later, const PLSlotSnapshot& earlier) {
  const auto differing = differingLeaves(later, earlier);
  ASSERT_TRUE(std::ranges::is_sorted(differing));
  for (std::uint64_t leaf = 0; leaf < later.leafCount(); ++leaf) {
    if (std::ranges::binary_search(differing, leaf)) continue;
    ASSERT_LT(leaf, earlier.leafCount());
    ASSERT_TRUE(std::ranges::equal(later.leaf(leaf), earlier.leaf(leaf)));
  }
}

TEST_F(SlotListTest, RandomEditsGiveWhatAVectorGivesAndVersionsStay) {
  std::mt19937 random(7);
  std::vector<std::shared_ptr<PLPerson>> people{EmptySlot, EmptySlot};
  while (people.size() < 22) people.push_back(PLPerson::init());
  PLSlotList list;
  std::vector<Slot> model;
  std::vector<std::pair<PLSlotSnapshot, std::vector<Slot>>> versions;
  for (int edit = 0; edit < 4000; ++edit) {
    const Slot slot = people[random() % people.size()];
    const std::uint64_t index = model.empty() ? 0 : random() % model.size();
    const std::uint64_t version = list.version();
    const auto before = model;
    switch (random() % 8) {
      case 0: {
        const std::uint64_t count = random() % 40;
        list.remove(index, count);
        const auto first = model.begin() + static_cast<std::ptrdiff_t>(index);
        model.erase(first, first + static_cast<std::ptrdiff_t>(std::min<std::uint64_t>(count, model.size() - index)));
        break;
      }
      case 1:
      case 2:
      case 3:
        for (std::uint64_t count = random() % 60; count > 0; --count) {
          list.append(slot);
          model.push_back(slot);
        }
        break;
      default:
        if (!model.empty()) list.set(index, model[index] = slot);
    }
    EXPECT_EQ(list.version() > version, model != before);
    if (edit % 16 == 0) {
      expectSame(list, model);
      const auto& sought = people[2 + random() % 20];
      const auto found = list.indexOf(sought.get(), index);
      const auto expected =
          std::find(model.begin() + static_cast<std::ptrdiff_t>(std::min(index, model.size())), model.end(), sought);
      EXPECT_EQ(found.value_or(model.size()), static_cast<std::uint64_t>(expected - model.begin()));
      versions.emplace_back(list.snapshot(), model);
    }
    if (edit % 500 == 499) list.clear(), model.clear();
  }
  for (const auto& [snapshot, content] : versions) EXPECT_EQ(contentOf(snapshot), content);
  for (std::size_t later = 1; later < versions.size(); ++later) {
    expectDifference(versions[later].first, versions[later - 1].first);
  }
}

}  // namespace
}  // namespace pellor
