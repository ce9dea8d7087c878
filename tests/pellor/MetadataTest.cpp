#include <atomic>
#include <thread>
#include <utility>

#include "pellor/friends/PLPerson.h"
#include "tests/pellor/OneProcess.h"

namespace pellor {
namespace {

using testing::ElementsAre;
using testing::Pair;

using Metadata = OneProcess;

// A list with a value that no store can hold would never be saved again.
TEST_F(Metadata, WhatCannotBeStoredIsRefused) {
  const auto nested = [](std::size_t depth) {
    Value value = 1;
    for (; depth > 0; --depth) value = depth % 2 == 0 ? Value(Array{value}) : Value(Dictionary{{"k", value}});
    return value;
  };
  const std::pair<Value, bool> rows[] = {
      {nested(124), true},  // as deep as can be stored
      {nested(125), false},
      {nested(2000), false},
      {std::string(4'000'000, 'x'), true},
      {std::string(4'200'000, 'x'), false},
      {Data(4'200'000), false},
      {Array(300'000, Value(1)), false},
  };
  for (std::size_t row = 0; row < std::size(rows); ++row) {
    const auto person = PLPerson::init();
    person->setMetadataValueForKey(rows[row].first, "given");
    settle();
    EXPECT_EQ(person->takeNeedsSave(), rows[row].second) << row;
    EXPECT_EQ(person->metadata().size(), rows[row].second ? 1U : 0U) << row;
    person->setMetadataValueForKey(1, "other");
    settle();
    EXPECT_EQ(person->metadataValueForKey("other"), Value(1)) << row;
  }
}

TEST_F(Metadata, AStoredFormReplacesItWithoutAsking) {
  Posts posts(process, PLPersonValuesChangedNotification);
  const auto person = PLPerson::initWithDictionaryRepresentationAddressBook(
      {{"AllValues", Array{}}, {"Metadata", Dictionary{{"a", 1}, {"b", 2}}}}, nullptr);
  EXPECT_EQ(person->metadata().size(), 2U) << "also of a person that was just made";
  person->setMetadataValueForKey(3, "c");
  EXPECT_TRUE(person->updateFromDictionaryRepresentation({{"Metadata", Dictionary{{"b", true}}}}));
  EXPECT_THAT(person->metadata(), ElementsAre(Pair("b", Value(true)))) << "after the write that was queued before";
  EXPECT_TRUE(person->takeNeedsSave());
  settle();
  EXPECT_EQ(posts.count(), 1U) << "of the one write";
  EXPECT_FALSE(person->needsSave());
  EXPECT_FALSE(person->updateFromDictionaryRepresentation({{"Metadata", Dictionary{{"b", true}}}}));
  EXPECT_TRUE(person->updateFromDictionaryRepresentation({{"Metadata", Dictionary{{"b", 1}}}})) << "1 is not true";
  EXPECT_EQ(person->lastChange(), PLChangeNumber::Changing) << "queued: no copy that was made before holds";
  settle();
  EXPECT_LT(person->lastChange(), PLChangeNumber::Changing);
}

// With real threads: what a save reads while the main thread edits.

class PersonOnThreads : public testing::Test {
 protected:
  PersonOnThreads() { installPlatform(process, world.makePlatform(process)); }

  SimulatedWorld world;
  Process process;
  std::shared_ptr<SerialQueue> saveQueue = SerialQueue::make("save");
};

TEST_F(PersonOnThreads, ASaveSeesWholeEdits) {
  const auto person = PLPerson::init();
  constexpr int readings = 300;
  std::atomic<int> done = 0;
  std::atomic<int> torn = 0;
  for (int reading = 0; reading < readings; ++reading) {
    saveQueue->async([&] {
      const auto form = person->dictionaryRepresentation();
      if (stringForKey(form, "Name") != stringForKey(form, "ReplyAs")) ++torn;
      ++done;
    });
  }
  for (int edit = 0; done < readings; ++edit) {
    const std::string text = edit % 2 == 0 ? "even" : "odd";
    person->updateFromDictionaryRepresentation(
        {{"Name", text}, {"ReplyAs", text}, {"Metadata", Dictionary{{text, 1}}}});
  }
  EXPECT_EQ(torn, 0);
}

TEST_F(PersonOnThreads, EveryEditIsSavedOrStillMarked) {
  const auto person = PLPerson::init();
  const auto& changes = process.local<PLPersonChanges>().marks;
  std::atomic<int> saved = 0;
  std::atomic<int> passes = 0;
  std::atomic<bool> isEditing = true;
  saveQueue->async([&] {
    for (std::uint64_t seen = 0; isEditing; ++passes) {
      const std::uint64_t count = changes.load(std::memory_order_acquire);
      if (std::exchange(seen, count) == count || !person->takeNeedsSave()) continue;
      saved = std::stoi(stringForKey(person->dictionaryRepresentation(), "ReplyAs").value_or("0"));
    }
  });
  for (int edit = 1; edit <= 1000; ++edit) {
    person->setPreferredReplyAs(std::to_string(edit));
    // The pass that runs now may have looked already; the next one has not.
    for (const int before = passes; passes < before + 2;) std::this_thread::yield();
    EXPECT_EQ(saved, edit);
  }
  isEditing = false;
  EXPECT_TRUE(process.settle(60));
}

TEST(PersonChanges, ACopyIsKeptNoLongerThanItHolds) {
  constexpr std::uint64_t rounds = 20'000;
  PLPersonChanges changes;
  PLChangeNumber number;
  number.begin(changes);
  number.begin(changes);
  number.end(changes);
  EXPECT_EQ(number.number(), PLChangeNumber::Changing) << "the other one has not ended";
  number.end(changes);

  std::atomic<std::uint64_t> content{2};
  std::atomic<int> writerCount{2};
  const auto write = [&] {
    for (std::uint64_t round = 0; round < rounds; ++round) {
      number.begin(changes);
      content.fetch_add(1, std::memory_order_acq_rel);
      number.end(changes);
    }
    --writerCount;
  };
  std::thread first(write), second(write);
  std::uint64_t count = 0, copy = 0, staleCount = 0;
  do {
    const std::uint64_t present = content.load(std::memory_order_acquire);
    if (number.number() <= count) {
      staleCount += copy != present;
    } else {
      count = changes.changes.load(std::memory_order_acquire);
      copy = content.load(std::memory_order_acquire);
    }
  } while (writerCount > 0);
  first.join();
  second.join();
  EXPECT_EQ(staleCount, 0U);
  EXPECT_EQ(content, 2 + 2 * rounds);
  EXPECT_EQ(number.number(), changes.changes) << "a copy that is made now holds";
}

}  // namespace
}  // namespace pellor
