// Tests of two paired devices, with a real broker between them.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tests/services/PairedDevices.h"

namespace pellor {

inline Value friends(int count) {
  Array list;
  for (int number = 0; number < count; ++number)
    list.emplace_back(Dictionary{{"ABPersonGUID", std::to_string(number)}});
  list.emplace_back(Dictionary{});
  return list;
}

class PairedDeviceTest : public testing::Test {
 protected:
  /// Paired, with a first list that has arrived.
  void completeInitialSync() {
    _devices.laptop.store("list", friends(4));
    _devices.pair();
    _devices.startReceiving();
    _devices.startSending();
    ASSERT_TRUE(_devices.runUntilInStep());
    ASSERT_TRUE(_devices.runUntil([&] { return _devices.posts == 1; }));
    _devices.told.clear();
    _devices.posts = 0;
  }
  /// As somebody with the certificate of a device: publishes, and gives what is retained for it.
  Messages publishAs(const Device& device, const Messages& messages) {
    RawClient client(_devices.process, _devices.broker, device, messages);
    EXPECT_TRUE(_devices.runUntil([&] { return client.isDone(); }));
    return client.heard();
  }
  Messages retainedFor(const Device& device) { return publishAs(device, {}); }

  PairedDevices _devices;
};

}  // namespace pellor
