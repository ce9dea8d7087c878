#include "pellor/linux/mosquitto/SealingKeys.h"

#include <sodium.h>

#include <algorithm>

#include "pellor/runtime/Fatal.h"

namespace pellor {
namespace {

// Version, generation, nonce; then the ciphertext with its authenticator.
constexpr std::uint8_t Version = 1;
constexpr std::size_t GenerationOffset = 1;
constexpr std::size_t NonceOffset = GenerationOffset + sizeof(std::uint64_t);
constexpr std::size_t HeadSize = NonceOffset + crypto_aead_xchacha20poly1305_ietf_NPUBBYTES;
constexpr std::size_t Overhead = HeadSize + crypto_aead_xchacha20poly1305_ietf_ABYTES;

constexpr int TextVariant = sodium_base64_VARIANT_URLSAFE_NO_PADDING;

static_assert(crypto_kx_PUBLICKEYBYTES == sizeof(SealingKeyPair::Key));
static_assert(crypto_kx_SECRETKEYBYTES == sizeof(SealingKeyPair::Key));
static_assert(crypto_kx_SESSIONKEYBYTES == sizeof(SealingKeyPair::Key));
static_assert(crypto_aead_xchacha20poly1305_ietf_KEYBYTES == sizeof(SealingKeyPair::Key));

void prepare() {
  static const bool isReady = sodium_init() >= 0;
  require(isReady, "a system that gives random numbers");
}

// What is authenticated without being sealed: all of the head before the nonce, and where the message belongs.
Data associatedData(std::span<const std::uint8_t> message, std::string_view topic) {
  Data data(NonceOffset + topic.size());
  std::ranges::copy(topic, std::ranges::copy(message.first(NonceOffset), data.begin()).out);
  return data;
}

std::uint64_t generationOf(std::span<const std::uint8_t> message) {
  std::uint64_t generation = 0;
  for (const std::uint8_t byte : message.subspan(GenerationOffset, sizeof generation)) {
    generation = generation << 8 | byte;
  }
  return generation;
}

}  // namespace

SealingKeyPair SealingKeyPair::make() {
  prepare();
  SealingKeyPair pair;
  crypto_kx_keypair(pair.publicKey.data(), pair.secretKey.data());
  return pair;
}

std::optional<SealingKeys> SealingKeys::agree(const SealingKeyPair& own, const SealingKeyPair::Key& other) {
  prepare();
  if (own.publicKey == other) return std::nullopt;
  SealingKeys keys;
  // Both have to take different parts; any rule does that both follow.
  const auto derive = own.publicKey < other ? crypto_kx_client_session_keys : crypto_kx_server_session_keys;
  const int result =
      derive(keys._receiving.data(), keys._sending.data(), own.publicKey.data(), own.secretKey.data(), other.data());
  return result == 0 ? std::optional(keys) : std::nullopt;
}

Data SealingKeys::seal(std::string_view topic, std::uint64_t generation, std::span<const std::uint8_t> content) const {
  Data message(Overhead + content.size());
  message[0] = Version;
  for (std::size_t index = 0; index < sizeof generation; ++index) {
    message[NonceOffset - 1 - index] = static_cast<std::uint8_t>(generation >> (8 * index));
  }
  std::uint8_t* nonce = message.data() + NonceOffset;
  randombytes_buf(nonce, HeadSize - NonceOffset);
  const Data associated = associatedData(message, topic);
  crypto_aead_xchacha20poly1305_ietf_encrypt(message.data() + HeadSize, nullptr, content.data(), content.size(),
                                             associated.data(), associated.size(), nullptr, nonce, _sending.data());
  return message;
}

std::optional<SealingKeys::Message> SealingKeys::open(std::string_view topic,
                                                      std::span<const std::uint8_t> message) const {
  if (message.size() < Overhead || message[0] != Version) return std::nullopt;
  const Data associated = associatedData(message, topic);
  Message opened{generationOf(message), Data(message.size() - Overhead)};
  const int result = crypto_aead_xchacha20poly1305_ietf_decrypt(
      opened.content.data(), nullptr, nullptr, message.data() + HeadSize, message.size() - HeadSize, associated.data(),
      associated.size(), message.data() + NonceOffset, _receiving.data());
  return result == 0 ? std::optional(std::move(opened)) : std::nullopt;
}

std::string SealingKeys::nameFor(std::string_view text) const {
  std::array<std::uint8_t, 16> digest{};
  crypto_generichash(digest.data(), digest.size(), reinterpret_cast<const unsigned char*>(text.data()), text.size(),
                     _sending.data(), _sending.size());
  std::string name(digest.size() * 2 + 1, '\0');
  sodium_bin2hex(name.data(), name.size(), digest.data(), digest.size());
  name.pop_back();
  return name;
}

Data digestOf(std::span<const std::uint8_t> bytes) {
  prepare();
  Data digest(crypto_generichash_BYTES);
  crypto_generichash(digest.data(), digest.size(), bytes.data(), bytes.size(), nullptr, 0);
  return digest;
}

std::string fingerprintOf(const SealingKeyPair::Key& one, const SealingKeyPair::Key& other) {
  constexpr std::size_t groups = 6, bytesOfGroup = 5, digitsOfGroup = 5;
  constexpr std::uint64_t groupLimit = 100'000;
  Data keys(std::min(one, other).begin(), std::min(one, other).end());
  keys.insert(keys.end(), std::max(one, other).begin(), std::max(one, other).end());
  const Data digest = digestOf(keys);
  std::string text;
  for (std::size_t group = 0; group < groups; ++group) {
    std::uint64_t number = 0;
    for (std::size_t byte = 0; byte < bytesOfGroup; ++byte) number = number << 8 | digest[group * bytesOfGroup + byte];
    const std::string digits = std::to_string(number % groupLimit);
    text += (group > 0 ? " " : "") + std::string(digitsOfGroup - digits.size(), '0') + digits;
  }
  return text;
}

std::string textOf(const SealingKeyPair::Key& key) {
  std::string text(sodium_base64_ENCODED_LEN(sizeof key, TextVariant), '\0');
  sodium_bin2base64(text.data(), text.size(), key.data(), key.size(), TextVariant);
  text.pop_back();
  return text;
}

std::optional<SealingKeyPair::Key> sealingKeyOf(std::string_view text) {
  SealingKeyPair::Key key{};
  std::size_t length = 0;
  const int result =
      sodium_base642bin(key.data(), key.size(), text.data(), text.size(), nullptr, &length, nullptr, TextVariant);
  return result == 0 && length == key.size() ? std::optional(key) : std::nullopt;
}

}  // namespace pellor
