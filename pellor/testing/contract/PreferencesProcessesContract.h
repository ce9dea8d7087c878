// What a preferences store of real processes must do besides. Needs GoogleTest and a system with fork.
//
// A factory of PreferencesStoreContract.h also opens stores in children:
//
//   struct MyStores {
//     ...
//     std::shared_ptr<PreferencesStore> openInChild();  // in a process forked before this one opened any; ends by
//     _exit
//   };
//   INSTANTIATE_TYPED_TEST_SUITE_P(Mine, PreferencesProcessesContract, MyStores);
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <set>
#include <vector>

#include "pellor/testing/contract/ChildProcess.h"
#include "pellor/testing/contract/PreferencesStoreContract.h"
#include "pellor/testing/contract/VersionedWriter.h"

namespace pellor {

template <class Factory>
class PreferencesProcessesContract : public testing::Test {
 protected:
  Factory _stores;
};

TYPED_TEST_SUITE_P(PreferencesProcessesContract);

TYPED_TEST_P(PreferencesProcessesContract, ProcessesThatWriteFromWhatTheyReadLoseNothingWhenOneIsKilled) {
  constexpr int rounds = 40, count = 3;
  const auto countUp = [this](std::uint64_t writer, int times, const ChildProcess::Report& report) {
    VersionedWriter counter(this->_stores.openInChild(), writer);
    for (int round = 0; round < times; ++round) {
      const auto number = counter.countUp("first", "second");
      if (!number) return 1;
      report.send(*number);
    }
    return 0;
  };
  std::vector<std::unique_ptr<ChildProcess>> children;
  for (std::uint64_t writer = 1; writer <= count; ++writer) {
    children.push_back(std::make_unique<ChildProcess>(
        [&, writer](const ChildProcess::Report& report) { return countUp(writer, rounds, report); }));
  }
  ChildProcess victim([&](const ChildProcess::Report& report) { return countUp(count + 1, 1'000'000, report); });

  std::set<std::int64_t> acknowledged;
  const auto receiveFrom = [&](const ChildProcess& child) {
    const auto number = child.receive();
    EXPECT_TRUE(!number || acknowledged.insert(*number).second) << *number << " was written twice";
    return number.has_value();
  };
  for (int round = 0; round < rounds / 2; ++round) ASSERT_TRUE(receiveFrom(victim));
  victim.kill();
  for (const auto& child : children) {
    while (receiveFrom(*child)) continue;
    EXPECT_EQ(child->exitCode(), 0);
  }
  while (receiveFrom(victim)) continue;

  VersionedWriter late(this->_stores.open(), count + 2);
  const auto first = late.read("first"), second = late.read("second");
  ASSERT_TRUE(first.value && second.value);
  EXPECT_EQ(*first.value, Value(static_cast<std::int64_t>(second.value->array()->size())));
  EXPECT_EQ(first.version.write, second.version.write);
  const auto written = static_cast<std::int64_t>(acknowledged.size());
  ASSERT_GE(written, count * rounds + rounds / 2);
  // The victim may have died before it told of its last write.
  const bool isOneUntold = first.value == Value(written + 1);
  EXPECT_TRUE(isOneUntold || first.value == Value(written)) << first.value->description() << " of " << written;
  EXPECT_EQ(late.countUp("first", "second"), written + (isOneUntold ? 2 : 1));
}

REGISTER_TYPED_TEST_SUITE_P(PreferencesProcessesContract, ProcessesThatWriteFromWhatTheyReadLoseNothingWhenOneIsKilled);

}  // namespace pellor
