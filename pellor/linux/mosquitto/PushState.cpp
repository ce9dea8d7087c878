#include "pellor/linux/mosquitto/PushState.h"

#include <iterator>

#include "pellor/linux/files/internal/PrivatePlace.h"
#include "pellor/linux/mosquitto/MessageStore.h"
#include "pellor/linux/mosquitto/SealingKeys.h"
#include "pellor/runtime/CBOR.h"

namespace pellor {
namespace {

constexpr const char* GenerationKey = "generation";
constexpr const char* AcknowledgedKey = "acknowledged";
constexpr const char* RefusedKey = "refused";
constexpr const char* RequestsKey = "requests";
constexpr const char* DueKey = "due";
constexpr const char* SentKey = "sent";
constexpr const char* EmptiedKey = "emptied";
constexpr const char* StoredKey = "stored";
constexpr const char* IncludedMember = "included";
constexpr const char* OwnSentKey = "ownSent";
constexpr const char* ExpectedKey = "expected";

constexpr const char* IncomingLockFile = "incoming.lock";

// Of own generations that the other device may not have taken; the first and the latest ones tell most.
constexpr std::size_t MostSent = 8;

// A key with what is known of it is an array of three or four elements.
constexpr std::size_t DomainIndex = 0, KeyIndex = 1, FirstIndex = 2, SecondIndex = 3;

Data stateIn(const std::filesystem::path& file) {
  const std::string content = PrivateFile(file).read().text.value_or("");
  return {content.begin(), content.end()};
}

Value numberOf(std::uint64_t number) { return static_cast<std::int64_t>(number); }

/// Reads members of a state; a missing one or one of another kind makes the whole of it unusable.
class StateReader {
 public:
  explicit StateReader(std::span<const std::uint8_t> bytes) : _value(decodeCBOR(bytes)) {}

  bool isSound() const { return _isSound && _value && _value->dictionary(); }

  bool has(std::string_view key) const { return member(key); }
  std::uint64_t number(std::string_view key) { return number(member(key)); }
  std::uint64_t number(const Value* value) {
    const std::int64_t integer = value ? value->integer().value_or(-1) : -1;
    _isSound = _isSound && integer >= 0;
    return _isSound ? static_cast<std::uint64_t>(integer) : 0;
  }
  std::string text(const Value* value) {
    _isSound = _isSound && value && value->string();
    return _isSound ? *value->string() : std::string();
  }
  Data data(const Value* value) {
    _isSound = _isSound && value && value->data();
    return _isSound ? *value->data() : Data();
  }
  const Array& array(std::string_view key) { return array(member(key)); }
  const Array& array(const Value* value) {
    static const Array empty;
    const Array* array = value ? value->array() : nullptr;
    _isSound = _isSound && array;
    return array ? *array : empty;
  }
  std::optional<RefusedGeneration> refused() {
    const Array& parts = array(RefusedKey);
    if (parts.size() < 2) return std::nullopt;
    return RefusedGeneration{number(&parts[0]), text(&parts[1])};
  }
  /// Calls `take` with each key's array, which has at least `size` elements.
  template <class Take>
  void forEachKey(std::string_view member, std::size_t size, Take take) {
    forEachKey(this->member(member), size, take);
  }
  template <class Take>
  void forEachKey(const Value* elements, std::size_t size, Take take) {
    for (const Value& element : array(elements)) {
      const Array& parts = array(&element);
      _isSound = _isSound && parts.size() >= size;
      if (_isSound) take(DomainKey(text(&parts[DomainIndex]), text(&parts[KeyIndex])), parts);
    }
  }
  Manifest manifest(const Value* elements) {
    Manifest manifest;
    forEachKey(elements, FirstIndex + 1,
               [&](const DomainKey& key, const Array& parts) { manifest[key] = data(&parts[FirstIndex]); });
    return manifest;
  }
  Manifest manifest(std::string_view key) { return manifest(member(key)); }

 private:
  const Value* member(std::string_view key) const {
    const Dictionary* dictionary = _value ? _value->dictionary() : nullptr;
    return dictionary ? valueForKey(*dictionary, key) : nullptr;
  }

