#include "pellor/linux/mosquitto/PairedDevice.h"

#include <algorithm>
#include <utility>

namespace pellor {
namespace {

using std::chrono::milliseconds;

constexpr BackOff::Pauses PushPauses{.first = 0.02, .longest = 60};
// How long a process that is about to end waits for a push.
constexpr milliseconds LongestBusy = std::chrono::seconds(2);
// More than the seal adds to a message.
constexpr std::size_t MostOfSeal = 128;

constexpr const char* TooLarge =
    "a value is too large for the paired device (at most 64 MiB each): nothing is sent until it is smaller";

}  // namespace

std::shared_ptr<PairedDevice> PairedDevice::make(Process& process, PairedDeviceOptions options, LogHandle log) {
  auto device = std::make_shared<PairedDevice>(Passkey{}, process, std::move(options), std::move(log));
  device->_connection.start();
  return device;
}

PairedDevice::PairedDevice(Passkey, Process& process, PairedDeviceOptions options, LogHandle log)
    : _process(process),
      _options(std::move(options)),
      _log(std::move(log)),
      _pairing(_options.folder),
      _file(_options.folder),
      _exchanged(_options.folder),
      _messageStore(_options.folder),
      _statusChanged(std::make_shared<std::function<void()>>(_options.statusChanged)),
      _pauses(PushPauses),
      _connection(*this, _options.broker, _pairing.credentials(), MQTTConnection::anyClientId(), _options.folder,
                  _log) {
  _process.requireMainQueue("PairedDevice::make");
  _process.addSettleParticipant(*this);
}

PairedDevice::~PairedDevice() {
  _process.removeSettleParticipant(*this);
  *_statusChanged = nullptr;
}

// Any thread

bool PairedDevice::hasCompletedInitialSync() { return _pairing.peer() && _file.read().acknowledged > 0; }

void PairedDevice::synchronizeDomainKeys(std::string_view domain, const std::set<std::string>& keys) {
  if (keys.empty() || !_pairing.peer()) return;
  {
    const MutexLock lock(_mutex);
    for (const std::string& key : keys) _kept.emplace(domain, key);
    _busyUntil = std::chrono::steady_clock::now() + LongestBusy;
  }
  requestKept();
  _connection.wake();
}

PairedDeviceStatus PairedDevice::status() const {
  const OutgoingState state = _file.read();
  PairedDeviceStatus status;
  status.name = _pairing.name();
  status.peer = _pairing.peer();
  status.problem = _connection.problem();
  if (_isTooLarge) status.problem = TooLarge;
  status.isUpToDate = _isUpToDate;
  if (!status.peer) return status;
  status.generation = state.generation;
  status.acknowledged = state.acknowledged;
  status.hasCompletedInitialSync = state.acknowledged > 0;
  status.refused = state.refused;
  for (const auto& [key, request] : state.due) status.due.push_back(key);
  return status;
}

// Taken out first: a caller that asks for such a key meanwhile means a later value, and writes for itself.
void PairedDevice::requestKept() {
  std::set<DomainKey> keys;
  {
    const MutexLock lock(_mutex);
    keys.swap(_kept);
  }
  if (keys.empty() || request(keys)) return;
  const MutexLock lock(_mutex);
  _kept.merge(keys);
}

bool PairedDevice::request(const std::set<DomainKey>& keys) {
  return update([&](OutgoingState& state) {
    for (const DomainKey& key : keys) state.request(key);
  });
}

bool PairedDevice::update(const std::function<void(OutgoingState&)>& change) {
  const auto error = _file.update(change);
  const bool failedBefore = _fileFails.exchange(error.has_value());
  if (error && !failedBefore) _log.log("what is to be sent cannot be kept: %@", redactable(*error));
  if (!error && failedBefore) _log.log("what is to be sent is kept again");
  return !error;
}

// Main queue

bool PairedDevice::isSettled() const {
  const MutexLock lock(_mutex);
  return std::chrono::steady_clock::now() >= _busyUntil;
}

bool PairedDevice::isWritten() const {
  const MutexLock lock(_mutex);
  return _kept.empty();
}

// The connection's thread

std::optional<PairedDevice::Pairing> PairedDevice::pairing() const {
  auto name = _pairing.name(), peer = _pairing.peer();
  const auto keys = _pairing.sealingKeys();
  if (!name || !peer || !keys) return std::nullopt;
  return Pairing{*std::move(name), *std::move(peer), *keys};
}

void PairedDevice::work() {
  requestKept();
  const auto pairing = this->pairing();
  if (pairing) requestMissing(_file.read());
  const OutgoingState state = _file.read();
  const bool hasToSend = !state.emptied.empty() || (pairing && !state.due.empty());
  const bool hasToHear = pairing && (state.acknowledged < state.generation || _options.alwaysConnects);
  // A connection that was there is made again: to hear the device, and to say that the broker is back.
  _needsConnection = hasToSend || hasToHear || (_needsConnection && pairing);
  _connection.setWanted(_needsConnection);
  if (!hasToSend) endBusy();
  // Also after what other processes did.
  const std::array told = {state.generation, state.acknowledged, std::uint64_t{state.due.size()}};
  if (std::exchange(_told, told) != told) tellStatus();
  if (!_connection.isConnected()) return;
  listen(pairing);
  // Not before it is known what the device has.
  if (hasToSend && !_sending && (_isUpToDate || !pairing)) send();
}

// What a pairing begins with, and keys that were not among the options of an earlier process.
void PairedDevice::requestMissing(const OutgoingState& state) {
  std::set<DomainKey> missing;
  for (const auto& [domain, keys] : _options.keys) {
    for (const std::string& key : keys) missing.emplace(domain, key);
  }
  std::erase_if(missing, [&](const DomainKey& key) { return state.sent.contains(key) || state.due.contains(key); });
  // Those that are being sent are in `due`.
  if (!missing.empty()) request(missing);
}

void PairedDevice::listen(const std::optional<Pairing>& pairing) {
  const std::string topic = pairing ? SyncTopics(pairing->name, pairing->peer).acknowledgement() : std::string();
  if (std::exchange(_listensTo, topic) == topic) return;
  _isUpToDate = false;
  if (pairing) _connection.subscribe(topic);
}

void PairedDevice::send() {
  auto lock = FileLock::tryTake(_options.folder / SendingLockFile);
  if (!lock) return pause();
  // The process that held the lock may have revoked the device, or sent all.
  const auto pairing = this->pairing();
  OutgoingState state = _file.read();
  Push sending{*std::move(lock), 0, {}, {}, {}, 0, state.emptied};
  if (pairing && !state.due.empty() && !readAndBegin(state, sending)) return pause();
  if (sending.messages.empty() && sending.emptied.empty()) return tellStatus();
  publish(pairing, sending, state);
  _sending = std::move(sending);
}

// Under the lock of the exchange: the receiver stores nothing between the reading of the values and the note of what
// they include. Each message is kept before it goes out, since an answer may come at any time.
bool PairedDevice::readAndBegin(OutgoingState& state, Push& sending) {
  const auto lock = _exchanged.tryLock();
  if (!lock) return false;
  IncomingState exchanged = _exchanged.read();
  sending.included = exchanged.generation;
  if (!readValues(state, sending)) return false;
  chooseMessages(state, exchanged.expected, sending);
  if (!areSmallEnough(sending)) return false;
  const bool isBegun = update([&](OutgoingState& stored) {
    begin(stored, sending);
    state = stored;
  });
  return isBegun && (sending.messages.empty() || keepSent(std::move(exchanged), state, sending));
}

bool PairedDevice::readValues(const OutgoingState& state, Push& sending) {
  OutgoingState all = state;
  all.requestAll();
  bool isReadable = true;
  for (const auto& [key, request] : all.due) {
    const bool isNewDomain = sending.values.empty() || sending.values.rbegin()->first.first != key.first;
    isReadable = isReadable && (!isNewDomain || _options.preferences->synchronize(key.first));
    const auto answer = _options.preferences->copyValue(key.second, key.first);
    auto message = answer.isReadable() ? encode(KeyMessage{key, answer.value()}) : std::nullopt;
    isReadable = isReadable && message;
    if (!isReadable) break;
    sending.values.emplace(key, *std::move(message));
  }
  if (std::exchange(_storeFails, !isReadable) == isReadable) {
    _log.log(isReadable ? "the values for the paired device can be read again"
                        : "the values for the paired device cannot be read");
  }
  sending.requests = state.due;
  return isReadable;
}

// Once a value has to go out all do that the device may not have: what it gets is one moment's.
void PairedDevice::chooseMessages(const OutgoingState& state, const Manifest& expected, Push& sending) {
  bool isNeeded = false;
  for (const auto& [key, message] : sending.values) {
    const Data digest = digestOf(message);
    const auto sent = state.sent.find(key);
    const auto known = expected.find(key);
    const bool isSent = sent != state.sent.end() && sent->second.digest == digest;
    const bool isThere = sent != state.sent.end() && (known == expected.end() ? isSent : known->second == digest);
    if (!isSent || !isThere) sending.messages.emplace(key, message);
    isNeeded = isNeeded || !isThere;
  }
  if (!isNeeded) sending.messages.clear();
}

// All or nothing: half of an edit is none.
bool PairedDevice::areSmallEnough(const Push& sending) {
  const bool isTooLarge = std::ranges::any_of(sending.messages, [this](const auto& message) {
    return message.second.size() + MostOfSeal > _options.broker.largestMessage;
  });
  if (_isTooLarge.exchange(isTooLarge) == isTooLarge) return !isTooLarge;
  if (isTooLarge)
    _log.log("%@", TooLarge);
  else
    _log.log("what is to be sent to the paired device is small enough again");
  tellStatus();
  return !isTooLarge;
}

// Written before anything is sent: a generation is used once, and what the broker holds of these keys is not known
// until it has answered.
void PairedDevice::begin(OutgoingState& state, Push& sending) {
  for (const auto& [key, message] : sending.messages) {
    state.sent.erase(key);
    if (!state.due.contains(key)) state.request(key);
    sending.requests.emplace(key, state.due.at(key));
  }
  for (const auto& [key, request] : sending.requests) {
    if (!sending.messages.contains(key)) state.fulfil(key, request);
  }
  if (!sending.messages.empty()) sending.generation = ++state.generation;
}

bool PairedDevice::keepSent(IncomingState exchanged, const OutgoingState& state, const Push& sending) {
  Manifest manifest;
  bool isKept = true;
  for (const auto& [key, message] : sending.values) {
    isKept = isKept && _messageStore.keep(message);
    manifest.emplace(key, digestOf(message));
  }
  exchanged.addSent(sending.generation, manifest, state.acknowledged);
  if (isKept && !_exchanged.write(exchanged)) return true;
  if (!_fileFails.exchange(true)) _log.log("what is to be sent cannot be kept");
  return false;
}

void PairedDevice::publish(const std::optional<Pairing>& pairing, const Push& sending, const OutgoingState& state) {
  // First: this device may be paired anew.
  for (const std::string& topic : sending.emptied) _connection.publish(topic, {});
  if (!pairing || sending.messages.empty()) return;
  const SyncTopics topics(pairing->peer, pairing->name);
  const auto publishSealed = [&](const std::string& topic, const Data& content) {
    _connection.publish(topic, pairing->keys.seal(topic, sending.generation, content));
  };
  ManifestMessage manifest;
  manifest.included = sending.included;
  for (const auto& [key, known] : state.sent) manifest.keys.emplace(key, known.digest);
  for (const auto& [key, message] : sending.messages) {
    publishSealed(topics.key(pairing->keys.nameFor(nameOf(key))), message);
    manifest.keys.emplace(key, digestOf(message));
  }
  publishSealed(topics.manifest(), *encode(manifest));
}

void PairedDevice::delivered(bool isAccepted) {
  if (!_sending) return;
  if (std::exchange(_isRefused, !isAccepted) == isAccepted) {
    _log.log(isAccepted ? "the broker allows to send to the paired device again"
                        : "the broker does not allow to send to the paired device");
  }
  if (isAccepted) {
    finish();
    _pauses.reset();
  } else {
    pause();
  }
  _sending.reset();
  tellStatus();
}

void PairedDevice::finish() {
  update([&](OutgoingState& state) {
    for (const auto& [key, message] : _sending->messages) {
      state.sent[key] = {digestOf(message), _sending->generation};
      state.fulfil(key, _sending->requests.at(key));
    }
    for (const std::string& topic : _sending->emptied) state.emptied.erase(topic);
  });
}

void PairedDevice::connected() {}

void PairedDevice::disconnected() {
  _sending.reset();
  _listensTo.clear();
  _isUpToDate = false;
  endBusy();
  tellStatus();
}

// What the device acknowledged before has arrived. The rest it may have never got.
void PairedDevice::subscribed() {
  _isUpToDate = true;
  update([](OutgoingState& state) { state.requestAgainAfter(state.acknowledged); });
  tellStatus();
}

void PairedDevice::arrived(const std::string& topic, std::span<const std::uint8_t> payload) {
  const auto pairing = this->pairing();
  if (!pairing || topic != _listensTo) return;
  const auto opened = pairing->keys.open(topic, payload);
  const auto acknowledgement = opened ? decodeAcknowledgement(opened->content) : std::nullopt;
  if (!acknowledgement) {
    _log.log("an acknowledgement that is not the paired device's was ignored");
    return;
  }
  update([&](OutgoingState& state) { state.take(opened->generation, *acknowledgement); });
  tellStatus();
}

void PairedDevice::pause() {
  endBusy();
  _connection.workAgainIn(_pauses.next());
}

void PairedDevice::endBusy() {
  {
    const MutexLock lock(_mutex);
    if (_busyUntil <= std::chrono::steady_clock::now()) return;
    _busyUntil = {};
  }
  // A `settle` of this process looks again after a task.
  _process.mainQueue().async([] {});
}

void PairedDevice::tellStatus() {
  _process.mainQueue().async([handler = _statusChanged] {
    if (*handler) (*handler)();
  });
}

}  // namespace pellor
