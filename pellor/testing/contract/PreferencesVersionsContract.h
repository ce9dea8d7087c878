// What every preferences store must do with versioned reads and writes. Needs GoogleTest.
//
// For the factories of PreferencesStoreContract.h:
//
//   INSTANTIATE_TYPED_TEST_SUITE_P(Mine, PreferencesVersionsContract, MyStores);
//
// Stores of real processes also instantiate PreferencesProcessesContract.h; those whose writes can end without an
// answer, PreferencesUntoldContract.h.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <latch>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "pellor/runtime/LongArray.h"
#include "pellor/testing/contract/PreferencesStoreContract.h"
#include "pellor/testing/contract/VersionedWriter.h"
#include "pellor/testing/contract/WriteCases.h"

namespace pellor {

template <class Factory>
class PreferencesVersionsContract : public testing::Test {
 protected:
  VersionedWriter open() { return VersionedWriter(_stores.open(), ++_writers); }
  static std::optional<Value> copied(const VersionedWriter& writer, std::string_view key) {
    const auto answer = writer.store().copyValue(key, ContractDomain);
    EXPECT_TRUE(answer.isReadable()) << key;
    return answer.value();
  }
  /// As a caller does that knows of no versions.
  static void synchronizeWith(const VersionedWriter& writer, std::string_view key, std::optional<Value> value) {
    writer.store().setValue(key, std::move(value), ContractDomain);
    EXPECT_TRUE(writer.store().synchronize(ContractDomain)) << key;
  }

  Factory _stores;

