#include "tests/services/PairedDevices.h"

#include <algorithm>
#include <utility>

#include "tests/pellor/SlowStore.h"

namespace pellor {
namespace {

Array elementsOf(const Dictionary& values, const std::string& key) {
  const Value* value = valueForKey(values, key);
  return value && value->array() ? *value->array() : Array();
}

bool contains(const Array& list, const Value& element) { return std::ranges::find(list, element) != list.end(); }

Array mergedList(const Array& base, const Array& theirs, const Array& ours) {
  Array list;
  for (const Value& element : theirs) {
    if (contains(ours, element) || !contains(base, element)) list.push_back(element);
  }
  for (const Value& element : ours) {
    if (!contains(theirs, element) && !contains(base, element)) list.push_back(element);
  }
  return list;
}

bool isListOfFriends(const Value* value) {
  return value && value->array() && !value->array()->empty() && value->array()->front().dictionary();
}

bool isEqual(const Value* left, const Value* right) { return left && right ? *left == *right : left == right; }

}  // namespace

MergedValues mergeSets(const std::string&, const Dictionary& base, const Dictionary& theirs, const Dictionary& ours) {
  Dictionary values;
  std::set<std::string> keys;
  for (const Dictionary* side : {&base, &theirs, &ours}) {
    for (const auto& [key, value] : *side) keys.insert(key);
  }
  for (const std::string& key : keys) {
    const Value* kept = valueForKey(isEqual(valueForKey(ours, key), valueForKey(base, key)) ? theirs : ours, key);
    const bool isList = isListOfFriends(valueForKey(theirs, key)) && isListOfFriends(valueForKey(ours, key));
    if (isList) {
      values.emplace(key, mergedList(elementsOf(base, key), elementsOf(theirs, key), elementsOf(ours, key)));
    } else if (kept) {
      values.emplace(key, *kept);
    }
  }
  return {values, 0};
}

RawClient::RawClient(Process& process, const Broker& broker, const Device& device, Messages published)
    : _process(process),
      _topic("pellor/" + *device.pairing.name() + "/#"),
      _published(std::move(published)),
      _connection(*this, broker.options(), device.pairing.credentials(), "raw-" + *device.pairing.name(), {},
                  LogHandle("", "", nullptr)) {
  _connection.start();
}

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
  _backBus = NotifyFolder::make(process, laptop.folder / "notify", LogHandle("org.tapnote.Pellor", "bus", nullptr));
}

PairedDevices::~PairedDevices() {
  const Process::Scope scope(process);
  sender.reset();
  receiver.reset();
  backSender.reset();
  backReceiver.reset();
  bus.reset();
  _backBus.reset();
}

void PairedDevices::pair() const {
  laptop.pairing.pair(phone.pairing.invitation());
  phone.pairing.pair(laptop.pairing.invitation());
  EXPECT_EQ(laptop.pairing.fingerprint(), phone.pairing.fingerprint());
}

std::shared_ptr<PairedDevice> PairedDevices::makeSender(const Device& device) {
  PairedDeviceOptions options;
  options.broker = broker.options();
  options.broker.largestMessage = largestSent;
  options.folder = device.pairing.folder();
  options.keys = keys;
  options.preferences = device.preferences->storeFor(process);
  options.statusChanged = [] {};
  return PairedDevice::make(process, std::move(options), LogHandle("", "sender", log));
}

DeviceReceiverOptions PairedDevices::receiverOptions(const Device& device,
                                                     const std::shared_ptr<PreferencesSyncService>& sync) const {
  DeviceReceiverOptions options;
  options.broker = broker.options();
  options.broker.largestMessage = largestTaken;
  options.folder = device.pairing.folder();
  options.preferences = device.preferences->storeFor(process);
  options.changeNames = [](const std::string&, const std::set<std::string>&) {
    return std::vector<std::string>{ChangeName};
  };
  options.merge = mergeSets;
  options.sync = sync;
  return options;
}

void PairedDevices::startSending() {
  const Process::Scope scope(process);
  sender = makeSender(laptop);
}

void PairedDevices::startSendingBack() {
  const Process::Scope scope(process);
  backSender = makeSender(phone);
}

void PairedDevices::startReceiving(bool acceptsSmaller) {
  const Process::Scope scope(process);
  DeviceReceiverOptions options = receiverOptions(phone, backSender);
  options.preferences =
      std::make_shared<SlowStore>(options.preferences, [before = beforeWrite](std::string_view) { before(); });
  options.notifyBus = bus;
  options.acceptsSmaller = acceptsSmaller;
  options.tell = [this](const std::string& text) { told.push_back(text); };
  receiver = DeviceReceiver::make(process, std::move(options), LogHandle("", "receiver", log));
}

void PairedDevices::startReceivingBack() {
  const Process::Scope scope(process);
  DeviceReceiverOptions options = receiverOptions(laptop, sender);
  options.notifyBus = _backBus;
  backReceiver = DeviceReceiver::make(process, std::move(options), LogHandle("", "receiver", log));
}

void PairedDevices::save(const Dictionary& values) {
  std::set<std::string> keysOfValues;
  for (const auto& [key, value] : values) {
    laptop.store(key, value);
    keysOfValues.insert(key);
  }
  sender->synchronizeDomainKeys(SyncDomain, keysOfValues);
}

namespace {

bool isInStep(const PairedDeviceStatus& status) {
  return status.due.empty() && status.generation > 0 && status.acknowledged == status.generation;
}

}  // namespace

bool PairedDevices::runUntilInStep() {
  return runUntil([this] { return isInStep(sender->status()); });
}

// What one receives makes its own generation due before it is acknowledged. So if each was in step before and after the
// other one was, neither has anything to come.
bool PairedDevices::isAtRest() const {
  const std::uint64_t first = sender->status().generation, back = backSender->status().generation;
  const bool isAtRest = isInStep(sender->status()) && isInStep(backSender->status()) && isInStep(sender->status()) &&
                        isInStep(backSender->status());
  return isAtRest && sender->status().generation == first && backSender->status().generation == back;
}

bool PairedDevices::hasTold(const std::string& text) const {
  return std::ranges::any_of(told, [&](const std::string& line) { return line.find(text) != std::string::npos; });
}

bool PairedDevices::runUntilTold(const std::string& text) {
  return runUntil([&] { return hasTold(text); });
}

}  // namespace pellor
