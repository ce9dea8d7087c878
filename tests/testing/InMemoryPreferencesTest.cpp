#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/testing/SimulatedProcess.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class InMemoryPreferencesTest : public ::testing::Test {
 protected:
  SimulatedWorld world;
  InMemoryPreferences& stored = world.preferences();
  std::shared_ptr<SimulatedScheduler> scheduler = std::make_shared<SimulatedScheduler>(1);
  SimulatedProcess process{world, scheduler};
  SimulatedProcess other{world, scheduler};
  PreferencesStore& store = *process.platform.preferences;
};

TEST_F(InMemoryPreferencesTest, FaultsHitWhatTheyAreSetForAndWritesAreRecorded) {
  stored.failWrites(2);
  EXPECT_TRUE(store.synchronize("d")) << "nothing to write is no write";
  store.setValue("titles", "new", "d");
  store.setValue("list", "new", "d");
  EXPECT_FALSE(store.synchronize("d"));
  EXPECT_FALSE(store.synchronize("d"));
  stored.makeUnreadable("d");
  EXPECT_FALSE(store.synchronize("d"));
  EXPECT_TRUE(store.synchronize("e")) << "another domain";
  EXPECT_THAT(stored.writes(), IsEmpty());
  EXPECT_EQ(stored.failedWriteCount(), 3u);

  stored.makeReadable();
  EXPECT_TRUE(store.synchronize("d")) << "failed as often as asked for";
  ASSERT_EQ(stored.writeCount(), 1u);
  EXPECT_EQ(stored.writes()[0].process, &process.process);
  EXPECT_EQ(stored.writes()[0].domain, "d");
  EXPECT_THAT(stored.writes()[0].keys, ElementsAre("list", "titles"));
}

TEST_F(InMemoryPreferencesTest, ADamagedValueIsPutAsideAndItsLastGoodCopyGiven) {
  store.setValue("list", Array{Value("good")}, "d");
  EXPECT_TRUE(store.synchronize("d"));
  EXPECT_FALSE(store.putAside("missing", "d").kept);
  EXPECT_THAT(stored.putAsideCopies(), IsEmpty());

  stored.damage("list", Data{0x9F}, "d");
  stored.setPutAsideFails(true);
  EXPECT_FALSE(store.putAside("list", "d").kept);
  stored.setPutAsideFails(false);
  const PutAside putAside = store.putAside("list", "d");
  EXPECT_TRUE(putAside.kept);
  EXPECT_EQ(putAside.lastGood, Value(Array{Value("good")}));
  ASSERT_EQ(stored.putAsideCopies().size(), 1u);
  EXPECT_EQ(stored.putAsideCopies()[0].value, Value(Data{0x9F}));
  EXPECT_EQ(stored.putAsideCopies()[0].date, scheduler->now());
  EXPECT_EQ(stored.value("list", "d"), Value(Data{0x9F})) << "stays until it is written over";
}

TEST_F(InMemoryPreferencesTest, AKilledProcessLosesWhatItHadNotSynchronised) {
  {
    SimulatedProcess killed{world, scheduler};
    killed.platform.preferences->setValue("list", "lost", "d");
    killed.process.abandon();
  }
  EXPECT_TRUE(store.synchronize("d"));
  EXPECT_FALSE(store.copyValue("list", "d").value().has_value());
}

TEST_F(InMemoryPreferencesTest, SynchronizeIsOneStepForReadersOnOtherThreads) {
  constexpr std::int64_t last = 2'000;
  std::atomic<bool> isDone = false;
  const std::jthread writer([&] {
    for (std::int64_t i = 1; i <= last; ++i) {
      store.setValue("a", i, "d");
      store.setValue("b", i, "d");
      store.synchronize("d");
    }
    isDone = true;
  });
  PreferencesStore& reader = *other.platform.preferences;
  for (bool isLast = false; !isLast;) {
    isLast = isDone;
    reader.synchronize("d");
    ASSERT_EQ(reader.integerValue("a", "d").value(), reader.integerValue("b", "d").value());
  }
  EXPECT_EQ(reader.integerValue("a", "d").value(), last);
}

}  // namespace
}  // namespace pellor
