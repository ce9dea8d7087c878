#include "pellor/linux/preferences/internal/SQLitePreferences.h"

#include <algorithm>
#include <random>
#include <utility>

#include "pellor/linux/files/internal/AsideFolder.h"
#include "pellor/linux/preferences/internal/PreferencesDatabase.h"
#include "pellor/linux/preferences/internal/SQLiteDomainReader.h"
#include "pellor/linux/preferences/internal/StoredList.h"
#include "pellor/runtime/CBOR.h"
#include "pellor/runtime/Fatal.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;

template <class Values>
auto* find(const Values& values, const std::string& key) {
  const auto found = values.find(key);
  return found == values.end() ? nullptr : &found->second;
}

std::map<std::string, EncodedValue, std::less<>> encoded(const PreferenceChanges& changes) {
  std::map<std::string, EncodedValue, std::less<>> values;
  for (const auto& [key, change] : changes) {
    require((change.kind == PreferenceChange::Kind::set) == change.value.has_value(),
            "a change has a value to be set, and no other change has one");
    if (!change.value) continue;
    auto value = EncodedValue::encode(*change.value);
    if (!value) throw SQLiteError(SQLITE_TOOBIG, EncodedValue::errorFor(key));
    values.emplace(key, *std::move(value));
  }
  return values;
}

// Of a commit that failed in one of these ways nothing is stored. After other errors the last bytes of it may have
// reached the disk, and count when the log is read anew.
bool isKnownToHaveFailed(const SQLiteError& commit) {
  return commit.code() == SQLITE_BUSY || commit.code() == SQLITE_FULL;
}

std::uint64_t randomNumber() {
  std::random_device random;
  return std::uniform_int_distribution<std::uint64_t>(1)(random);
}

}  // namespace

/// Changes that are stored together.
struct SQLitePreferences::Batch {
  const PreferenceChanges& changes;
  PreferenceWriteID id;
  EqualValues equalValues = EqualValues::areLeft;
  bool isForAbsentKeys = false;  ///< keys with a value keep it
};

SQLitePreferences::SQLitePreferences(fs::path folder, fs::path defaultsFile, LogHandle log, Access access,
                                     std::chrono::milliseconds lockLimit)
    : _folder(std::move(folder)),
      _access(access),
      _patience(std::make_shared<LockPatience>(lockLimit)),
      _copies(_folder / StoreCopies::FolderName),
      _memory(_folder.string(), log),
      _defaults(std::move(defaultsFile), std::move(log)),
      _ownNumber(randomNumber()) {}

SQLitePreferences::~SQLitePreferences() = default;

PreferenceAnswer<Value> SQLitePreferences::copyValue(std::string_view key, std::string_view domain) {
  if (const auto answer = _memory.answer(key, domain)) return *answer;
  const MutexLock lock(_connectionMutex);
  // Another thread may have read the domain meanwhile; then this renews nothing.
  if (!renew(domain)) return PreferenceAnswer<Value>::unreadable();
  return _memory.answer(key, domain).value_or(PreferenceAnswer<Value>::unreadable());
}

void SQLitePreferences::setValue(std::string_view key, std::optional<Value> value, std::string_view domain) {
  _memory.keep(key, std::move(value), domain);
}

bool SQLitePreferences::synchronize(std::string_view domain) {
  using Kind = PreferenceChange::Kind;
  const MutexLock lock(_connectionMutex);
  const PendingValues values = _memory.copyOfPending(domain);
  if (values.empty()) return renew(domain);
  PreferenceChanges changes;
  for (const auto& [key, pending] : values) {
    changes.emplace(key, PreferenceChange{pending.value ? Kind::set : Kind::remove, pending.value, std::nullopt});
  }
  const bool isWritten = store(domain, {changes, {}}) == PreferenceWriteOutcome::written;
  if (isWritten) _memory.install(domain, knownOf(domain).snapshot);
  _memory.removePending(domain, values);
  if (!isWritten) renew(domain);
  return isWritten;
}

