#include "tests/services/PairedDevices.h"

#include <algorithm>

namespace pellor {
namespace {

const LogHandle Silent("org.tapnote.Pellor", "preferences", nullptr);

}  // namespace

std::shared_ptr<PreferencesStore> Device::openStore() const {
  return std::make_shared<SQLitePreferences>(folder.path(), folder / "defaults.json", Silent);
}

void Device::store(const std::string& key, std::optional<Value> value, const std::string& domain) const {
  const auto preferences = openStore();
  preferences->setValue(key, std::move(value), domain);
  EXPECT_TRUE(preferences->synchronize(domain));
}

std::optional<Value> Device::stored(const std::string& key, const std::string& domain) const {
  return openStore()->copyValue(key, domain).value();
}

RawClient::RawClient(Process& process, const Broker& broker, const Device& device)
    : _process(process),
      _topic("pellor/" + *device.pairing.name() + "/#"),
      _connection(*this, broker.options(), device.pairing.credentials(), "raw-" + *device.pairing.name(), {},
                  LogHandle("", "", nullptr)) {}

void RawClient::connected() { _connection.subscribe(_topic); }

void RawClient::arrived(const std::string& topic, std::span<const std::uint8_t> payload) {
  tell([heard = std::weak_ptr(_heard), topic, payload = Data(payload.begin(), payload.end())] {
    if (const auto list = heard.lock()) list->emplace_back(topic, payload);
  });
}

void RawClient::subscribed() {
  for (const auto& [topic, payload] : _published) _connection.publish(topic, payload);
  if (_published.empty()) delivered(true);
}

void RawClient::delivered(bool) {
  tell([isDone = _isDone] { *isDone = true; });
}

PairedDevices::PairedDevices() {
  const Process::Scope scope(process);
  bus = NotifyFolder::make(process, phone.folder / "notify", LogHandle("org.tapnote.Pellor", "bus", nullptr));
  bus->addObserver(
      this, [this] { ++posts; }, ChangeName);
}

PairedDevices::~PairedDevices() {
  const Process::Scope scope(process);
  sender.reset();
  receiver.reset();
  bus.reset();
}

void PairedDevices::pair() const {
  laptop.pairing.pair(phone.pairing.invitation());
  phone.pairing.pair(laptop.pairing.invitation());
  EXPECT_EQ(laptop.pairing.fingerprint(), phone.pairing.fingerprint());
}

void PairedDevices::startSending() {
  const Process::Scope scope(process);
  PairedDeviceOptions options;
  options.broker = broker.options();
  options.folder = laptop.pairing.folder();
  options.keys = keys;
  options.preferences = laptop.openStore();
  options.statusChanged = [] {};
  sender = PairedDevice::make(process, std::move(options), LogHandle("", "sender", log));
}

void PairedDevices::startReceiving(bool acceptsSmaller) {
  const Process::Scope scope(process);
  DeviceReceiverOptions options;
  options.broker = broker.options();
  options.folder = phone.pairing.folder();
  options.preferences = phone.openStore();
  options.notifyBus = bus;
  options.changeNames = [](const std::string&, const std::set<std::string>&) {
    return std::vector<std::string>{ChangeName};
  };
  options.acceptsSmaller = acceptsSmaller;
  options.tell = [this](const std::string& text) { told.push_back(text); };
  receiver = DeviceReceiver::make(process, std::move(options), LogHandle("", "receiver", log));
}

void PairedDevices::save(const Dictionary& values) {
  std::set<std::string> keysOfValues;
  for (const auto& [key, value] : values) {
    laptop.store(key, value);
    keysOfValues.insert(key);
  }
  sender->synchronizeDomainKeys(SyncDomain, keysOfValues);
}

bool PairedDevices::runUntilInStep() {
  return runUntil([this] {
    const PairedDeviceStatus status = sender->status();
    return status.due.empty() && status.generation > 0 && status.acknowledged == status.generation;
  });
}

bool PairedDevices::hasTold(const std::string& text) const {
  return std::ranges::any_of(told, [&](const std::string& line) { return line.find(text) != std::string::npos; });
}

bool PairedDevices::runUntilTold(const std::string& text) {
  return runUntil([&] { return hasTold(text); });
}

}  // namespace pellor