 private:
  std::uint64_t _writers = 7000;
};

TYPED_TEST_SUITE_P(PreferencesVersionsContract);

TYPED_TEST_P(PreferencesVersionsContract, OnlyWhatWasMadeFromTheStoredVersionIsWritten) {
  using Outcome = PreferenceWriteOutcome;
  auto first = this->open(), second = this->open();
  const auto none = first.read("key");
  EXPECT_EQ(none.value, std::nullopt);
  EXPECT_NE(none.version.store, 0U);
  EXPECT_EQ(none.version, (PreferenceVersion{none.version.store, 0, {}}));

  const auto made = first.store("key", setTo("a", none.version));
  EXPECT_EQ(made.value, Value("a"));
  EXPECT_EQ(made.version, (PreferenceVersion{none.version.store, made.version.count, first.id()}));
  EXPECT_GT(made.version.count, 0U);
  EXPECT_TRUE(isSame(second.read("key"), made)) << "without synchronizing";
  EXPECT_EQ(second.store().read(std::vector<std::string>{"key"}, "another domain").value()->at("key").value,
            std::nullopt);
  const auto equal = second.store("key", setTo("a", made.version));
  EXPECT_GT(equal.version.count, made.version.count) << "an equal value makes a version";
  EXPECT_EQ(equal.version.write, second.id());
  EXPECT_EQ(first.write({{"key", removed(made.version)}}).outcome, Outcome::overtaken);
  EXPECT_TRUE(isSame(first.store("key", removed(equal.version)), none));
  const auto again = second.store("key", setTo("a", none.version));
  EXPECT_GT(again.version.count, equal.version.count) << "removed and made again";
  EXPECT_EQ(first.write({{"key", setTo("late", equal.version)}}).outcome, Outcome::overtaken);
  EXPECT_GT(first.store("key", setTo("b")).version.count, again.version.count) << "made from any";
  EXPECT_TRUE(isSame(second.store("key", removed()), none)) << "made from any";
  EXPECT_TRUE(isSame(second.store("key", removed()), none)) << "nothing to remove";
}

TYPED_TEST_P(PreferencesVersionsContract, AllKeysAreWrittenOrNone) {
  const std::vector<std::string> keys = {"1", "2", "none"};
  auto writer = this->open(), other = this->open();
  for (const WriteCase& each : writeCases()) {
    SCOPED_TRACE(each.name);
    other.store("none", removed());
    const auto old = other.store("2", setTo("stored")).version;
    other.store("1", setTo("stored"));
    other.store("2", setTo("stored"));
    ASSERT_TRUE(writer.store().synchronize(ContractDomain));
    const auto before = writer.readIfPossible(keys).value();
    const auto changes = changesOf(each, before, old);
    const auto answer = writer.write(changes);
    EXPECT_EQ(answer.outcome, each.outcome);

    VersionedPreferences written;
    for (const std::string& key : keys) {
      SCOPED_TRACE(key);
      const auto stored = other.read(key);
      EXPECT_EQ(this->copied(writer, key), stored.value);
      if (each.outcome != PreferenceWriteOutcome::written || !changesKey(changes, key)) {
        EXPECT_TRUE(isSame(stored, before.at(key)));
        continue;
      }
      written[key] = stored;
      EXPECT_EQ(stored.value, changes.at(key).value);
      EXPECT_EQ(stored.version.write, stored.value ? writer.id() : PreferenceWriteID{});
    }
    EXPECT_TRUE(std::ranges::equal(answer.written, written, [](const auto& left, const auto& right) {
      return left.first == right.first && isSame(left.second, right.second);
    })) << "the caller is told of what was changed, and of nothing else";
  }
}

TYPED_TEST_P(PreferencesVersionsContract, WhatWasSetWaitsForItsOwnSynchronize) {
  auto writer = this->open(), other = this->open();
  const auto first = writer.store("key", setTo(1));
  for (const auto& each : {writer, other}) EXPECT_EQ(this->copied(each, "key"), Value(1));
  other.store().setValue("waits", "set", ContractDomain);
  other.store().setValue("key", "set", ContractDomain);
  EXPECT_EQ(other.read("waits").value, std::nullopt);
  EXPECT_TRUE(isSame(other.read("key"), first));

  const auto written = other.store("key", setTo(2, first.version));
  EXPECT_TRUE(isSame(other.read("key"), written));
  EXPECT_EQ(writer.read("waits").value, std::nullopt);
  EXPECT_EQ(this->copied(other, "waits"), Value("set"));
  EXPECT_EQ(this->copied(writer, "key"), Value(1)) << "as of its last synchronize";
  ASSERT_TRUE(writer.store().synchronize(ContractDomain));
  EXPECT_EQ(this->copied(writer, "key"), Value(2));

  // What waits goes over what is stored, and makes versions like any write.
  ASSERT_TRUE(other.store().synchronize(ContractDomain));
  const auto set = writer.read("key");
  EXPECT_EQ(set.value, Value("set"));
  EXPECT_GT(set.version.count, written.version.count);
  EXPECT_EQ(set.version, (PreferenceVersion{first.version.store, set.version.count, {}}));
  EXPECT_EQ(other.write({{"key", setTo("late", written.version)}}).outcome, PreferenceWriteOutcome::overtaken);
  EXPECT_EQ(writer.read("waits").value, Value("set"));
  ASSERT_TRUE(writer.store().synchronize(ContractDomain));
  EXPECT_TRUE(isSame(other.read("key"), set)) << "nothing was set";
  this->synchronizeWith(writer, "key", std::nullopt);
  EXPECT_EQ(other.read("key").version, (PreferenceVersion{first.version.store, 0, {}}));
  EXPECT_EQ(this->copied(other, "key"), Value("set")) << "as of its last synchronize";
}

TYPED_TEST_P(PreferencesVersionsContract, AFailureChangesNothing) {
  using Outcome = PreferenceWriteOutcome;
  auto writer = this->open(), other = this->open();
  const auto stored = writer.store("key", setTo("stored"));
  const PreferenceChanges changes = {{"further", setTo(1)}, {"key", setTo("new", stored.version)}};

  this->_stores.failWrites(true);
  writer.store().setValue("waits", "set", ContractDomain);
  EXPECT_EQ(writer.write(changes).outcome, Outcome::failed);
  EXPECT_EQ(this->copied(writer, "key"), Value("stored"));
  EXPECT_EQ(this->copied(writer, "waits"), Value("set")) << "another write failed";
  EXPECT_TRUE(isSame(writer.read("key"), stored));
  EXPECT_EQ(other.read("further").value, std::nullopt);
  this->_stores.failWrites(false);

  this->_stores.makeUnreadable();
  EXPECT_FALSE(writer.store().read(std::vector<std::string>{"key", "never set"}, ContractDomain).isReadable());
  EXPECT_EQ(writer.write(changes).outcome, Outcome::failed);
  this->_stores.makeReadable();
  EXPECT_TRUE(isSame(other.read("key"), stored));
  EXPECT_TRUE(isSame(writer.read("key"), stored));
  EXPECT_EQ(writer.write(changes).outcome, Outcome::written) << "a version outlasts failures";
  EXPECT_EQ(this->copied(writer, "key"), Value("new"));
}

TYPED_TEST_P(PreferencesVersionsContract, NoVersionComesAgainOnceTheProcessesHaveEnded) {
  const auto once = this->open().store("key", setTo("once"));
  EXPECT_TRUE(isSame(this->open().read("key"), once));
  this->open().store("key", removed());
  auto late = this->open();
  EXPECT_GT(late.store("key", setTo("once")).version.count, once.version.count);
  EXPECT_EQ(late.write({{"key", removed(once.version)}}).outcome, PreferenceWriteOutcome::overtaken);
}

TYPED_TEST_P(PreferencesVersionsContract, ADamagedValueHasAVersionAndIsWrittenOver) {
  auto writer = this->open();
  for (const Value& good : {Value("short"), Value(persons(70))}) {
    writer.store("key", setTo(good));
    this->_stores.damage("key", ContractDomain);
    const auto damaged = this->open().read("key");
    ASSERT_TRUE(damaged.value && damaged.value->data());
    EXPECT_EQ(writer.store().putAside("key", ContractDomain).lastGood, good);
    const auto mended = writer.store("key", setTo("mended", damaged.version));
    EXPECT_TRUE(isSame(writer.read("key"), mended));
    EXPECT_EQ(writer.store().putAside("key", ContractDomain).lastGood, Value("mended"));
  }
}

TYPED_TEST_P(PreferencesVersionsContract, ChunksThatDidNotChangeStayTheSame) {
  const auto chunksOf = [](const VersionedPreference& stored) {
    const auto* list = stored.value ? stored.value->longArray() : nullptr;
    EXPECT_TRUE(list);
    return list ? list->chunks() : LongArray().chunks();
  };
  const LongArray list(persons(5 * LongArray::ChunkSize - 3));
  auto writer = this->open(), reader = this->open();
  const auto first = writer.store("key", setTo(list));
  const auto own = chunksOf(writer.read("key"));
  ASSERT_EQ(own.size(), list.chunks().size());
  for (std::size_t chunk = 0; chunk < own.size(); ++chunk)
    EXPECT_TRUE(own[chunk]->isCopyOf(*list.chunks()[chunk])) << chunk;
  const auto known = chunksOf(reader.read("key"));
  EXPECT_EQ(chunksOf(reader.read("key")), known);

  const Value changed = withElement(LongArray(own), LongArray::ChunkSize + 1, person(-1));
  const auto second = writer.store("key", setTo(changed, first.version));
  EXPECT_EQ(second.value, changed);
  const auto expectOneChanged = [&](const auto& now, const auto& before) {
    ASSERT_EQ(now.size(), before.size());
    for (std::size_t chunk = 0; chunk < now.size(); ++chunk)
      EXPECT_EQ(now[chunk] == before[chunk], chunk != 1) << chunk;
  };
  expectOneChanged(chunksOf(reader.read("key")), known);
  expectOneChanged(chunksOf(writer.read("key")), own);
  EXPECT_EQ(reader.read("key").value, changed);
}

// Long arrays are written and read in part where only a part of them changed: also from what a caller has known for
// long, with calls in between that know of no versions.
TYPED_TEST_P(PreferencesVersionsContract, WhatIsStoredIsTheLastThatWasSetOrNotOvertakenWhateverItWasBasedOn) {
  std::mt19937 random(11);
  const auto below = [&](std::size_t limit) {
    return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random);
  };
  VersionedWriter writers[] = {this->open(), this->open()};
  VersionedPreference known[] = {writers[0].read("key"), writers[1].read("key")};
  VersionedPreference model = known[0];
  for (int round = 0; round < 600; ++round) {
    SCOPED_TRACE(round);
    const std::size_t turn = below(2), action = below(12);
    VersionedWriter &writer = writers[turn], &other = writers[1 - turn];
    if (below(2) == 0) known[turn] = writer.read("key");
    const auto base = below(2) == 0 ? known[turn].value : this->copied(writer, "key");
    std::optional<Value> value = LongArray(persons(below(130)));
    if (action == 0) value = std::nullopt;
    if (action == 1) value = round;
    if (action > 3 && base && base->longArray() && base->longArray()->size() > 0) {
      value = base;
      for (auto edits = below(4); edits > 0; --edits)
        value = withElement(*value->longArray(), below(value->longArray()->size()), person(round));
    }
    if (below(3) == 0) {
      this->synchronizeWith(writer, "key", value);
      model = writer.read("key");
    } else {
      const auto change = value ? setTo(*value, known[turn].version) : removed(known[turn].version);
      const bool isRight = known[turn].version == model.version;
      const auto answer = writer.write({{"key", change}});
      ASSERT_EQ(answer.outcome == PreferenceWriteOutcome::written, isRight);
      ASSERT_EQ(answer.outcome == PreferenceWriteOutcome::overtaken, !isRight);
      if (!isRight) continue;
      known[turn] = model = answer.written.at("key");
    }
    ASSERT_EQ(model.value, value);
    ASSERT_EQ(this->copied(writer, "key"), value);
    if (below(10) == 0) other = this->open();
    if (below(2) == 0) continue;
    ASSERT_TRUE(isSame(other.read("key"), model));
    ASSERT_TRUE(other.store().synchronize(ContractDomain));
    ASSERT_EQ(this->copied(other, "key"), value);
    ASSERT_EQ(other.store().putAside("key", ContractDomain).lastGood, value);
  }
}

