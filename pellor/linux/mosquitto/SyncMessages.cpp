#include "pellor/linux/mosquitto/SyncMessages.h"

#include "pellor/runtime/CBOR.h"

namespace pellor {
namespace {

constexpr std::string_view KindKey = "kind";
constexpr std::string_view DomainKeyKey = "domain", KeyKey = "key", ValueKey = "value", DigestKey = "digest";
constexpr std::string_view KeysKey = "keys", IncludedKey = "included", RefusalKey = "refusal";
constexpr std::string_view ValueKind = "value", ManifestKind = "manifest", AcknowledgementKind = "acknowledgement";

std::optional<Value> decodeKind(std::span<const std::uint8_t> bytes, std::string_view kind) {
  auto value = decodeCBOR(bytes);
  const Dictionary* message = value ? value->dictionary() : nullptr;
  return message && stringForKey(*message, KindKey) == kind ? value : std::nullopt;
}

std::optional<DomainKey> keyIn(const Dictionary& dictionary) {
  auto domain = stringForKey(dictionary, DomainKeyKey), key = stringForKey(dictionary, KeyKey);
  if (!domain || !key) return std::nullopt;
  return DomainKey(*std::move(domain), *std::move(key));
}

Dictionary dictionaryOf(const DomainKey& key) {
  return {{std::string(DomainKeyKey), key.first}, {std::string(KeyKey), key.second}};
}

bool addEntry(const Value& entry, Manifest& manifest) {
  const Dictionary* dictionary = entry.dictionary();
  const auto key = dictionary ? keyIn(*dictionary) : std::nullopt;
  const Value* digest = key ? valueForKey(*dictionary, DigestKey) : nullptr;
  return digest && digest->data() && manifest.emplace(*key, *digest->data()).second;
}

}  // namespace

// A domain holds no zero byte.
std::string nameOf(const DomainKey& key) { return key.first + '\0' + key.second; }

std::optional<Data> encode(const KeyMessage& message) {
  Dictionary dictionary = dictionaryOf(message.key);
  dictionary.emplace(KindKey, ValueKind);
  if (!message.value) return encodeCBOR(dictionary);
  // As bytes, so that what is around a value never makes it too deep.
  auto value = encodeCBOR(*message.value);
  if (!value) return std::nullopt;
  dictionary.emplace(ValueKey, *std::move(value));
  return encodeCBOR(dictionary);
}

std::optional<KeyMessage> decodeKeyMessage(std::span<const std::uint8_t> bytes) {
  const auto decoded = decodeKind(bytes, ValueKind);
  auto key = decoded ? keyIn(*decoded->dictionary()) : std::nullopt;
  if (!key) return std::nullopt;
  KeyMessage message{*std::move(key), std::nullopt};
  const Value* value = valueForKey(*decoded->dictionary(), ValueKey);
  if (!value) return message;
  if (value->data()) message.value = decodeCBOR(*value->data());
  return message.value ? std::optional(std::move(message)) : std::nullopt;
}

std::optional<Data> encode(const ManifestMessage& manifest) {
  Array entries;
  for (const auto& [key, digest] : manifest.keys) {
    Dictionary entry = dictionaryOf(key);
    entry.emplace(DigestKey, digest);
    entries.emplace_back(std::move(entry));
  }
  Dictionary message{{std::string(KindKey), ManifestKind}, {std::string(KeysKey), std::move(entries)}};
  if (manifest.included) message.emplace(IncludedKey, static_cast<std::int64_t>(*manifest.included));
  return encodeCBOR(message);
}

std::optional<ManifestMessage> decodeManifest(std::span<const std::uint8_t> bytes) {
  const auto decoded = decodeKind(bytes, ManifestKind);
  const Value* entries = decoded ? valueForKey(*decoded->dictionary(), KeysKey) : nullptr;
  if (!entries || !entries->array()) return std::nullopt;
  ManifestMessage manifest;
  for (const Value& entry : *entries->array()) {
    if (!addEntry(entry, manifest.keys)) return std::nullopt;
  }
  const Value* included = valueForKey(*decoded->dictionary(), IncludedKey);
  if (!included) return manifest;
  if (included->integer().value_or(-1) < 0) return std::nullopt;
  manifest.included = static_cast<std::uint64_t>(*included->integer());
  return manifest;
}

std::optional<Data> encode(const Acknowledgement& acknowledgement) {
  return encodeCBOR(
      Dictionary{{std::string(KindKey), AcknowledgementKind}, {std::string(RefusalKey), acknowledgement.refusal}});
}

std::optional<Acknowledgement> decodeAcknowledgement(std::span<const std::uint8_t> bytes) {
  const auto decoded = decodeKind(bytes, AcknowledgementKind);
  auto refusal = decoded ? stringForKey(*decoded->dictionary(), RefusalKey) : std::nullopt;
  if (!refusal) return std::nullopt;
  return Acknowledgement{*std::move(refusal)};
}

SyncTopics::SyncTopics(std::string_view to, std::string_view from)
    : _prefix("pellor/" + std::string(to) + "/" + std::string(from) + "/") {}

}  // namespace pellor
