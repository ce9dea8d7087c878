// Two devices with one broker between them, in one process of the test's thread.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "pellor/linux/mosquitto/DeviceReceiver.h"
#include "pellor/linux/mosquitto/PairedDevice.h"
#include "pellor/linux/notify/NotifyFolder.h"
#include "pellor/runtime/Process.h"
#include "pellor/testing/InMemoryPreferences.h"
#include "pellor/testing/LogCollector.h"
#include "tests/linux/ServedProcesses.h"
#include "tests/linux/TemporaryFolder.h"
#include "tests/services/servers/Broker.h"

namespace pellor {

inline constexpr const char* SyncDomain = "org.tapnote.TN";
inline constexpr const char* ChangeName = "list changed";

/// A device with a certificate and a store.
class Device {
 public:
  Device(const Authority& authority, const std::string& name) { authority.issue(pairing, name); }

  void store(const std::string& key, std::optional<Value> value, const std::string& domain = SyncDomain) const {
    preferences->setValue(key, std::move(value), domain);
  }
  /// As another process reads it.
  std::optional<Value> stored(const std::string& key, const std::string& domain = SyncDomain) const {
    return preferences->value(key, domain);
  }

  const std::shared_ptr<InMemoryPreferences> preferences = std::make_shared<InMemoryPreferences>();
  const TemporaryFolder folder;
  const DevicePairing pairing{folder / "device"};
};

/// Payloads by topic, latest last.
using Messages = std::vector<std::pair<std::string, Data>>;

/// A client of the broker that says and hears what it likes to.
class RawClient final : private MQTTConnection::Client {
 public:
  /// Hears what is sent to `device`, and then publishes.
  RawClient(Process& process, const Broker& broker, const Device& device, Messages published);
  ~RawClient() override { _heard.reset(); }

  /// Whether all that was published is with the broker, or refused.
  bool isDone() const { return *_isDone; }
  bool isAway() const { return !_connection.problem().empty(); }
  const Messages& heard() const { return *_heard; }

 private:
  void work() override { _connection.setWanted(true); }
  void connected() override;
  void disconnected() override {
    tell([] {});
  }
  void arrived(const std::string& topic, std::span<const std::uint8_t> payload) override;
  void subscribed() override;
  void delivered(bool isAccepted) override;
  void tell(Task task) { _process.mainQueue().async(std::move(task)); }

  Process& _process;
  const std::string _topic;
  const Messages _published;
  std::shared_ptr<bool> _isDone = std::make_shared<bool>(false);
  std::shared_ptr<Messages> _heard = std::make_shared<Messages>();
  MQTTConnection _connection;
};

/// A line of it is an event for which a test may wait.
class WakingLog final : public LogCollector {
 public:
  explicit WakingLog(Process& process) : _process(process) {}
  void write(const LogEntry& entry) override {
    LogCollector::write(entry);
    _process.mainQueue().async([] {});
  }

 private:
  Process& _process;
};

/// Friends are known by their forms alone: those that one side removed are gone, those that one added are there. Other
/// values are the one that changed; ours, if both did.
MergedValues mergeSets(const std::string& domain, const Dictionary& base, const Dictionary& theirs,
                       const Dictionary& ours);

/// The laptop sends, the phone receives; both may do both. Nobody runs at first, and they are not paired.
class PairedDevices {
  // First, so that they end after their adapters.
  ServedProcesses _processes;

 public:
  PairedDevices();
  ~PairedDevices();

  void pair() const;
  void startSending();
  void startReceiving(bool acceptsSmaller = false);
  /// The same in the other direction.
  void startSendingBack();
  void startReceivingBack();
  /// Stores values on the laptop and pushes their keys, as a save does.
  void save(const Dictionary& values);

  template <class Condition>
  bool runUntil(Condition condition) {
    return _processes.runUntil(condition);
  }
  bool runUntilInStep();
  /// Whether nothing is on its way in either direction, nor will be.
  bool isAtRest() const;
  bool runUntilAtRest() {
    return runUntil([this] { return isAtRest(); });
  }
  bool runUntilTold(const std::string& text);
  bool hasTold(const std::string& text) const;

  Broker broker{{"laptop", "phone", "tablet"}};
  Device laptop{broker.authority(), "laptop"};
  Device phone{broker.authority(), "phone"};
  Process& process = _processes.at(0);
  std::shared_ptr<LogCollector> log = std::make_shared<WakingLog>(process);
  std::shared_ptr<NotifyFolder> bus;
  int posts = 0;
  std::map<std::string, std::set<std::string>> keys{{SyncDomain, {"list", "titles"}}};  ///< of the initial sync
  std::shared_ptr<PairedDevice> sender;
  std::shared_ptr<DeviceReceiver> receiver;
  std::shared_ptr<PairedDevice> backSender;
  std::shared_ptr<DeviceReceiver> backReceiver;
  /// Called on the receiver's thread before each write on the phone; for the next receiver.
  std::function<void()> beforeWrite = [] {};
  std::vector<std::string> told;
  /// Of what is made next.
  std::size_t largestSent = LargestDeviceMessage, largestTaken = LargestDeviceMessage;

 private:
  std::shared_ptr<PairedDevice> makeSender(const Device& device);
  DeviceReceiverOptions receiverOptions(const Device& device,
                                        const std::shared_ptr<PreferencesSyncService>& sync) const;

  std::shared_ptr<NotifyFolder> _backBus;
};

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
