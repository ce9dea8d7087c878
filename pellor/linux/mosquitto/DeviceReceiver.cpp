#include "pellor/linux/mosquitto/DeviceReceiver.h"

#include <algorithm>
#include <utility>

#include "pellor/linux/mosquitto/SyncMessages.h"
#include "pellor/linux/mosquitto/ValuesWrite.h"

namespace pellor {
namespace {

constexpr BackOff::Pauses Pauses{.first = 0.25, .longest = 60};
// After others wrote in between.
constexpr BackOff::Pauses RetryPauses{.first = 0.01, .longest = 0.25};
constexpr double LockPause = 0.005;
constexpr int MostRetries = 40;

std::ptrdiff_t friendsIn(const Value* value) {
  const Array* array = value ? value->array() : nullptr;
  if (!array) return 0;
  return std::ranges::count_if(*array, [](const Value& element) {
    const Dictionary* dictionary = element.dictionary();
    return dictionary && !dictionary->empty();
  });
}

// One number in all processes of this device, another one for each pairing; nobody's is 0.
std::uint64_t writerOf(const std::string& name, const std::string& fingerprint) {
  const std::string text = name + " " + fingerprint;
  const Data digest = digestOf({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
  std::uint64_t writer = PairedDeviceWriterByte;
  for (std::size_t index = 0; index < 7; ++index) writer = writer << 8 | digest[index];
  return writer;
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
      _kept(_options.folder),
      _tell(std::make_shared<std::function<void(const std::string&)>>(_options.tell)),
      _pauses(Pauses),
      _retryPauses(RetryPauses),
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
  const auto fingerprint = _pairing.fingerprint();
  if (!name || !peer || !keys || !fingerprint) return std::nullopt;
  return Pairing{*peer,         SyncTopics(*name, *peer),     SyncTopics(*peer, *name), *keys,
                 *name < *peer, writerOf(*name, *fingerprint)};
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
  _hasToldOfUnopened = false;
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

void DeviceReceiver::declined(std::size_t size) {
  tell("declined a message of " + std::to_string(size) + " bytes: at most " +
       std::to_string(_options.broker.largestMessage) + " are taken");
}

void DeviceReceiver::arrived(const std::string& topic, std::span<const std::uint8_t> payload) {
  const auto pairing = this->pairing();
  startPairing();
  if (!pairing) return;
  const auto opened = pairing->keys.open(topic, payload);
  if (!opened) return unopened(*pairing, payload);
  if (pairing->fromPeer.isKey(topic)) takeKey(opened->generation, opened->content);
  if (topic == pairing->fromPeer.manifest()) takeManifest(*pairing, opened->generation, opened->content);
}

// An empty message takes back what the broker retained.
void DeviceReceiver::unopened(const Pairing& pairing, std::span<const std::uint8_t> payload) {
  ignore("that the paired device did not seal");
  if (payload.empty() || std::exchange(_hasToldOfUnopened, true)) return;
  tell("what comes from " + pairing.peer + " cannot be opened: both devices have to show the same fingerprint");
}

void DeviceReceiver::takeKey(std::uint64_t generation, const Data& content) {
  const auto message = decodeKeyMessage(content);
  if (!message) return ignore("that does not decode");
  Arrival& received = _received[message->key];
  if (generation < received.generation) return ignore("that is older than one that came before");
  received = {generation, digestOf(content), content};
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

/// The generation that is next; absent while a value has not arrived yet.
std::optional<ArrivedGeneration> DeviceReceiver::arrivedGeneration() const {
  ArrivedGeneration arrived{_next->generation, _next->manifest, {}};
  for (const auto& [key, digest] : _next->manifest.keys) {
    const auto received = _received.find(key);
    if (received != _received.end() && received->second.digest == digest) {
      arrived.messages.emplace(key, received->second.content);
      continue;
    }
    const auto stored = _state.stored.find(key);
    if (const auto kept = _kept.find(digest)) {
      arrived.messages.emplace(key, *encode(*kept));
    } else if (stored == _state.stored.end() || stored->second != digest) {
      return std::nullopt;
    }
  }
  return arrived;
}

void DeviceReceiver::store(const Pairing& pairing) {
  const auto lock = _file.tryLock();
  if (!lock) return _connection.workAgainIn(LockPause);
  if (_pairing.fingerprint() != _fingerprint) return;
  _state = _file.read();
  auto arrived = arrivedGeneration();
  if (!arrived) return;
  const GenerationMerge merge(
      {_state, OutgoingFile(_options.folder).read(), _kept, _options.merge, pairing.isNameFirst}, *std::move(arrived));
  std::string refusal;
  if (!findRefusal(merge, refusal)) return storeLater(PreferenceWriteOutcome::failed);
  if (!refusal.empty()) return refuse(pairing, refusal);
  StoreResult storing;
  PreferenceWriteOutcome outcome = write(pairing, merge, storing);
  if (outcome == PreferenceWriteOutcome::written && !remember(merge)) outcome = PreferenceWriteOutcome::failed;
  if (outcome != PreferenceWriteOutcome::written) return storeLater(outcome);
  if (std::exchange(_storeFails, false)) _log.log("what the paired device sends can be stored again");
  _pauses.reset();
  _retryPauses.reset();
  _retries = 0;
  acknowledge(pairing);
  post(storing.changed);
  tellStored(storing);
}

// The generation stays where it is, to be merged once more with what is stored then.
void DeviceReceiver::storeLater(PreferenceWriteOutcome outcome) {
  if (outcome != PreferenceWriteOutcome::failed && ++_retries <= MostRetries) {
    return _connection.workAgainIn(_retryPauses.next());
  }
  if (!std::exchange(_storeFails, true)) {
    _log.log(outcome == PreferenceWriteOutcome::failed
                 ? "what the paired device sends cannot be stored"
                 : "what the paired device sends is not stored yet: other programs keep changing the list");
  }
  _connection.workAgainIn(_pauses.next());
}

void DeviceReceiver::tellStored(const StoreResult& storing) {
  const std::string generation = "generation " + std::to_string(_state.generation);
  tell(storing.isMerged ? "stored " + generation + ", merged with what was edited here" : "stored " + generation);
  if (storing.leftOut == 0) return;
  _log.log("%lu friends had no room on the list that was merged with the paired device's", storing.leftOut);
  tell("no room for " + std::to_string(storing.leftOut) + " friends");
}

// False when the store cannot be read.
bool DeviceReceiver::findRefusal(const GenerationMerge& merge, std::string& refusal) const {
  if (_options.acceptsSmaller || !merge.isFirst()) return true;
  for (const auto& [domain, keys] : merge.keys()) {
    const std::vector<std::string> names(keys.begin(), keys.end());
    const auto present = _options.preferences->read(names, domain);
    if (!present.isReadable()) return false;
    for (const auto& [key, stored] : *present.value()) {
      const auto before = friendsIn(stored.value ? &*stored.value : nullptr),
                 after = friendsIn(valueForKey(merge.arrived(domain), key));
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

// What has to be sent back is asked for before the generation is remembered: a process that ends in between merges once
// more, finds its own write, and asks again.
PreferenceWriteOutcome DeviceReceiver::write(const Pairing& pairing, const GenerationMerge& merge,
                                             StoreResult& storing) {
  // By its name the write is known after the end of the process: this device's, of that generation.
  const PreferenceWriteID id{pairing.writer, _next->generation};
  for (const auto& [domain, keys] : merge.keys()) {
    std::size_t leftOut = 0;
    const WrittenValues written =
        writeValues(*_options.preferences, domain, keys, id, [&, &name = domain](const Dictionary& stored) {
          MergedValues merged = merge.merged(name, stored);
          leftOut = merged.leftOut;
          return merged.values;
        });
    if (written.outcome != PreferenceWriteOutcome::written) return written.outcome;
    storing.leftOut += leftOut;
    storing.isMerged = storing.isMerged || written.values != merge.arrived(domain);
    if (!written.changed.empty()) storing.changed[domain] = written.changed;
    if (_options.sync && merge.needsSending(domain, written.values)) _options.sync->synchronizeDomainKeys(domain, keys);
  }
  return PreferenceWriteOutcome::written;
}

bool DeviceReceiver::remember(const GenerationMerge& merge) {
  auto next = merge.next();
  if (!next || _file.write(*next)) return false;
  _kept.retain(next->digests());
  _state = *std::move(next);
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

void DeviceReceiver::post(const std::map<std::string, std::set<std::string>>& changed) {
  std::vector<std::string> names;
  for (const auto& [domain, keys] : changed) {
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