PreferenceAnswer<VersionedPreferences> SQLitePreferences::read(std::span<const std::string> keys,
                                                               std::string_view domain) {
  using Answer = PreferenceAnswer<VersionedPreferences>;
  const MutexLock lock(_connectionMutex);
  if (!look(domain)) return Answer::unreadable();
  const DomainState& known = knownOf(domain);
  VersionedPreferences found;
  for (const std::string& key : keys) found.insert_or_assign(key, known.preference(key));
  return Answer::some(std::move(found));
}

PreferenceWriteAnswer SQLitePreferences::write(const PreferenceChanges& changes, PreferenceWriteID id,
                                               std::string_view domain) {
  const MutexLock lock(_connectionMutex);
  PreferenceWriteAnswer answer{store(domain, {changes, id, EqualValues::areWritten}), {}};
  if (answer.outcome != PreferenceWriteOutcome::written) return answer;
  const DomainState& known = knownOf(domain);
  for (const auto& [key, change] : changes) {
    if (change.kind != PreferenceChange::Kind::keep) answer.written.emplace(key, known.preference(key));
  }
  show(domain, answer.written);
  return answer;
}

bool SQLitePreferences::insertIfAbsent(const Dictionary& values, std::string_view domain) {
  const MutexLock lock(_connectionMutex);
  PreferenceChanges changes;
  for (const auto& [key, value] : values) {
    changes.emplace(key, PreferenceChange{PreferenceChange::Kind::set, value, std::nullopt});
  }
  const Batch batch{changes, {}, EqualValues::areLeft, true};
  return store(domain, batch) == PreferenceWriteOutcome::written && renew(domain);
}

PutAside SQLitePreferences::putAside(std::string_view key, std::string_view domain) {
  const MutexLock lock(_connectionMutex);
  PutAside result;
  try {
    const PreferencesDatabase& store = database();
    const SQLiteTransaction transaction = store.transaction(SQLiteTransaction::Kind::read);
    store.visitValue(RowCopy::lastGood, key, domain, [&](const StoredValue& value) {
      if (value.isWhole) result.lastGood = value.chunks ? lastGoodList(store, *value.chunks) : decodeCBOR(value.bytes);
    });
    store.visitValue(RowCopy::stored, key, domain, [&](const StoredValue& value) {
      // An earlier layout does not say beside the good copy where its runs are.
      if (value.chunks && !result.lastGood) result.lastGood = lastGoodList(store, *value.chunks);
      result.kept = keepAside(asideFolder(), key, domain, foundBytes(store, value));
    });
  } catch (const SQLiteError& error) {
    _memory.begins(Fault::read, error.what());
    closeAfter(error);
  }
  return result;
}

std::optional<Value> SQLitePreferences::persistentValueForKey(std::string_view key, std::string_view domain) {
  return _defaults.value(key, domain);
}

fs::path SQLitePreferences::asideFolder() const { return _folder / AsideFolderName; }

std::string SQLitePreferences::lastError() const { return _memory.lastError(); }

SQLitePreferences::DomainState& SQLitePreferences::knownOf(std::string_view domain) {
  return _known.try_emplace(std::string(domain)).first->second;
}

VersionedPreference SQLitePreferences::DomainState::preference(const std::string& key) const {
  const SnapshotValue* stored = find(*snapshot, key);
  if (!stored) return {std::nullopt, {number, 0, {}}};
  return {stored->value, stored->version};
}

bool SQLitePreferences::renew(std::string_view domain) {
  const bool isRead = look(domain);
  _memory.install(domain, isRead ? knownOf(domain).snapshot : nullptr);
  return isRead;
}

bool SQLitePreferences::look(std::string_view domain) {
  bool isReplaced = false;
  return lookOnce(domain, isReplaced) || (isReplaced && lookOnce(domain, isReplaced));
}

bool SQLitePreferences::lookOnce(std::string_view domain, bool& isReplaced) {
  try {
    const PreferencesDatabase& store = database();
    // No transaction for a look: when the version is that of the snapshot, the snapshot was what is stored at that
    // moment.
    if (!isUpToDate(knownOf(domain))) {
      const SQLiteTransaction transaction = store.transaction(SQLiteTransaction::Kind::read);
      present(domain);
    }
    _memory.ends(Fault::read);
    return true;
  } catch (const SQLiteError& error) {
    _memory.begins(Fault::read, error.what());
    isReplaced = closeAfter(error);
    return false;
  }
}

