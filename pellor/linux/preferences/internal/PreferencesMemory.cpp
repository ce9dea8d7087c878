#include "pellor/linux/preferences/internal/PreferencesMemory.h"

#include <utility>

namespace pellor {

PreferencesMemory::PreferencesMemory(std::string place, LogHandle log)
    : _place(std::move(place)), _log(std::move(log)) {}

std::optional<PreferenceAnswer<Value>> PreferencesMemory::answer(std::string_view key, std::string_view domain) const {
  const MutexLock lock(_mutex);
  const auto found = _domains.find(domain);
  if (found == _domains.end()) return std::nullopt;
  const auto pending = found->second.pending.find(key);
  if (pending != found->second.pending.end()) return PreferenceAnswer<Value>::of(pending->second.value);
  if (!found->second.snapshot) return std::nullopt;
  const auto stored = found->second.snapshot->find(key);
  return PreferenceAnswer<Value>::of(stored == found->second.snapshot->end() ? std::nullopt
                                                                             : std::optional(stored->second.value));
}

PreferencesMemory::Domain& PreferencesMemory::domainNamed(std::string_view domain) {
  return _domains.try_emplace(std::string(domain)).first->second;
}

void PreferencesMemory::keep(std::string_view key, std::optional<Value> value, std::string_view domain) {
  const MutexLock lock(_mutex);
  PendingValue pending{std::move(value), ++_lastSerial};
  domainNamed(domain).pending.insert_or_assign(std::string(key), std::move(pending));
}

PreferencesMemory::PendingValues PreferencesMemory::copyOfPending(std::string_view domain) const {
  const MutexLock lock(_mutex);
  const auto found = _domains.find(domain);
  return found == _domains.end() ? PendingValues{} : found->second.pending;
}

std::shared_ptr<const PreferencesMemory::Snapshot> PreferencesMemory::snapshotOf(std::string_view domain) const {
  const MutexLock lock(_mutex);
  const auto found = _domains.find(domain);
  return found == _domains.end() ? nullptr : found->second.snapshot;
}

void PreferencesMemory::install(std::string_view domain, std::shared_ptr<const Snapshot> snapshot) {
  const MutexLock lock(_mutex);
  // The old snapshot goes with `snapshot`, after the lock.
  domainNamed(domain).snapshot.swap(snapshot);
}

void PreferencesMemory::installKeys(std::string_view domain, std::span<const std::string> keys,
                                    const Snapshot& stored) {
  const MutexLock lock(_mutex);
  auto& snapshot = domainNamed(domain).snapshot;
  if (!snapshot) return;
  auto changed = std::make_shared<Snapshot>(*snapshot);
  for (const std::string& key : keys) {
    changed->erase(key);
    if (const auto found = stored.find(key); found != stored.end()) changed->insert(*found);
  }
  snapshot = std::move(changed);
}

void PreferencesMemory::removePending(std::string_view domain, const PendingValues& values) {
  const MutexLock lock(_mutex);
  PendingValues& pending = domainNamed(domain).pending;
  for (const auto& [key, value] : values) {
    const auto found = pending.find(key);
    if (found != pending.end() && found->second.serial == value.serial) pending.erase(found);
  }
}

const char* PreferencesMemory::participleOf(Fault fault) { return fault == Fault::read ? "read" : "written"; }

void PreferencesMemory::remark(const std::string& text) {
  _log.log("preferences in %@: %@", _place, text);
  const MutexLock lock(_mutex);
  _remarks.push_back(text);
}

std::vector<std::string> PreferencesMemory::takeRemarks() {
  const MutexLock lock(_mutex);
  return std::exchange(_remarks, {});
}

void PreferencesMemory::count(PreferenceWriteOutcome outcome) {
  const MutexLock lock(_mutex);
  if (outcome == PreferenceWriteOutcome::written) ++_writeCounts.written;
  if (outcome == PreferenceWriteOutcome::unknown) ++_writeCounts.unknown;
}

SharedPreferences::WriteCounts PreferencesMemory::writeCounts() const {
  const MutexLock lock(_mutex);
  return _writeCounts;
}

void PreferencesMemory::begins(Fault fault, const std::string& error) {
  {
    const MutexLock lock(_mutex);
    if (!_errors.insert_or_assign(fault, error).second) return;
  }
  _log.log("preferences in %@ cannot be %@: %@", _place, participleOf(fault), error);
}

void PreferencesMemory::ends(Fault fault) {
  {
    const MutexLock lock(_mutex);
    if (_errors.erase(fault) == 0) return;
  }
  _log.log("preferences in %@ can be %@ again", _place, participleOf(fault));
}

std::string PreferencesMemory::lastError() const {
  const MutexLock lock(_mutex);
  for (const Fault fault : {Fault::write, Fault::read}) {
    if (const auto found = _errors.find(fault); found != _errors.end()) return found->second;
  }
  return {};
}

}  // namespace pellor
