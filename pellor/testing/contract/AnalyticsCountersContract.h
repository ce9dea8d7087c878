// What every set of counters must do, written against the interface alone. Needs GoogleTest.
//
// A factory has the counters of one process and looks where they arrive:
//
//   struct MyCounters {
//     Process& process();
//     AnalyticsCounters& counters();
//     std::optional<std::int64_t> recorded(const std::string& key);  // once everything has arrived; absent: nothing
//   };
//   INSTANTIATE_TYPED_TEST_SUITE_P(Mine, AnalyticsCountersContract, MyCounters);
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>

#include "pellor/platform/AnalyticsCounters.h"
#include "pellor/runtime/Process.h"

namespace pellor {

template <class Factory>
class AnalyticsCountersContract : public testing::Test {
 protected:
  void set(const std::string& key, std::int64_t value) {
    const Process::Scope scope(_world.process());
    _world.counters().setValueForScalarKey(key, value);
  }

  Factory _world;
};

TYPED_TEST_SUITE_P(AnalyticsCountersContract);

TYPED_TEST_P(AnalyticsCountersContract, TheLastValueOfEachKeyIsRecorded) {
  const std::string size = "org.tapnote.tn.friendList.size", groups = "org.tapnote.tn.friendList.groups-count";
  EXPECT_EQ(this->_world.recorded(size), std::nullopt);
  this->set(size, 1);
  this->set(size, 5);
  this->set(groups, 0);
  this->set("", 7);  // of no use to anybody, and no reason to end a program
  EXPECT_EQ(this->_world.recorded(size), 5) << "in place of the one before";
  EXPECT_EQ(this->_world.recorded(groups), 0);
  for (const std::int64_t value : {std::int64_t{4}, std::int64_t{-3}, std::int64_t{1} << 40, std::int64_t{4}}) {
    this->set(size, value);
    EXPECT_EQ(this->_world.recorded(size), value);
  }
  EXPECT_EQ(this->_world.recorded(groups), 0) << "it was not set again";
}

REGISTER_TYPED_TEST_SUITE_P(AnalyticsCountersContract, TheLastValueOfEachKeyIsRecorded);

}  // namespace pellor