bool SQLitePreferences::isUpToDate(const DomainState& known) const {
  return known.dataVersion && *known.dataVersion == _database->dataVersion();
}

const SQLitePreferences::DomainState& SQLitePreferences::present(std::string_view domain) {
  const PreferencesDatabase& store = *_database;
  DomainState& known = knownOf(domain);
  if (isUpToDate(known)) return known;
  const bool isFirst = !known.dataVersion;
  auto reading = readDomain(store, domain, known.snapshot.get(), !isFirst);
  for (DamagedPreference& damaged : reading.damaged) {
    SnapshotValue& stored = reading.snapshot.at(damaged.key);
    damaged.isCopied = !damaged.hasGoodCopy && takeFromCopy(domain, damaged.key, stored);
    reportDamage(damaged, domain);
  }
  auto snapshot = std::make_shared<Snapshot>(std::move(reading.snapshot));
  if (const std::uint64_t number = store.number(); number != 0) {
    known = {std::move(snapshot), store.dataVersion(), number};
  } else {
    countVersions(*snapshot, known);
    known = {std::move(snapshot), store.dataVersion(), _ownNumber};
  }
  if (isFirst) compareWithCopy(domain, known);
  return known;
}

// Of a store that was laid out before there were versions, and that may only be read.
void SQLitePreferences::countVersions(Snapshot& snapshot, const DomainState& known) {
  for (auto& [key, stored] : snapshot) {
    const SnapshotValue* previous = known.snapshot && known.number == _ownNumber ? find(*known.snapshot, key) : nullptr;
    const bool isSame = previous && previous->value == stored.value;
    stored.version = {_ownNumber, isSame ? previous->version.count : ++_ownCount, {}};
  }
}

void SQLitePreferences::reportDamage(const DamagedPreference& damaged, std::string_view domain) {
  const auto [known, isNew] = _damage.try_emplace({std::string(domain), damaged.key});
  Damage& damage = known->second;
  if (!isNew && damage.isKept && damage.bytes == damaged.bytes) return;
  const bool isKept = damaged.bytes.empty() || keepAside(asideFolder(), damaged.key, domain, damaged.bytes);
  const bool isSaid = !isNew && damage.isKept == isKept && damage.bytes == damaged.bytes;
  damage = {damaged.bytes, isKept};
  if (isSaid) return;
  _memory.remark(damaged.key + " of " + std::string(domain) + " is " + (damaged.bytes.empty() ? "missing" : "damaged") +
                 (damaged.bytes.empty() ? ""
                  : isKept              ? " and was put aside"
                                        : " and could not be put aside") +
                 (damaged.hasGoodCopy ? "; its last good copy is used"
                  : damaged.isCopied  ? "; that of the newest copy of the store is used (pellor backup)"
                                      : "; there is no good copy of it"));
}

PreferenceWriteOutcome SQLitePreferences::store(std::string_view domain, const Batch& batch) {
  bool isCommitting = false;
  try {
    EncodedValues values = encoded(batch.changes);
    const PreferencesDatabase& database = this->database();
    SQLiteTransaction transaction = database.transaction(SQLiteTransaction::Kind::write);
    // A domain that cannot be read is not written either. Which rows change is told by what is stored now.
    const DomainState& known = present(domain);
    if (isOvertaken(batch.changes, known)) return PreferenceWriteOutcome::overtaken;
    auto snapshot = change(domain, batch, std::move(values), *known.snapshot);
    isCommitting = true;
    transaction.commit();
    knownOf(domain).snapshot = std::move(snapshot);
    _memory.count(PreferenceWriteOutcome::written);
    if (_observer) _observer();
  } catch (const SQLiteError& error) {
    _memory.begins(Fault::write, error.what());
    knownOf(domain).dataVersion.reset();
    closeAfter(error);
    const bool isUnknown = isCommitting && !isKnownToHaveFailed(error);
    const auto outcome = isUnknown ? PreferenceWriteOutcome::unknown : PreferenceWriteOutcome::failed;
    _memory.count(outcome);
    return outcome;
  }
  _memory.ends(Fault::read);
  _memory.ends(Fault::write);
  return PreferenceWriteOutcome::written;
}

