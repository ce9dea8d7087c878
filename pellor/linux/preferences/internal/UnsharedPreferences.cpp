#include "pellor/linux/preferences/internal/UnsharedPreferences.h"

#include <iterator>
#include <span>

namespace pellor {
namespace {

std::pair<std::string, std::string> named(std::string_view domain, std::string_view key) {
  return {std::string(domain), std::string(key)};
}

}  // namespace

PreferenceAnswer<Value> UnsharedPreferences::copyValue(std::string_view key, std::string_view domain) {
  {
    const MutexLock lock(_mutex);
    if (const auto found = _waiting.find(named(domain, key)); found != _waiting.end())
      return PreferenceAnswer<Value>::of(found->second);
    if (const auto found = _written.find(named(domain, key)); found != _written.end())
      return PreferenceAnswer<Value>::of(found->second.value);
  }
  return _shared->copyValue(key, domain);
}

void UnsharedPreferences::setValue(std::string_view key, std::optional<Value> value, std::string_view domain) {
  const MutexLock lock(_mutex);
  _waiting.insert_or_assign(named(domain, key), std::move(value));
}

bool UnsharedPreferences::synchronize(std::string_view domain) {
  if (!_shared->synchronize(domain)) return false;
  PreferenceChanges changes;
  {
    const MutexLock lock(_mutex);
    for (auto each = _waiting.begin(); each != _waiting.end();) {
      const bool isOfDomain = each->first.first == domain;
      if (isOfDomain) {
        const auto kind = each->second ? PreferenceChange::Kind::set : PreferenceChange::Kind::remove;
        changes[each->first.second] = {kind, std::move(each->second), std::nullopt};
      }
      each = isOfDomain ? _waiting.erase(each) : std::next(each);
    }
  }
  return changes.empty() || write(changes, {}, domain).outcome == PreferenceWriteOutcome::written;
}

VersionedPreferences UnsharedPreferences::readLocked(std::span<const std::string> keys, std::string_view domain,
                                                     VersionedPreferences stored) {
  for (const std::string& key : keys)
    if (const auto found = _written.find(named(domain, key)); found != _written.end())
      stored.insert_or_assign(key, found->second);
  return stored;
}

PreferenceAnswer<VersionedPreferences> UnsharedPreferences::read(std::span<const std::string> keys,
                                                                 std::string_view domain) {
  auto stored = _shared->read(keys, domain);
  if (!stored.isReadable() || !stored.value()) return stored;
  const MutexLock lock(_mutex);
  return PreferenceAnswer<VersionedPreferences>::some(readLocked(keys, domain, *stored.value()));
}

VersionedPreference UnsharedPreferences::set(std::string_view key, std::optional<Value> value,
                                             PreferenceVersion version, std::string_view domain) {
  ++version.count;
  VersionedPreference next{std::move(value), version};
  _written.insert_or_assign(named(domain, key), next);
  return next;
}

PreferenceWriteAnswer UnsharedPreferences::write(const PreferenceChanges& changes, PreferenceWriteID id,
                                                 std::string_view domain) {
  std::vector<std::string> keys;
  for (const auto& [key, change] : changes) keys.push_back(key);
  auto stored = _shared->read(keys, domain);
  if (!stored.isReadable()) return {};
  const MutexLock lock(_mutex);
  VersionedPreferences now = readLocked(keys, domain, stored.value().value_or(VersionedPreferences()));
  for (const auto& [key, change] : changes)
    if (change.madeFrom && *change.madeFrom != now[key].version) return {PreferenceWriteOutcome::overtaken, {}};
  PreferenceWriteAnswer answer{PreferenceWriteOutcome::written, {}};
  for (const auto& [key, change] : changes) {
    if (change.kind == PreferenceChange::Kind::keep) continue;
    PreferenceVersion version = now[key].version;
    version.write = id;
    auto value = change.kind == PreferenceChange::Kind::set ? change.value : std::nullopt;
    answer.written.emplace(key, set(key, std::move(value), version, domain));
  }
  return answer;
}

PutAside UnsharedPreferences::putAside(std::string_view /*key*/, std::string_view /*domain*/) { return {}; }

std::optional<Value> UnsharedPreferences::persistentValueForKey(std::string_view key, std::string_view domain) {
  return _shared->persistentValueForKey(key, domain);
}

bool UnsharedPreferences::insertIfAbsent(const Dictionary& values, std::string_view domain) {
  std::vector<std::string> keys;
  for (const auto& [key, value] : values) keys.push_back(key);
  const auto stored = read(keys, domain);
  if (!stored.isReadable()) return false;
  const VersionedPreferences known = stored.value().value_or(VersionedPreferences());
  PreferenceChanges changes;
  for (const auto& [key, value] : values) {
    const auto found = known.find(key);
    if (found == known.end() || !found->second.value) changes[key] = {PreferenceChange::Kind::set, value, std::nullopt};
  }
  return changes.empty() || write(changes, {}, domain).outcome == PreferenceWriteOutcome::written;
}

}  // namespace pellor