TYPED_TEST_P(PreferencesVersionsContract, ThreadsLoseNothingAndSeeTogetherWhatWasWrittenTogether) {
  constexpr int rounds = 100, settings = 50'000;
  const auto shared = this->_stores.open(), other = this->_stores.open();
  std::atomic<std::uint64_t> writers = 0;
  std::latch start(6);
  const auto countUp = [&](const std::shared_ptr<PreferencesStore>& store) {
    VersionedWriter writer(store, ++writers);
    start.arrive_and_wait();
    for (int round = 0; round < rounds; ++round) {
      const auto number = writer.countUp("first", "second");
      ASSERT_TRUE(number);
      // The other threads meanwhile go on, so this process may know of a later one.
      ASSERT_GE(store->integerValue("first", ContractDomain).value().value_or(0), *number);
    }
  };
  const auto set = [&](const char* key, int synchronizedEvery) {
    start.arrive_and_wait();
    for (std::int64_t value = 1; value <= settings; ++value) {
      // Meanwhile another thread may be writing the value before.
      shared->setValue(key, value, ContractDomain);
      ASSERT_TRUE(value % synchronizedEvery != 0 || shared->synchronize(ContractDomain));
      ASSERT_EQ(shared->integerValue(key, ContractDomain).value(), value);
    }
  };
  std::vector<std::thread> threads;
  for (const auto& store : {shared, shared, other}) threads.emplace_back(countUp, store);
  threads.emplace_back(set, "setting", 500);
  threads.emplace_back(set, "another", settings / 2);

  const auto reader = this->open();
  start.arrive_and_wait();
  std::int64_t last = 0;
  const auto look = [&] {
    EXPECT_TRUE(reader.store().synchronize(ContractDomain));
    const auto number = this->copied(reader, "first").value_or(0).integer();
    EXPECT_EQ(number, this->copied(reader, "second").value_or(Array{}).array()->size());
    EXPECT_GE(number, last);
    last = *number;
  };
  for (int round = 0; round < 2 * rounds; ++round) look();
  for (std::thread& thread : threads) thread.join();
  look();
  EXPECT_EQ(last, 3 * rounds);
  for (const char* key : {"setting", "another"}) EXPECT_EQ(this->copied(reader, key), Value(settings));
}

REGISTER_TYPED_TEST_SUITE_P(PreferencesVersionsContract, OnlyWhatWasMadeFromTheStoredVersionIsWritten,
                            AllKeysAreWrittenOrNone, WhatWasSetWaitsForItsOwnSynchronize, AFailureChangesNothing,
                            NoVersionComesAgainOnceTheProcessesHaveEnded, ADamagedValueHasAVersionAndIsWrittenOver,
                            ChunksThatDidNotChangeStayTheSame,
                            WhatIsStoredIsTheLastThatWasSetOrNotOvertakenWhateverItWasBasedOn,
                            ThreadsLoseNothingAndSeeTogetherWhatWasWrittenTogether);

}  // namespace pellor