bool SQLitePreferences::isOvertaken(const PreferenceChanges& changes, const DomainState& known) {
  return std::ranges::any_of(changes, [&](const auto& entry) {
    const auto& [key, change] = entry;
    return change.madeFrom && *change.madeFrom != known.preference(key).version;
  });
}

std::shared_ptr<const SQLitePreferences::Snapshot> SQLitePreferences::change(std::string_view domain,
                                                                             const Batch& batch, EncodedValues values,
                                                                             const Snapshot& stored) const {
  const PreferencesDatabase& store = *_database;
  auto snapshot = std::make_shared<Snapshot>(stored);
  replaceDamaged(domain, *snapshot);
  for (const auto& [key, change] : batch.changes) {
    const SnapshotValue* before = find(stored, key);
    if (change.kind == PreferenceChange::Kind::remove) {
      store.remove(key, domain, before ? before->version : PreferenceVersion{});
      snapshot->erase(key);
    } else if (change.kind == PreferenceChange::Kind::set && !(before && batch.isForAbsentKeys)) {
      const auto version = store.versionAfter(before ? &before->version : nullptr, batch.id);
      snapshot->insert_or_assign(
          key, writeValue(store, key, domain, std::move(values.at(key)), before, version, batch.equalValues));
    }
  }
  return snapshot;
}

// In the place of damaged values that were put aside, as the versions that they were written as.
void SQLitePreferences::replaceDamaged(std::string_view domain, Snapshot& snapshot) const {
  const PreferencesDatabase& store = *_database;
  const auto isDamaged = [](const auto& entry) { return entry.second.isGoodCopy; };
  if (std::ranges::none_of(snapshot, isDamaged)) return;
  store.statements().database().execute("REINDEX stored_runs");
  for (auto& [key, stored] : snapshot) {
    if (!stored.isGoodCopy) continue;
    if (!_damage.at({std::string(domain), key}).isKept) {
      throw SQLiteError(SQLITE_IOERR, "what is damaged of " + key + " cannot be put aside");
    }
    auto value = EncodedValue::encode(stored.value);
    require(value.has_value(), "a value that was stored");
    stored = writeValue(store, key, domain, *std::move(value), nullptr, stored.version, EqualValues::areWritten);
  }
}

SQLitePreferences::SnapshotValue SQLitePreferences::writeValue(const PreferencesDatabase& store, std::string_view key,
                                                               std::string_view domain, EncodedValue value,
                                                               const SnapshotValue* stored,
                                                               const PreferenceVersion& version, EqualValues equal) {
  if (value.bytes) {
    if (equal == EqualValues::areLeft && stored && stored->bytes && *stored->bytes == *value.bytes) {
      store.writeLastGood(key, domain, *value.bytes, stored->version);
      return *stored;
    }
    store.write(key, domain, *value.bytes, version);
    return {value.value, std::make_shared<const Data>(*std::move(value.bytes)), nullptr, version};
  }
  const auto before = stored ? stored->list : nullptr;
  const auto list = writeList(store, key, domain, *std::move(value.list), before, version, equal);
  return {list->value, nullptr, list, list == before ? stored->version : version};
}

// What others wrote under other keys waits for the next `synchronize`.
void SQLitePreferences::show(std::string_view domain, const VersionedPreferences& written) {
  const auto shown = _memory.snapshotOf(domain);
  if (!shown) return;
  const Snapshot& stored = *knownOf(domain).snapshot;
  auto snapshot = std::make_shared<Snapshot>(*shown);
  for (const auto& [key, preference] : written) {
    snapshot->erase(key);
    if (const SnapshotValue* value = find(stored, key)) snapshot->emplace(key, *value);
  }
  _memory.install(domain, std::move(snapshot));
}

}  // namespace pellor
