#include "pellor/testing/InMemoryPreferences.h"

#include <utility>

#include "pellor/runtime/Fatal.h"
#include "pellor/testing/internal/ProcessLink.h"

namespace pellor {

namespace {

std::vector<std::string> keysChangedBy(const PreferenceChanges& changes) {
  std::vector<std::string> keys;
  for (const auto& [key, change] : changes) {
    if (change.kind != PreferenceChange::Kind::keep) keys.push_back(key);
  }
  return keys;
}

}  // namespace

class InMemoryPreferences::Store : public PreferencesStore {
 public:
  Store(std::shared_ptr<InMemoryPreferences> shared, std::shared_ptr<ProcessLink> link)
      : _shared(std::move(shared)), _link(std::move(link)), _process(_link->process()) {}

  PreferenceAnswer<Value> copyValue(std::string_view key, std::string_view domain) override;
  void setValue(std::string_view key, std::optional<Value> value, std::string_view domain) override;
  bool synchronize(std::string_view domain) override;
  PreferenceAnswer<VersionedPreferences> read(std::span<const std::string> keys, std::string_view domain) override;
  PreferenceWriteAnswer write(const PreferenceChanges& changes, PreferenceWriteID id, std::string_view domain) override;
  PutAside putAside(std::string_view key, std::string_view domain) override;
  bool isReadOnly() override;
  std::string lastError() const override;
  std::optional<Value> persistentValueForKey(std::string_view key, std::string_view domain) override;

 private:
  struct Domain {
    ContentRef seen;  // null until the first read
    std::map<std::string, std::optional<Value>, std::less<>> pending;
  };

  Domain& domainNamed(std::string_view name) PELLOR_REQUIRES(_shared->_mutex);
  bool dropPending(Domain& domain) PELLOR_REQUIRES(_shared->_mutex);
  void commit(Domain& domain, std::string_view name) PELLOR_REQUIRES(_shared->_mutex);
  PreferenceWriteOutcome outcomeOf(const Request& request) PELLOR_REQUIRES(_shared->_mutex);
  VersionedPreferences showWritten(const Request& request) PELLOR_REQUIRES(_shared->_mutex);