  const std::optional<Value> _value;
  bool _isSound = true;
};

Array arrayOf(const Manifest& manifest) {
  Array array;
  for (const auto& [key, digest] : manifest) array.emplace_back(Array{key.first, key.second, digest});
  return array;
}

Array refusedOf(const std::optional<RefusedGeneration>& refused) {
  return refused ? Array{numberOf(refused->generation), refused->reason} : Array{};
}

}  // namespace

void OutgoingState::fulfil(const DomainKey& key, std::uint64_t requestNumber) {
  const auto known = due.find(key);
  if (known != due.end() && known->second == requestNumber) due.erase(known);
}

void OutgoingState::take(std::uint64_t of, const Acknowledgement& acknowledgement) {
  if (of > generation) {
    generation = of;
    requestAgainAfter(0);
  }
  if (!acknowledgement.refusal.empty()) {
    if (of > acknowledged) refused = {of, acknowledgement.refusal};
    return;
  }
  if (of < acknowledged) {
    acknowledged = of;
    requestAgainAfter(of);
  }
  if (of == acknowledged) return;
  if (acknowledged == 0) requestAll();
  acknowledged = of;
  if (refused && refused->generation <= of) refused.reset();
}

void OutgoingState::requestAll() {
  for (const auto& [key, known] : sent) request(key);
}

void OutgoingState::requestAgainAfter(std::uint64_t last) {
  for (auto known = sent.begin(); known != sent.end();) {
    if (known->second.generation <= last) {
      ++known;
      continue;
    }
    request(known->first);
    known = sent.erase(known);
  }
}

Data encode(const OutgoingState& state) {
  Array due, sent, emptied;
  for (const auto& [key, request] : state.due) due.emplace_back(Array{key.first, key.second, numberOf(request)});
  for (const auto& [key, known] : state.sent) {
    sent.emplace_back(Array{key.first, key.second, known.digest, numberOf(known.generation)});
  }
  for (const std::string& topic : state.emptied) emptied.emplace_back(topic);
  return encodeCBOR(Dictionary{{GenerationKey, numberOf(state.generation)},
                               {AcknowledgedKey, numberOf(state.acknowledged)},
                               {RefusedKey, refusedOf(state.refused)},
                               {RequestsKey, numberOf(state.requests)},
                               {DueKey, std::move(due)},
                               {SentKey, std::move(sent)},
                               {EmptiedKey, std::move(emptied)}})
      .value_or(Data());
}

std::optional<OutgoingState> decodeOutgoingState(std::span<const std::uint8_t> bytes) {
  StateReader reader(bytes);
  OutgoingState state;
  state.generation = reader.number(GenerationKey);
  state.acknowledged = reader.number(AcknowledgedKey);
  state.refused = reader.refused();
  state.requests = reader.number(RequestsKey);
  reader.forEachKey(DueKey, FirstIndex + 1, [&](const DomainKey& key, const Array& parts) {
    state.due[key] = reader.number(&parts[FirstIndex]);
  });
  reader.forEachKey(SentKey, SecondIndex + 1, [&](const DomainKey& key, const Array& parts) {
    state.sent[key] = {reader.data(&parts[FirstIndex]), reader.number(&parts[SecondIndex])};
  });
  for (const Value& topic : reader.array(EmptiedKey)) state.emptied.insert(reader.text(&topic));
  return reader.isSound() ? std::optional(std::move(state)) : std::nullopt;
}

const Manifest* IncomingState::baseOf(std::uint64_t ofOurs) const {
  const auto later = sent.upper_bound(ofOurs);
  // Of the manifests that were sent before, that was the latest; the values received since include it.
  if (later != sent.begin() && std::prev(later)->first > included) return &std::prev(later)->second;
  return generation > 0 ? &stored : nullptr;
}

void IncomingState::addSent(std::uint64_t ofOurs, const Manifest& manifest, std::uint64_t acknowledged) {
  sent[ofOurs] = manifest;
  for (const auto& [key, digest] : manifest) expected[key] = digest;
  if (sent.size() <= MostSent) return;
  // An absent device has the last one that it acknowledged.
  const auto second = std::next(sent.begin());
  sent.erase(second->first <= acknowledged ? sent.begin() : second);
}

std::vector<Data> IncomingState::digests() const {
  std::vector<Data> digests;
  const auto add = [&](const Manifest& manifest) {
    for (const auto& [key, digest] : manifest) digests.push_back(digest);
  };
  add(stored);
  for (const auto& [ofOurs, manifest] : sent) add(manifest);
  return digests;
}

Data encode(const IncomingState& state) {
  Array sent;
  for (const auto& [ofOurs, manifest] : state.sent) sent.emplace_back(Array{numberOf(ofOurs), arrayOf(manifest)});
  return encodeCBOR(Dictionary{{GenerationKey, numberOf(state.generation)},
                               {RefusedKey, refusedOf(state.refused)},
                               {StoredKey, arrayOf(state.stored)},
                               {IncludedMember, numberOf(state.included)},
                               {OwnSentKey, std::move(sent)},
                               {ExpectedKey, arrayOf(state.expected)}})
      .value_or(Data());
}

std::optional<IncomingState> decodeIncomingState(std::span<const std::uint8_t> bytes) {
  StateReader reader(bytes);
  IncomingState state;
  state.generation = reader.number(GenerationKey);
  state.refused = reader.refused();
  state.stored = reader.manifest(StoredKey);
  // Version 0.1 wrote no more than that.
  if (reader.has(IncludedMember)) {
    state.included = reader.number(IncludedMember);
    state.expected = reader.manifest(ExpectedKey);
    for (const Value& element : reader.array(OwnSentKey)) {
      const Array& parts = reader.array(&element);
      if (parts.size() < 2) return std::nullopt;
      state.sent[reader.number(&parts[0])] = reader.manifest(&parts[1]);
    }
  }
  return reader.isSound() ? std::optional(std::move(state)) : std::nullopt;
}

OutgoingFile::OutgoingFile(const std::filesystem::path& folder) : _file(folder / "outgoing") {}

OutgoingState OutgoingFile::read() const { return decodeOutgoingState(stateIn(_file)).value_or(OutgoingState()); }

std::optional<std::string> OutgoingFile::update(const std::function<void(OutgoingState&)>& change) const {
  const std::filesystem::path place = _file.parent_path() / "outgoing.lock";
  const auto lock = FileLock::take(place, _patience);
  if (!lock) return lockError(place);
  const Data before = stateIn(_file);
  OutgoingState state = decodeOutgoingState(before).value_or(OutgoingState());
  change(state);
  const Data after = encode(state);
  if (after == before) return std::nullopt;
  return PrivateFile(_file).replace({reinterpret_cast<const char*>(after.data()), after.size()});
}

IncomingFile::IncomingFile(const std::filesystem::path& folder) : _file(folder / "incoming") {}

std::optional<FileLock> IncomingFile::tryLock() const {
  return FileLock::tryTake(_file.parent_path() / IncomingLockFile);
}

std::optional<FileLock> IncomingFile::waitForLock(LockPatience& patience) const {
  return FileLock::take(_file.parent_path() / IncomingLockFile, patience);
}

void IncomingFile::forget() const {
  static_cast<void>(PrivateFile(_file).remove());
  MessageStore(_file.parent_path()).retain({});
}

IncomingState IncomingFile::read() const {
  const Data bytes = stateIn(_file);
  if (auto state = decodeIncomingState(bytes)) return *std::move(state);
  IncomingState damaged;
  std::error_code ignored;
  damaged.wasDamaged = std::filesystem::exists(_file, ignored);
  return damaged;
}

std::optional<std::string> IncomingFile::write(const IncomingState& state) const {
  const Data bytes = encode(state);
  if (const auto error = PrivateFolder(_file.parent_path()).make()) return error;
  return PrivateFile(_file).replace({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

}  // namespace pellor
