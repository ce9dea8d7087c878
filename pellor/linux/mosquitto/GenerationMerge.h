// A generation that came from the paired device meets what was edited here.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "pellor/linux/mosquitto/MessageStore.h"
#include "pellor/linux/mosquitto/PushState.h"
#include "pellor/linux/mosquitto/ValuesMerge.h"

namespace pellor {

/// A generation as it came.
struct ArrivedGeneration {
  std::uint64_t generation = 0;
  ManifestMessage manifest;
  std::map<DomainKey, Data> messages;  ///< of all its keys, but such as did not change and are not kept
};

/// Merges one generation into what is stored, and says what is known to be exchanged from then on. The receiving thread
/// alone, while it holds the lock of the state.
///
/// Which of the two devices is "ours" does not decide whether an edit survives: the merge loses none of either side
/// unless two conflict. It decides which of two conflicting edits stays, and which friend finds no room on a full list.
/// So it goes by the names of the devices and not by the direction: when generations cross, both devices merge three
/// equal versions and get equal values, in place of each taking over what the other one just gave up.
class GenerationMerge {
 public:
  struct Parts {
    IncomingState state;
    OutgoingState outgoing;
    const MessageStore& kept;
    const ValuesMerge& merge;
    bool isOwnNameFirst;  ///< this device's name is before the other one's
  };
  GenerationMerge(Parts parts, ArrivedGeneration arrived);

  /// Neither device has had anything of the other yet: the values that came take the place of those that are stored.
  bool isFirst() const;
  /// The keys that came, by domain.
  const std::map<std::string, std::set<std::string>>& keys() const { return _keys; }
  /// The values that came.
  const Dictionary& arrived(const std::string& domain) const { return _values.at(domain); }

  /// The values to be stored in place of `stored`.
  MergedValues merged(const std::string& domain, const Dictionary& stored) const;
  /// Whether those values have to go to the other device. Of two generations that crossed it is the first device, by
  /// name, that sends what came of both: the other one expects that, and adds to it only what it has beyond.
  bool needsSending(const std::string& domain, const Dictionary& values) const;
  /// The state once the generation is stored; the messages that it names are kept. Absent when they cannot be.
  std::optional<IncomingState> next() const;

 private:
  std::uint64_t ofOurs() const { return _arrived.manifest.included.value_or(_parts.state.included); }
  bool hasCrossed() const;
  Manifest findBase() const;
  Dictionary baseValues(const std::string& domain, const Dictionary& stored) const;
  MergedValues merge(const std::string& domain, const Dictionary& base, const Dictionary& own) const;
  std::optional<Manifest> mergedSent(const Manifest& sent) const;
  void setExpected(IncomingState& state) const;

  const Parts _parts;
  const ArrivedGeneration _arrived;
  const Manifest _base;
  std::map<std::string, std::set<std::string>> _keys;
  std::map<std::string, Dictionary> _values;
};

}  // namespace pellor
