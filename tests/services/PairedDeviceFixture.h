// Tests of two paired devices, with a real broker between them.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

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
  /// What is retained for a device, by whoever has its certificate.
  std::vector<std::pair<std::string, Data>> retainedFor(const Device& device) {
    RawClient client(_devices.process, _devices.broker, device);
    client.start();
    EXPECT_TRUE(_devices.runUntil([&] { return client.isDone(); }));
    return client.heard();
  }
  void publishAs(const Device& device, const std::vector<std::pair<std::string, Data>>& messages) {
    RawClient client(_devices.process, _devices.broker, device);
    for (const auto& [topic, payload] : messages) client.publish(topic, payload);
    client.start();
    EXPECT_TRUE(_devices.runUntil([&] { return client.isDone(); }));
  }

  PairedDevices _devices;
};

}  // namespace pellor
