#include "pellor/linux/mosquitto/GenerationMerge.h"

#include <algorithm>
#include <utility>

#include "pellor/linux/mosquitto/SealingKeys.h"

namespace pellor {
namespace {

KeyMessage messageOf(const DomainKey& key, const Dictionary& values) {
  const Value* value = valueForKey(values, key.second);
  return {key, value ? std::optional(*value) : std::nullopt};
}

bool isDigestOf(const Data& digest, const KeyMessage& message) {
  const auto bytes = encode(message);
  return bytes && digestOf(*bytes) == digest;
}

void set(Dictionary& values, const std::string& key, const std::optional<Value>& value) {
  if (value) values.insert_or_assign(key, *value);
}

}  // namespace

GenerationMerge::GenerationMerge(Parts parts, ArrivedGeneration arrived)
    : _parts(std::move(parts)), _arrived(std::move(arrived)), _base(findBase()) {
  for (const auto& [key, bytes] : _arrived.messages) {
    _keys[key.first].insert(key.second);
    set(_values[key.first], key.second, decodeKeyMessage(bytes)->value);
  }
}

bool GenerationMerge::isFirst() const {
  const IncomingState& state = _parts.state;
  return state.generation == 0 && _parts.outgoing.generation == 0 && !state.wasDamaged;
}

// Whether own generations are on their way that it does not include. A sender that does not say what it includes knows
// of no merge either, and takes whatever comes.
bool GenerationMerge::hasCrossed() const {
  return _arrived.manifest.included && _parts.state.sent.upper_bound(ofOurs()) != _parts.state.sent.end();
}

Manifest GenerationMerge::findBase() const {
  if (const Manifest* base = _parts.state.baseOf(ofOurs())) return *base;
  // What version 0.1 sent: the digests alone are known.
  Manifest base;
  for (const auto& [key, sent] : _parts.outgoing.sent) {
    if (sent.generation <= ofOurs()) base.emplace(key, sent.digest);
  }
  return base;
}

// A value that is not kept, since version 0.1 kept none, is known when the stored one has not changed since. Else the
// base has none: then nobody counts as removed, and a friend that was removed meanwhile comes back.
Dictionary GenerationMerge::baseValues(const std::string& domain, const Dictionary& stored) const {
  Dictionary values;
  for (const std::string& key : _keys.at(domain)) {
    const auto digest = _base.find({domain, key});
    if (digest == _base.end()) continue;
    const KeyMessage present = messageOf(digest->first, stored);
    if (const auto kept = _parts.kept.find(digest->second)) {
      set(values, key, kept->value);
    } else if (isDigestOf(digest->second, present)) {
      set(values, key, present.value);
    }
  }
  return values;
}

MergedValues GenerationMerge::merge(const std::string& domain, const Dictionary& base, const Dictionary& own) const {
  const Dictionary& others = _values.at(domain);
  return _parts.isOwnNameFirst ? _parts.merge(domain, base, own, others) : _parts.merge(domain, base, others, own);
}

MergedValues GenerationMerge::merged(const std::string& domain, const Dictionary& stored) const {
  if (isFirst()) return {_values.at(domain), 0};
  return merge(domain, baseValues(domain, stored), stored);
}

bool GenerationMerge::needsSending(const std::string& domain, const Dictionary& values) const {
  return values != _values.at(domain) || (hasCrossed() && _parts.isOwnNameFirst);
}

// What both have had once the other device has taken what was sent, too. Absent when a value of it is not kept.
std::optional<Manifest> GenerationMerge::mergedSent(const Manifest& sent) const {
  Manifest result = sent;
  for (const auto& [domain, keys] : _keys) {
    Dictionary own;
    for (const std::string& key : keys) {
      const auto digest = sent.find({domain, key});
      if (digest == sent.end()) continue;
      const auto kept = _parts.kept.find(digest->second);
      if (!kept) return std::nullopt;
      set(own, key, kept->value);
    }
    const Dictionary values = merge(domain, baseValues(domain, own), own).values;
    for (const std::string& key : keys) {
      const DomainKey name(domain, key);
      const auto bytes = encode(messageOf(name, values));
      if (!bytes || !_parts.kept.keep(*bytes)) return std::nullopt;
      result[name] = digestOf(*bytes);
    }
  }
  return result;
}

void GenerationMerge::setExpected(IncomingState& state) const {
  for (const auto& [key, digest] : _arrived.manifest.keys) {
    Data& expected = state.expected[key];
    if (!hasCrossed()) {
      expected = digest;
    } else {
      const bool isLeftToOther = !_parts.isOwnNameFirst && !state.sent.empty();
      const Manifest& latest = isLeftToOther ? state.sent.rbegin()->second : Manifest();
      const auto known = latest.find(key);
      expected = known == latest.end() ? Data() : known->second;
    }
  }
}

std::optional<IncomingState> GenerationMerge::next() const {
  const bool areKept =
      std::ranges::all_of(_arrived.messages, [&](const auto& message) { return _parts.kept.keep(message.second); });
  if (!areKept) return std::nullopt;
  IncomingState state;
  state.generation = _arrived.generation;
  state.stored = _arrived.manifest.keys;
  state.included = std::max(_parts.state.included, ofOurs());
  state.expected = _parts.state.expected;
  for (const auto& [ofOurs, sent] : _parts.state.sent) {
    if (ofOurs <= state.included) continue;
    if (auto merged = mergedSent(sent)) state.sent.emplace(ofOurs, *std::move(merged));
  }
  setExpected(state);
  return state;
}

}  // namespace pellor
