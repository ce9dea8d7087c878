#include "linux/mosquitto/DeviceReceiver.h"

#include <algorithm>
#include <utility>

#include "linux/mosquitto/SyncMessages.h"

namespace pellor {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds FirstPause{250};
constexpr milliseconds LongestPause = std::chrono::minutes(1);

std::ptrdiff_t friendsIn(const std::optional<Value>& value) {
  const Array* array = value ? value->array() : nullptr;
  if (!array) return 0;
  return std::ranges::count_if(*array, [](const Value& element) {
    const Dictionary* dictionary = element.dictionary();
    return dictionary && !dictionary->empty();
  });
}

FileLock lockOf(const std::filesystem::path& folder) {
  auto lock = FileLock::tryTake(folder / "receiving.lock");
  if (!lock)
    throw DeviceError("another process receives for this device already, or " + folder.string() + " cannot be written");
  return *std::move(lock);
}

}  // namespace

std::shared_ptr<DeviceReceiver> DeviceReceiver::make(Process& process, DeviceReceiverOptions options, LogHandle log) {
  FileLock lock = lockOf(options.folder);
  auto receiver =
      std::make_shared<DeviceReceiver>(Passkey{}, process, std::move(options), std::move(log), std::move(lock));
  receiver->_connection.start();
  return receiver;
}

DeviceReceiver::DeviceReceiver(Passkey, Process& process, DeviceReceiverOptions options, LogHandle log, FileLock lock)
    : _process(process),
      _options(std::move(options)),
      _log(std::move(log)),
      _lock(std::move(lock)),
      _pairing(_options.folder),
      _file(_options.folder),
      _tell(std::make_shared<std::function<void(const std::string&)>>(_options.tell)),
      _pause(FirstPause),
      // Of its own name: a receiver that was cut off and comes back ends its former connection.
      _connection(*this, _options.broker, _pairing.credentials(),
                  "pellor-receiver-" + _pairing.name().value_or(std::string()), _options.folder, _log) {
  _process.requireMainQueue("DeviceReceiver::make");
}

DeviceReceiver::~DeviceReceiver() { *_tell = nullptr; }

std::optional<DeviceReceiver::Pairing> DeviceReceiver::pairing() const {
  const auto name = _pairing.name();
  auto peer = _pairing.peer();
  const auto keys = _pairing.sealingKeys();
  if (!name || !peer || !keys) return std::nullopt;
  return Pairing{*peer, SyncTopics(*name, *peer), SyncTopics(*peer, *name), *keys};
}

void DeviceReceiver::work() {
  const auto pairing = this->pairing();
  startPairing();
  _connection.setWanted(pairing.has_value());
  if (!_connection.isConnected()) return;
  listen(pairing);
  if (pairing && _next) store(*pairing);
}

// Also one that was made while this process runs.
void DeviceReceiver::startPairing() {
  const auto fingerprint = _pairing.fingerprint();
  if (fingerprint == _fingerprint) return;
  _fingerprint = fingerprint;
  _state = fingerprint ? _file.read() : IncomingState();
  _received.clear();
  _next.reset();
  _listensTo.clear();
}

void DeviceReceiver::listen(const std::optional<Pairing>& pairing) {
  const std::string topic = pairing ? pairing->fromPeer.all() : std::string();
  if (std::exchange(_listensTo, topic) == topic || !pairing) return;
  acknowledge(*pairing);
  _connection.subscribe(topic);
  tell("receiving from " + pairing->peer);
}

void DeviceReceiver::connected() { _isAway = false; }

void DeviceReceiver::disconnected() {
  _listensTo.clear();
  if (!std::exchange(_isAway, true)) tell("the broker is away: " + _connection.problem());
}

void DeviceReceiver::arrived(const std::string& topic, std::span<const std::uint8_t> payload) {
  const auto pairing = this->pairing();
  startPairing();
  if (!pairing) return;
  const auto opened = pairing->keys.open(topic, payload);
  if (!opened) return ignore("that the paired device did not seal");
  if (pairing->fromPeer.isKey(topic)) takeKey(opened->generation, opened->content);
  if (topic == pairing->fromPeer.manifest()) takeManifest(*pairing, opened->generation, opened->content);
}

void DeviceReceiver::takeKey(std::uint64_t generation, const Data& content) {
  auto message = decodeKeyMessage(content);
  if (!message) return ignore("that does not decode");
  Received& received = _received[message->key];
  if (generation < received.generation) return ignore("that is older than one that came before");
  received = {generation, digestOf(content), std::move(message->value)};
}

void DeviceReceiver::takeManifest(const Pairing& pairing, std::uint64_t generation, const Data& content) {
  auto manifest = decodeManifest(content);
  if (!manifest) return ignore("that does not decode");
  if (generation > std::max(_state.generation, _next ? _next->generation : 0)) {
    _next = NextManifest{generation, *std::move(manifest)};
  } else if (generation < _state.generation) {
    ignore("of a generation that was stored before");
    // If its sender lost count, this tells where to go on.
    acknowledge(pairing);
  }
}

