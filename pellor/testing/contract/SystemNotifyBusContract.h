// What every bus must do, written against the interface alone. Needs GoogleTest.
//
// A factory connects several processes of the test's thread, numbered from 0, and lets them run:
//
//   struct MyBuses {
//     Process& process(int number);
//     SystemNotifyBus& bus(int number);
//     template <class Condition> bool runUntil(Condition condition);  // runs the processes; false after a long time
//     void breakConnection(int number);  // and restores it: what was on its way is lost
//   };
//   INSTANTIATE_TYPED_TEST_SUITE_P(Mine, SystemNotifyBusContract, MyBuses);
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "pellor/platform/SystemNotifyBus.h"
#include "pellor/runtime/Process.h"

namespace pellor {

template <class Factory>
class SystemNotifyBusContract : public testing::Test {
 protected:
  using Deliveries = std::vector<std::string>;

  void observe(int number, const void* observer, const std::string& name, std::function<void()> callback) {
    Process::Scope scope(_buses.process(number));
    _buses.bus(number).addObserver(observer, std::move(callback), name);
  }
  void observe(int number, const std::string& name, Deliveries& deliveries) {
    observe(number, &deliveries, name, [&deliveries, name] { deliveries.push_back(name); });
  }
  void remove(int number, const void* observer, const std::string& name) {
    Process::Scope scope(_buses.process(number));
    _buses.bus(number).removeObserver(observer, name);
  }
  void post(int number, const std::string& name) {
    Process::Scope scope(_buses.process(number));
    _buses.bus(number).post(name);
  }

  /// Lets everything arrive that is on its way to a process: waits for a post of another one that was made after it.
  void flush(int number) {
    const std::string name = "flush " + std::to_string(++_flushes);
    bool arrived = false;
    observe(number, &arrived, name, [&arrived] { arrived = true; });
    post(number == 0 ? 1 : 0, name);
    EXPECT_TRUE(_buses.runUntil([&arrived] { return arrived; }));
    remove(number, &arrived, name);
  }

  Factory _buses;
  int _flushes = 0;
};

TYPED_TEST_SUITE_P(SystemNotifyBusContract);

TYPED_TEST_P(SystemNotifyBusContract, EachOwnPostIsDeliveredOnceInOrderAndNeverInside) {
  typename TestFixture::Deliveries deliveries, expected;
  this->observe(0, "list changed", deliveries);
  this->observe(0, "title changed", deliveries);
  for (int round = 0; round < 100; ++round) {
    for (const char* name : {"list changed", "title changed", "list changed"}) {
      this->post(0, name);
      expected.emplace_back(name);
    }
    this->post(0, "nobody observes this");
  }
  EXPECT_TRUE(deliveries.empty());
  EXPECT_TRUE(this->_buses.runUntil([&] { return deliveries.size() >= expected.size(); }));
  this->flush(0);
  EXPECT_EQ(deliveries, expected);
}

TYPED_TEST_P(SystemNotifyBusContract, OthersHearOfTheLastPostAtLeast) {
  const std::string name = "any name\n/" + std::string(10'000, 'x');
  int posted = 0, heard = 0;
  for (int round = 0; round < 20; ++round) {
    // Every other round it is observed anew.
    if (round % 2 == 1) this->remove(0, &heard, name);
    if (round % 2 == 1 || round == 0) this->observe(0, &heard, name, [&] { heard = posted; });
    for (int poster : {1, 2, 1}) {
      ++posted;
      this->post(poster, name);
    }
    EXPECT_TRUE(this->_buses.runUntil([&] { return heard == posted; })) << posted;
  }
}

TYPED_TEST_P(SystemNotifyBusContract, OwnAndOthersPostsDoNotHideEachOther) {
  int deliveries = 0;
  this->observe(0, &deliveries, "name", [&] { ++deliveries; });
  for (int round = 1; round <= 50; ++round) {
    const int before = deliveries;
    this->post(1, "name");
    this->post(0, "name");
    EXPECT_TRUE(this->_buses.runUntil([&] { return deliveries >= before + 2; })) << "the own one and another";
  }
}

TYPED_TEST_P(SystemNotifyBusContract, OnlyWhatIsObservedArrives) {
  typename TestFixture::Deliveries first, second, removed;
  this->observe(0, "name", first);
  this->observe(0, "name", second);
  this->observe(0, "name", removed);
  this->observe(0, "name of", second);
  this->post(0, "name");
  this->post(1, "name");
  this->remove(0, &removed, "name");
  this->remove(0, &removed, "unknown name");
  this->post(0, "nam");
  EXPECT_TRUE(this->_buses.runUntil([&] { return first.size() >= 2 && second.size() >= 2; }));
  this->flush(0);
  EXPECT_TRUE(removed.empty()) << "also what was posted before the removal";
  EXPECT_GE(first.size(), 2u);
  EXPECT_EQ(second, first);
}

TYPED_TEST_P(SystemNotifyBusContract, ObserversMayPostAddAndRemoveInsideADelivery) {
  int firstCalls = 0, secondCalls = 0, lateCalls = 0;
  this->observe(0, &firstCalls, "name", [&] {
    if (++firstCalls > 1) return;
    this->remove(0, &secondCalls, "name");
    this->observe(0, &lateCalls, "name", [&] { ++lateCalls; });
    this->post(0, "name");
  });
  this->observe(0, &secondCalls, "name", [&] { ++secondCalls; });
  this->post(0, "name");
  EXPECT_TRUE(this->_buses.runUntil([&] { return firstCalls == 2 && lateCalls == 1; }));
  this->flush(0);
  EXPECT_EQ(firstCalls, 2);
  EXPECT_EQ(secondCalls, 0);
  EXPECT_EQ(lateCalls, 1);
}

TYPED_TEST_P(SystemNotifyBusContract, ABrokenConnectionLosesNoOwnPostAndSaysThatOthersMayHavePosted) {
  int deliveries = 0, quiet = 0;
  this->observe(0, &deliveries, "name", [&] { ++deliveries; });
  this->observe(0, &quiet, "never posted", [&] { ++quiet; });
  this->flush(0);
  for (int round = 0; round < 3; ++round) this->post(0, "name");
  this->_buses.breakConnection(0);
  EXPECT_TRUE(this->_buses.runUntil([&] { return deliveries >= 4 && quiet >= 1; }));

  this->flush(0);
  const int before = deliveries;
  this->post(1, "name");
  EXPECT_TRUE(this->_buses.runUntil([&] { return deliveries > before; })) << "it is connected again";
}

REGISTER_TYPED_TEST_SUITE_P(SystemNotifyBusContract, EachOwnPostIsDeliveredOnceInOrderAndNeverInside,
                            OthersHearOfTheLastPostAtLeast, OwnAndOthersPostsDoNotHideEachOther,
                            OnlyWhatIsObservedArrives, ObserversMayPostAddAndRemoveInsideADelivery,
                            ABrokenConnectionLosesNoOwnPostAndSaysThatOthersMayHavePosted);

}  // namespace pellor
