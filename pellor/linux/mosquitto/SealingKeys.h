// The keys that make a message readable to the paired device alone, and prove which device wrote it.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "pellor/runtime/Value.h"

namespace pellor {

/// A device's key pair for sealing, made anew for each pairing.
struct SealingKeyPair {
  using Key = std::array<std::uint8_t, 32>;
  Key publicKey{};
  Key secretKey{};

  static SealingKeyPair make();
};

/// The keys of one pairing, a different one for each direction, agreed on without a word by both devices from their own
/// pair and the other's public key (X25519; XChaCha20-Poly1305 seals). A broker in between learns how long a message is
/// and nothing else, and can neither make one nor send one back to its writer. Any thread.
class SealingKeys {
 public:
  /// Absent when the other's key is no such key, or this device's own.
  static std::optional<SealingKeys> agree(const SealingKeyPair& own, const SealingKeyPair::Key& other);

  /// What goes to the other device under that topic. The topic and the generation cannot be exchanged for others.
  Data seal(std::string_view topic, std::uint64_t generation, std::span<const std::uint8_t> content) const;

  struct Message {
    std::uint64_t generation = 0;
    Data content;
  };
  /// What the other device sealed for this one and that topic; absent for everything else, whatever its bytes are.
  std::optional<Message> open(std::string_view topic, std::span<const std::uint8_t> message) const;

  /// A name whose meaning only the two devices know: 32 hexadecimal digits, equal for equal texts.
  std::string nameFor(std::string_view text) const;

 private:
  SealingKeyPair::Key _receiving{};
  SealingKeyPair::Key _sending{};
};

/// A digest of 32 bytes. Any thread.
Data digestOf(std::span<const std::uint8_t> bytes);

/// Thirty digits in groups of five that stand for two public keys and are equal on both devices: a user that compares
/// them knows that nobody exchanged a key on the way. Any thread.
std::string fingerprintOf(const SealingKeyPair::Key& one, const SealingKeyPair::Key& other);

/// URL-safe base64 without padding, in both directions; absent when the text is not that of such a key.
std::string textOf(const SealingKeyPair::Key& key);
std::optional<SealingKeyPair::Key> sealingKeyOf(std::string_view text);

}  // namespace pellor