void DeviceReceiver::ignore(const char* what) { _log.log("a message %@ was ignored", what); }

/// What is to be written; absent while a value has not arrived yet.
std::optional<DeviceReceiver::DomainValues> DeviceReceiver::changesOfManifest() const {
  DomainValues changes;
  for (const auto& [key, digest] : _next->keys) {
    const auto stored = _state.stored.find(key);
    if (stored != _state.stored.end() && stored->second == digest) continue;
    const auto received = _received.find(key);
    if (received == _received.end() || received->second.digest != digest) return std::nullopt;
    changes[key.first][key.second] = received->second.value;
  }
  return changes;
}

void DeviceReceiver::store(const Pairing& pairing) {
  const auto changes = changesOfManifest();
  if (!changes) return;
  std::string refusal;
  const bool couldRead = findRefusal(*changes, refusal);
  if (couldRead && !refusal.empty()) return refuse(pairing, refusal);
  const bool isStored = couldRead && write(*changes) && remember();
  if (std::exchange(_storeFails, !isStored) == isStored) {
    _log.log(isStored ? "what the paired device sends can be stored again"
                      : "what the paired device sends cannot be stored");
  }
  if (!isStored) {
    _connection.workAgainIn(_pause);
    _pause = std::min(_pause * 2, LongestPause);
    return;
  }
  _pause = FirstPause;
  acknowledge(pairing);
  post(*changes);
  tell("stored generation " + std::to_string(_state.generation));
}

// False when the store cannot be read.
bool DeviceReceiver::findRefusal(const DomainValues& changes, std::string& refusal) const {
  for (const auto& [domain, values] : changes) {
    if (!_options.preferences->synchronize(domain)) return false;
    for (const auto& [key, value] : values) {
      const auto present = _options.preferences->copyValue(key, domain);
      if (!present.isReadable()) return false;
      if (_options.acceptsSmaller || _state.stored.contains({domain, key})) continue;
      const auto before = friendsIn(present.value()), after = friendsIn(value);
      if (after * 2 >= before) continue;
      refusal = "of " + std::to_string(before) + " friends on this device " + std::to_string(after) + " would be left";
    }
  }
  return true;
}

void DeviceReceiver::refuse(const Pairing& pairing, const std::string& reason) {
  const RefusedGeneration refused{std::exchange(_next, std::nullopt)->generation, reason};
  // It comes again with each connection.
  const bool isKnown = std::exchange(_state.refused, refused) == refused;
  acknowledge(pairing);
  if (isKnown) return;
  if (const auto error = _file.write(_state)) _log.log("a refusal was not kept: %@", redactable(*error));
  _log.log("generation %lu of the paired device was refused: %@", refused.generation, reason);
  tell("refused generation " + std::to_string(refused.generation) + ": " + reason);
}

bool DeviceReceiver::write(const DomainValues& changes) {
  bool isWritten = true;
  for (const auto& [domain, values] : changes) {
    for (const auto& [key, value] : values) _options.preferences->setValue(key, value, domain);
    isWritten = _options.preferences->synchronize(domain) && isWritten;
  }
  return isWritten;
}

// After the values: what is not remembered is written once more, with the same result.
bool DeviceReceiver::remember() {
  IncomingState next{_next->generation, std::nullopt, _next->keys};
  if (_file.write(next)) return false;
  _state = std::move(next);
  _next.reset();
  std::erase_if(_received, [&](const auto& entry) { return entry.second.generation <= _state.generation; });
  return true;
}

void DeviceReceiver::acknowledge(const Pairing& pairing) {
  const std::uint64_t generation = _state.refused ? _state.refused->generation : _state.generation;
  if (!_connection.isConnected()) return;
  const std::string topic = pairing.toPeer.acknowledgement();
  const Acknowledgement acknowledgement{_state.refused ? _state.refused->reason : std::string()};
  _connection.publish(topic, pairing.keys.seal(topic, generation, *encode(acknowledgement)));
}

void DeviceReceiver::post(const DomainValues& changes) {
  std::vector<std::string> names;
  for (const auto& [domain, values] : changes) {
    std::set<std::string> keys;
    for (const auto& [key, value] : values) keys.insert(key);
    for (const std::string& name : _options.changeNames(domain, keys)) {
      if (std::ranges::find(names, name) == names.end()) names.push_back(name);
    }
  }
  _process.mainQueue().async([names, bus = _options.notifyBus] {
    for (const std::string& name : names) bus->post(name);
  });
}

void DeviceReceiver::tell(std::string text) {
  _process.mainQueue().async([handler = _tell, text = std::move(text)] {
    if (*handler) (*handler)(text);
  });
}

}  // namespace pellor