  const std::shared_ptr<InMemoryPreferences> _shared;
  const std::shared_ptr<ProcessLink> _link;
  const Process* const _process;
  std::map<std::string, Domain, std::less<>> _domains PELLOR_GUARDED_BY(_shared->_mutex);
};

InMemoryPreferences::Store::Domain& InMemoryPreferences::Store::domainNamed(std::string_view name) {
  const auto found = _domains.find(name);
  return found != _domains.end() ? found->second : _domains[std::string(name)];
}

PreferenceAnswer<Value> InMemoryPreferences::Store::copyValue(std::string_view key, std::string_view name) {
  using Answer = PreferenceAnswer<Value>;
  const MutexLock lock(_shared->_mutex);
  ++_shared->_readCount;
  if (_shared->isUnreadable(name)) return Answer::unreadable();
  Domain& domain = domainNamed(name);
  if (!domain.seen) domain.seen = _shared->contentOf(name);
  const auto pending = domain.pending.find(key);
  if (pending != domain.pending.end()) return Answer::of(pending->second);
  const auto stored = domain.seen->find(key);
  return stored != domain.seen->end() ? Answer::some(stored->second.value) : Answer::none();
}

void InMemoryPreferences::Store::setValue(std::string_view key, std::optional<Value> value, std::string_view domain) {
  const MutexLock lock(_shared->_mutex);
  domainNamed(domain).pending.insert_or_assign(std::string(key), std::move(value));
}

bool InMemoryPreferences::Store::synchronize(std::string_view name) {
  const MutexLock lock(_shared->_mutex);
  Domain& domain = domainNamed(name);
  if (_shared->isUnreadable(name)) {
    domain.seen = nullptr;
    return dropPending(domain);
  }
  const bool fails = !domain.pending.empty() && (_shared->_isReadOnly || take(_shared->_writesToFail));
  if (!fails && !domain.pending.empty()) commit(domain, name);
  domain.seen = _shared->contentOf(name);
  return !fails || dropPending(domain);
}

bool InMemoryPreferences::Store::dropPending(Domain& domain) {
  if (!domain.pending.empty()) ++_shared->_failedWriteCount;
  domain.pending.clear();
  return false;
}

void InMemoryPreferences::Store::commit(Domain& domain, std::string_view name) {
  Write write{_process, std::string(name), {}, {}};
  for (const auto& [key, value] : domain.pending) {
    _shared->put(key, value, {}, name);
    write.keys.push_back(key);
  }
  _shared->_writes.push_back(std::move(write));
  domain.pending.clear();
}

PreferenceAnswer<VersionedPreferences> InMemoryPreferences::Store::read(std::span<const std::string> keys,
                                                                        std::string_view domain) {
  using Answer = PreferenceAnswer<VersionedPreferences>;
  const MutexLock lock(_shared->_mutex);
  _shared->_readCount += keys.size();
  if (_shared->isUnreadable(domain)) return Answer::unreadable();
  VersionedPreferences found;
  for (const std::string& key : keys) found.insert_or_assign(key, _shared->stored(key, domain));
  return Answer::some(std::move(found));
}

PreferenceWriteAnswer InMemoryPreferences::Store::write(const PreferenceChanges& changes, PreferenceWriteID id,
                                                        std::string_view domain) {
  for (const auto& [key, change] : changes) {
    require((change.kind == PreferenceChange::Kind::set) == change.value.has_value(),
            "a value in a set, and only there");
  }
  const MutexLock lock(_shared->_mutex);
  const Request request{_process, std::string(domain), changes, id};
  PreferenceWriteAnswer answer{outcomeOf(request), {}};
  if (answer.outcome == PreferenceWriteOutcome::written) answer.written = showWritten(request);
  if (answer.outcome == PreferenceWriteOutcome::failed) ++_shared->_failedWriteCount;
  return answer;
}

PreferenceWriteOutcome InMemoryPreferences::Store::outcomeOf(const Request& request) {
  if (_shared->isUnreadable(request.domain)) return PreferenceWriteOutcome::failed;
  const bool changesAnything = !keysChangedBy(request.changes).empty();
  if (changesAnything && _shared->_isReadOnly) return PreferenceWriteOutcome::failed;
  if (changesAnything && take(_shared->_writesToLeaveUntold)) {
    if (_shared->_untold == Untold::stored) _shared->storeUnlessOvertaken(request);
    if (_shared->_untold == Untold::delayed) _shared->_delayedWrites.push_back(request);
    return PreferenceWriteOutcome::unknown;
  }
  if (changesAnything && !_shared->isOvertaken(request.changes, request.domain) && take(_shared->_writesToFail)) {
    return PreferenceWriteOutcome::failed;
  }
  return _shared->storeUnlessOvertaken(request) ? PreferenceWriteOutcome::written : PreferenceWriteOutcome::overtaken;
}

VersionedPreferences InMemoryPreferences::Store::showWritten(const Request& request) {
  VersionedPreferences written;
  for (const std::string& key : keysChangedBy(request.changes)) written[key] = _shared->stored(key, request.domain);
  Domain& domain = domainNamed(request.domain);
  if (!domain.seen) return written;
  // What others wrote under other keys waits for the next `synchronize`.
  const ContentRef content = _shared->contentOf(request.domain);
  Content seen = *domain.seen;
  for (const auto& [key, preference] : written) {
    seen.erase(key);
    if (preference.value) seen.emplace(key, content->at(key));
  }
  domain.seen = std::make_shared<const Content>(std::move(seen));
  return written;
}

bool InMemoryPreferences::Store::isReadOnly() {
  const MutexLock lock(_shared->_mutex);
  return _shared->_isReadOnly;
}

std::string InMemoryPreferences::Store::lastError() const {
  const MutexLock lock(_shared->_mutex);
  return _shared->_isReadOnly ? "the store is read-only" : "";
}

PutAside InMemoryPreferences::Store::putAside(std::string_view key, std::string_view domain) {
  Process* process = _link->process();
  const double now = process ? process->now() : 0;
  const MutexLock lock(_shared->_mutex);
  PutAside result;
  const auto good = _shared->_lastGood.find(Name(domain, key));
  if (good != _shared->_lastGood.end()) result.lastGood = good->second;
  const ContentRef content = _shared->contentOf(domain);
  const auto stored = content->find(key);
  if (stored == content->end() || _shared->_putAsideFails || _shared->isUnreadable(domain)) return result;
  _shared->_putAside.push_back({std::string(key), std::string(domain), stored->second.value, now});
  result.kept = true;
  return result;
}

std::optional<Value> InMemoryPreferences::Store::persistentValueForKey(std::string_view key, std::string_view domain) {
  const MutexLock lock(_shared->_mutex);
  const auto found = _shared->_persistentValues.find(Name(domain, key));
  if (found == _shared->_persistentValues.end()) return std::nullopt;
  return found->second;
}

std::shared_ptr<PreferencesStore> InMemoryPreferences::storeFor(Process& process) {
  return std::make_shared<Store>(shared_from_this(), ProcessLink::of(process));
}

std::optional<Value> InMemoryPreferences::value(std::string_view key, std::string_view domain) const {
  const MutexLock lock(_mutex);
  return stored(key, domain).value;
}

void InMemoryPreferences::setValue(std::string_view key, std::optional<Value> value, std::string_view domain) {
  const MutexLock lock(_mutex);
  put(key, value, {}, domain);
}

std::uint64_t InMemoryPreferences::storeNumber() const {
  const MutexLock lock(_mutex);
  return _storeNumber;
}

void InMemoryPreferences::setStoreNumber(std::uint64_t number) {
  require(number != 0, "a store number other than 0");
  const MutexLock lock(_mutex);
  _storeNumber = number;
}

void InMemoryPreferences::renew(Renewal renewal) {
  const MutexLock lock(_mutex);
  ++_storeNumber;
  if (renewal == Renewal::fromCopy) return;
  _contents.clear();
  _lastGood.clear();
  _lastCount = 0;
}

void InMemoryPreferences::damage(std::string_view key, Value content, std::string_view domain) {
  const MutexLock lock(_mutex);
  Content changed = *contentOf(domain);
  changed.insert_or_assign(std::string(key), Entry{std::move(content), ++_lastCount, {}});
  _contents[std::string(domain)] = std::make_shared<const Content>(std::move(changed));
}

std::optional<Value> InMemoryPreferences::lastGoodValue(std::string_view key, std::string_view domain) const {
  const MutexLock lock(_mutex);
  const auto found = _lastGood.find(Name(domain, key));
  if (found == _lastGood.end()) return std::nullopt;
  return found->second;
}

std::vector<InMemoryPreferences::PutAsideCopy> InMemoryPreferences::putAsideCopies() const {
  const MutexLock lock(_mutex);
  return _putAside;
}

void InMemoryPreferences::setPersistentValue(std::string_view key, std::optional<Value> value,
                                             std::string_view domain) {
  const MutexLock lock(_mutex);
  _persistentValues.erase(Name(domain, key));
  if (value) _persistentValues.emplace(Name(domain, key), *std::move(value));
}

void InMemoryPreferences::makeUnreadable(std::optional<std::string> domain) {
  const MutexLock lock(_mutex);
  if (domain) {
    _unreadableDomains.insert(*std::move(domain));
  } else {
    _allUnreadable = true;
  }
}

void InMemoryPreferences::makeReadable() {
  const MutexLock lock(_mutex);
  _allUnreadable = false;
  _unreadableDomains.clear();
}

void InMemoryPreferences::failWrites(std::uint64_t times) {
  const MutexLock lock(_mutex);
  _writesToFail = times;
}

void InMemoryPreferences::setReadOnly(bool isReadOnly) {
  const MutexLock lock(_mutex);
  _isReadOnly = isReadOnly;
}

void InMemoryPreferences::leaveUntold(Untold fate, std::uint64_t times) {
  const MutexLock lock(_mutex);
  _untold = fate;
  _writesToLeaveUntold = times;
}

std::uint64_t InMemoryPreferences::storeDelayedWrites() {
  const MutexLock lock(_mutex);
  std::uint64_t storedCount = 0;
  for (const Request& request : std::exchange(_delayedWrites, {})) {
    if (storeUnlessOvertaken(request)) ++storedCount;
  }
  return storedCount;
}

void InMemoryPreferences::setPutAsideFails(bool fails) {
  const MutexLock lock(_mutex);
  _putAsideFails = fails;
}

std::vector<InMemoryPreferences::Write> InMemoryPreferences::writes() const {
  const MutexLock lock(_mutex);
  return _writes;
}

std::uint64_t InMemoryPreferences::writeCount() const {
  const MutexLock lock(_mutex);
  return _writes.size();
}

std::uint64_t InMemoryPreferences::failedWriteCount() const {
  const MutexLock lock(_mutex);
  return _failedWriteCount;
}

std::uint64_t InMemoryPreferences::overtakenWriteCount() const {
  const MutexLock lock(_mutex);
  return _overtakenWriteCount;
}

std::uint64_t InMemoryPreferences::readCount() const {
  const MutexLock lock(_mutex);
  return _readCount;
}

void InMemoryPreferences::clearRecords() {
  const MutexLock lock(_mutex);
  _writes.clear();
  _failedWriteCount = 0;
  _overtakenWriteCount = 0;
  _readCount = 0;
}

bool InMemoryPreferences::isUnreadable(std::string_view domain) const {
  return _allUnreadable || _unreadableDomains.contains(domain);
}

bool InMemoryPreferences::take(std::uint64_t& times) {
  if (times == 0) return false;
  if (times != Always) --times;
  return true;
}

InMemoryPreferences::ContentRef InMemoryPreferences::contentOf(std::string_view domain) const {
  static const ContentRef empty = std::make_shared<const Content>();
  const auto found = _contents.find(domain);
  return found != _contents.end() ? found->second : empty;
}

VersionedPreference InMemoryPreferences::stored(std::string_view key, std::string_view domain) const {
  const ContentRef content = contentOf(domain);
  const auto found = content->find(key);
  if (found == content->end()) return {std::nullopt, {_storeNumber, 0, {}}};
  const Entry& entry = found->second;
  return {entry.value, {_storeNumber, entry.count, entry.write}};
}

bool InMemoryPreferences::isOvertaken(const PreferenceChanges& changes, std::string_view domain) const {
  for (const auto& [key, change] : changes) {
    if (change.madeFrom && *change.madeFrom != stored(key, domain).version) return true;
  }
  return false;
}

bool InMemoryPreferences::storeUnlessOvertaken(const Request& request) {
  if (isOvertaken(request.changes, request.domain)) {
    ++_overtakenWriteCount;
    return false;
  }
  Write write{request.process, request.domain, keysChangedBy(request.changes), request.id};
  for (const std::string& key : write.keys) put(key, request.changes.at(key).value, request.id, request.domain);
  if (!write.keys.empty()) _writes.push_back(std::move(write));
  return true;
}

void InMemoryPreferences::put(std::string_view key, const std::optional<Value>& value, PreferenceWriteID id,
                              std::string_view domain) {
  // Stores hold on to the content that they have seen, so a change makes a new one.
  Content changed = *contentOf(domain);
  if (value) {
    changed.insert_or_assign(std::string(key), Entry{*value, ++_lastCount, id});
    _lastGood.insert_or_assign(Name(domain, key), *value);
  } else {
    changed.erase(std::string(key));
    _lastGood.erase(Name(domain, key));
  }
  _contents[std::string(domain)] = std::make_shared<const Content>(std::move(changed));
}

}  // namespace pellor
