// What must not grow with the list: how many elements a load looks at and a save makes, and how often somebody is told.
#include <ranges>

#include "pellor/friends/PLFriendGroup.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/Process.h"
#include "pellor/testing/LogCollector.h"
#include "tests/pellor/ManagerWorld.h"
#include "tests/pellor/OneProcess.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;

class CountingService : public SimulatedIdentityService {
 public:
  using SimulatedIdentityService::SimulatedIdentityService;
  std::optional<std::string> comparableNumber(std::string_view number) override {
    ++count;
    return SimulatedIdentityService::comparableNumber(number);
  }
  std::size_t count = 0;
};

/// A chunk of a store's own.
class CountingChunk : public ArrayChunk {
 public:
  CountingChunk(std::shared_ptr<const ArrayChunk> chunk, std::size_t& shown)
      : _chunk(std::move(chunk)), _shown(shown) {}
  std::size_t size() const override { return _chunk->size(); }
  Value at(std::size_t index) const override { return _chunk->at(index); }
  bool view(std::size_t index, DictionaryView& view) const override {
    ++_shown;
    return _chunk->view(index, view);
  }

 private:
  const std::shared_ptr<const ArrayChunk> _chunk;
  std::size_t& _shown;
};

class ManagerCountsTest : public ManagerTest {
 protected:
  static constexpr std::size_t FriendCount = 2'400, GroupSize = 12, Chunk = LongArray::ChunkSize;

  ManagerCountsTest() {
    setGroups(FriendCount / GroupSize, GroupSize);
    setSetting(PLRefreshAgainstContactsOnInitEnabledKey, false);
    Array list;
    for (std::size_t index = 0; index < FriendCount; ++index) {
      list.emplace_back(storedForm("Friend" + std::to_string(index)));
      setEntry(list.back(), "AllValues", Array{"+" + std::to_string(491510000000 + index)});
    }
    store(list);
    auto platform = world.makePlatform(process);
    platform.reachability = service;
    installPlatform(process, platform);
  }

  static void setEntry(Value& element, const std::string& key, Value value) {
    Dictionary form = *element.dictionary();
    form.insert_or_assign(key, std::move(value));
    element = std::move(form);
  }
  LongArray stored() { return *storedValue(PLFriendListKey)->longArray(); }
  /// Stores a list as another process would.
  void store(const Array& list) {
    const auto before = storedValue(PLFriendListKey);
    auto chunks = storedAfter(before, list).chunks();
    for (std::size_t index = 0; index < chunks.size(); ++index) {
      if (!before || chunks[index] != stored().chunks()[index]) {
        chunks[index] = std::make_shared<CountingChunk>(chunks[index], shownCount);
      }
    }
    world.preferences().setValue(PLFriendListKey, LongArray(std::move(chunks)), TapnoteDomain);
  }

  /// What it costs until all is at rest: elements shown, canonical forms asked for, notifications, writes; and in what
  /// was written, chunks that are others than before and elements that were made for them.
  std::vector<std::size_t> costOf(const auto& work) {
    const auto counts = [this] {
      return std::vector{shownCount, service->count, changes.count(), std::size_t{world.preferences().writeCount()}};
    };
    auto cost = counts();
    const LongArray before = stored();
    {
      const Process::Scope scope(process);
      work();
    }
    rest();
    std::ranges::transform(counts(), cost, cost.begin(), std::minus<>());
    cost.resize(6);
    const LongArray after = stored();
    for (std::size_t index = 0; cost[3] != 0 && index < before.chunks().size(); ++index) {
      const auto& written = after.chunks()[index];
      if (written == before.chunks()[index]) continue;
      ++cost[4];
      for (std::size_t place = 0; place < written->size(); ++place) cost[5] += written->origin(place).chunk == nullptr;
    }
    return cost;
  }
  std::vector<Slot> slots() {
    std::vector<Slot> slots;
    for (const auto& group : manager->friendGroups()) std::ranges::copy(group->friends(), std::back_inserter(slots));
    return slots;
  }

  std::size_t shownCount = 0;
  Process process{scheduler, std::make_shared<LogCollector>()};
  const std::shared_ptr<CountingService> service =
      std::make_shared<CountingService>(std::make_shared<SimulatedPhoneNumbers>());
  std::shared_ptr<PLFriendsManager> manager;
  const Posts changes{process, PLFriendsManagerChangedNotification};
};

TEST_F(ManagerCountsTest, WhatDidNotChangeIsNeitherReadNorWritten) {
  const auto nothing = ElementsAre(0, 0, 0, 0, 0, 0);
  const auto reload = [&] { manager->reloadFriendList(); };
  EXPECT_THAT(costOf([&] { manager = PLFriendsManager::initWithDomain(std::nullopt); }),
              ElementsAre(FriendCount, FriendCount, 1, 0, 0, 0));
  EXPECT_THAT(costOf(reload), nothing);

  Array list = stored().elements();
  setEntry(list[1'200], "ReplyAs", "home");
  store(list);
  EXPECT_THAT(costOf([&] { postListChanged(); }), ElementsAre(Chunk, 0, 1, 0, 0, 0));
  EXPECT_EQ(slots()[1'200]->preferredReplyAs(), "home");
  EXPECT_THAT(costOf(reload), ElementsAre(Chunk, 0, 0, 0, 0, 0)) << "a friend that a load changed is looked at again";
  EXPECT_THAT(costOf(reload), nothing);

  EXPECT_THAT(costOf([&] { slots()[1'000]->setPreferredReplyAs("work"); }), ElementsAre(0, 0, 1, 1, 1, 1));
  EXPECT_EQ(stored().at(1'000), Value(slots()[1'000]->dictionaryRepresentation()));
  EXPECT_THAT(costOf(reload), ElementsAre(Chunk - 1, 0, 0, 0, 0, 0)) << "so is what this process wrote itself";
  EXPECT_THAT(costOf(reload), nothing);

  EXPECT_THAT(costOf([&] {
                for (const auto& person : slots() | std::views::take(Chunk + 1)) {
                  person->setPreferredReplyAs("home");
                  manager->save();
                }
              }),
              ElementsAre(0, 0, 1, 1, 2, Chunk + 1));

  const auto before = slots();
  list = stored().elements();
  std::ranges::reverse(list);
  store(list);
  EXPECT_THAT(costOf([&] { postListChanged(); }), ElementsAre(FriendCount, 0, 1, 0, 0, 0));
  EXPECT_TRUE(std::ranges::equal(slots(), std::views::reverse(before)));
  EXPECT_THAT(costOf(reload), nothing);
}

}  // namespace
}  // namespace pellor
