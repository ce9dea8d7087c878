#include "linux/mosquitto/PushState.h"

#include <fstream>
#include <iterator>

#include "linux/CBORValue.h"
#include "linux/PrivateFiles.h"
#include "linux/mosquitto/FileLock.h"
#include "linux/mosquitto/SealingKeys.h"

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

// A key with what is known of it is an array of three or four elements.
constexpr std::size_t DomainIndex = 0, KeyIndex = 1, FirstIndex = 2, SecondIndex = 3;

Data contentOf(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

Value numberOf(std::uint64_t number) { return static_cast<std::int64_t>(number); }

/// Reads members of a state; a missing one or one of another kind makes the whole of it unusable.
class StateReader {
 public:
  explicit StateReader(std::span<const std::uint8_t> bytes) : _value(decodeCBOR(bytes)) {}

  bool isSound() const { return _isSound && _value && _value->dictionary(); }

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
    for (const Value& element : array(member)) {
      const Array& parts = array(&element);
      _isSound = _isSound && parts.size() >= size;
      if (_isSound) take(DomainKey(text(&parts[DomainIndex]), text(&parts[KeyIndex])), parts);
    }
  }

 private:
  const Value* member(std::string_view key) const {
    const Dictionary* dictionary = _value ? _value->dictionary() : nullptr;
    return dictionary ? valueForKey(*dictionary, key) : nullptr;
  }

  const std::optional<Value> _value;
  bool _isSound = true;
};

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

Data encode(const IncomingState& state) {
  Array stored;
  for (const auto& [key, digest] : state.stored) stored.emplace_back(Array{key.first, key.second, digest});
  return encodeCBOR(Dictionary{{GenerationKey, numberOf(state.generation)},
                               {RefusedKey, refusedOf(state.refused)},
                               {StoredKey, std::move(stored)}})
      .value_or(Data());
}

std::optional<IncomingState> decodeIncomingState(std::span<const std::uint8_t> bytes) {
  StateReader reader(bytes);
  IncomingState state;
  state.generation = reader.number(GenerationKey);
  state.refused = reader.refused();
  reader.forEachKey(StoredKey, FirstIndex + 1, [&](const DomainKey& key, const Array& parts) {
    state.stored[key] = reader.data(&parts[FirstIndex]);
  });
  return reader.isSound() ? std::optional(std::move(state)) : std::nullopt;
}

OutgoingFile::OutgoingFile(const std::filesystem::path& folder) : _file(folder / "outgoing") {}

OutgoingState OutgoingFile::read() const { return decodeOutgoingState(contentOf(_file)).value_or(OutgoingState()); }

std::optional<std::string> OutgoingFile::update(const std::function<void(OutgoingState&)>& change) const {
  const auto lock = FileLock::wait(_file.parent_path() / "outgoing.lock");
  if (!lock) return systemError("cannot lock", _file);
  const Data before = contentOf(_file);
  OutgoingState state = decodeOutgoingState(before).value_or(OutgoingState());
  change(state);
  const Data after = encode(state);
  if (after == before) return std::nullopt;
  return replacePrivateFile(_file, {reinterpret_cast<const char*>(after.data()), after.size()});
}

IncomingFile::IncomingFile(const std::filesystem::path& folder) : _file(folder / "incoming") {}

void IncomingFile::forget() const {
  std::error_code ignored;
  std::filesystem::remove(_file, ignored);
}

IncomingState IncomingFile::read() const { return decodeIncomingState(contentOf(_file)).value_or(IncomingState()); }

std::optional<std::string> IncomingFile::write(const IncomingState& state) const {
  const Data bytes = encode(state);
  if (const auto error = createPrivateFolder(_file.parent_path())) return error;
  return replacePrivateFile(_file, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

}  // namespace pellor
