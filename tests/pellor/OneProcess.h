// A test with one process in a simulated world.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/platform/Platform.h"
#include "pellor/testing/LogCollector.h"
#include "pellor/testing/SimulatedScheduler.h"
#include "pellor/testing/SimulatedWorld.h"

namespace pellor {

/// Keeps the notifications of one name.
class Posts {
 public:
  Posts(Process& process, std::string_view name)
      : _observation(process.notificationCenter().addObserver(
            std::string(name), [this](const Notification& notification) { _notifications.push_back(notification); })) {}
  const std::vector<Notification>& all() const { return _notifications; }
  std::size_t count() const { return _notifications.size(); }

 private:
  std::vector<Notification> _notifications;
  std::shared_ptr<Observation> _observation;
};

class OneProcess : public testing::Test {
 protected:
  /// `adjust` gets the platform before it is installed.
  explicit OneProcess(const std::function<void(Platform&)>& adjust = [](Platform&) {})
      : platform(world.makePlatform(process)) {
    adjust(platform);
    installPlatform(process, platform);
  }

  AddressBook* book() { return _book.get(); }
  RecordRef record(const std::string& guid) { return _book->copyPersonMatchingGUID(guid); }
  void settle() { scheduler->runUntilQuiet(); }
  /// The lines since the last call.
  std::vector<std::string> takeLog() { return log->takeMessages(); }

  SimulatedWorld world;
  std::shared_ptr<SimulatedScheduler> scheduler = std::make_shared<SimulatedScheduler>(1);
  std::shared_ptr<LogCollector> log = std::make_shared<LogCollector>();
  Process process{scheduler, log};
  Platform platform;

 private:
  std::shared_ptr<AddressBook> _book = platform.addressBook->openPrivateAddressBook();
};

}  // namespace pellor
