// What one device says to the other, before it is sealed and after it was opened.
//
// Everything that goes to a device is retained under "pellor/<to>/<from>/", so that the broker can let each device read
// below its own name and write behind it:
//
//   key/<name>       the latest value of one key; the name tells nobody which
//   manifest         which values belong together: all keys that were ever sent, each with a digest
//   acknowledgement  the other way: the last manifest whose values are all stored there, or why one was refused
//
// A message carries its generation in its seal. Values come first, the manifest after them, so that a receiver that
// waits for the digests of a manifest never stores half an edit.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "pellor/runtime/Value.h"

namespace pellor {

/// A key of a domain.
using DomainKey = std::pair<std::string, std::string>;

/// One text for a key, another one for every key.
std::string nameOf(const DomainKey& key);

/// The value of a key; absent: the key was removed.
struct KeyMessage {
  DomainKey key;
  std::optional<Value> value;
};

/// The digest of each key's encoded KeyMessage.
using Manifest = std::map<DomainKey, Data>;

/// The manifest of a generation.
struct ManifestMessage {
  Manifest keys;
  /// The other device's generation that is in these values, the last one that was stored before they were read; 0: none
  /// was. Absent from a sender that does not say so.
  std::optional<std::uint64_t> included;
};

/// Whether the generation is stored; if it was refused, why, for the user.
struct Acknowledgement {
  std::string refusal;  ///< empty: it is stored
};

// Absent when the value cannot be encoded (see CBORMaximumDepth, CBORMaximumSize). Equal messages have equal bytes.
std::optional<Data> encode(const KeyMessage& message);
std::optional<Data> encode(const ManifestMessage& manifest);
std::optional<Data> encode(const Acknowledgement& acknowledgement);

// Absent unless the bytes are one whole message of that kind.
std::optional<KeyMessage> decodeKeyMessage(std::span<const std::uint8_t> bytes);
std::optional<ManifestMessage> decodeManifest(std::span<const std::uint8_t> bytes);
std::optional<Acknowledgement> decodeAcknowledgement(std::span<const std::uint8_t> bytes);

/// The topics of messages from `from` to `to`; both are device names (see isDeviceName).
class SyncTopics {
 public:
  SyncTopics(std::string_view to, std::string_view from);

  std::string all() const { return _prefix + "#"; }
  std::string key(std::string_view name) const { return _prefix + "key/" + std::string(name); }
  std::string manifest() const { return _prefix + "manifest"; }
  std::string acknowledgement() const { return _prefix + "acknowledgement"; }
  bool isKey(std::string_view topic) const { return topic.starts_with(_prefix + "key/"); }

 private:
  std::string _prefix;
};

}  // namespace pellor
