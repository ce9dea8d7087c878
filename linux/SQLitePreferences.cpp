#include "linux/SQLitePreferences.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <fstream>
#include <iterator>
#include <utility>

#include "linux/CBORValue.h"
#include "linux/PreferencesDatabase.h"
#include "linux/PrivateFiles.h"
#include "linux/StoredList.h"
#include "runtime/LongArray.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;

std::string utcTime() {
  const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  std::tm parts{};
  ::gmtime_r(&now, &parts);
  char text[sizeof "20010101T000000Z"];
  std::strftime(text, sizeof text, "%Y%m%dT%H%M%SZ", &parts);
  return text;
}

bool holdsExactly(const fs::path& file, const Data& bytes) {
  std::error_code error;
  if (fs::file_size(file, error) != bytes.size() || error) return false;
  std::ifstream stream(file, std::ios::binary);
  return std::equal(bytes.begin(), bytes.end(), std::istreambuf_iterator<char>(stream), {},
                    [](std::uint8_t kept, char read) { return kept == static_cast<std::uint8_t>(read); });
}

bool isKeptAlready(const fs::path& folder, const std::string& prefix, const Data& bytes) {
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(folder, error)) {
    if (entry.path().filename().string().starts_with(prefix) && holdsExactly(entry.path(), bytes)) return true;
  }
  return false;
}

Data bytesOf(const PreferencesDatabase& store, const StoredValue& value) {
  return value.runs ? bytesOfList(store, *value.runs) : Data(value.bytes.begin(), value.bytes.end());
}

template <class Values>
auto* find(const Values& values, const std::string& key) {
  const auto found = values.find(key);
  return found == values.end() ? nullptr : &found->second;
}

EncodedValue encoded(std::string_view key, const Value& value) {
  if (auto result = EncodedValue::encode(value)) return *std::move(result);
  throw SQLiteError(SQLITE_TOOBIG, EncodedValue::errorFor(key));
}

bool isDamage(const SQLiteError& error) {
  // What another try on the same connection could not cure.
  const int code = error.code();
  return code == SQLITE_CORRUPT || code == SQLITE_NOTADB || code == SQLITE_IOERR || code == SQLITE_CANTOPEN ||
         code == SQLITE_READONLY;
}

}  // namespace

SQLitePreferences::SQLitePreferences(fs::path folder, fs::path defaultsFile, LogHandle log, Access access)
    : _folder(std::move(folder)),
      _access(access),
      _memory(_folder.string(), log),
      _defaults(std::move(defaultsFile), std::move(log)) {}

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
  const MutexLock lock(_connectionMutex);
  const PendingValues values = _memory.copyOfPending(domain);
  if (values.empty()) return renew(domain);
  if (write(domain, values)) return true;
  _memory.markFailed(domain, values);
  renew(domain);
  return false;
}

bool SQLitePreferences::insertIfAbsent(const Dictionary& values, std::string_view domain) {
  const MutexLock lock(_connectionMutex);
  try {
    const PreferencesDatabase& store = database();
    SQLiteTransaction transaction = store.transaction(SQLiteTransaction::Kind::write);
    for (const auto& [key, value] : values) {
      bool isThere = false;
      store.visitValue(key, domain, [&](const StoredValue&) { isThere = true; });
      if (!isThere) writeValue(store, key, domain, encoded(key, value), nullptr);
    }
    transaction.commit();
    _memory.ends(Fault::write);
  } catch (const SQLiteError& error) {
    _memory.begins(Fault::write, error.what());
    closeAfter(error);
    return false;
  }
  // The data version does not change by an own commit.
  _dataVersions.erase(std::string(domain));
  return renew(domain);
}

PutAside SQLitePreferences::putAside(std::string_view key, std::string_view domain) {
  const MutexLock lock(_connectionMutex);
  PutAside result;
  try {
    const PreferencesDatabase& store = database();
    const SQLiteTransaction transaction = store.transaction(SQLiteTransaction::Kind::read);
    if (const auto lastGood = store.lastGoodValue(key, domain)) result.lastGood = decodeCBOR(*lastGood);
    store.visitValue(key, domain, [&](const StoredValue& value) {
      if (value.runs) result.lastGood = lastGoodList(store, *value.runs);
      result.kept = keepAside(key, domain, bytesOf(store, value));
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

bool SQLitePreferences::isWritable() {
  const MutexLock lock(_connectionMutex);
  try {
    if (database().isWritable()) return true;
    _memory.begins(Fault::write, PreferencesDatabase::ReadOnlyError);
    return false;
  } catch (const SQLiteError& error) {
    _memory.begins(Fault::read, error.what());
    closeAfter(error);
    return false;
  }
}

std::string SQLitePreferences::lastError() const { return _memory.lastError(); }

// The connection

const PreferencesDatabase& SQLitePreferences::database() {
  if (_database && _database->isCurrent()) return *_database;
  _database.reset();
  _dataVersions.clear();
  _database = std::make_unique<PreferencesDatabase>(_folder, _access == Access::readWrite);
  return *_database;
}

void SQLitePreferences::closeAfter(const SQLiteError& error) {
  if (isDamage(error)) _database.reset();
}

bool SQLitePreferences::renew(std::string_view domain) {
  try {
    readIfChanged(domain);
    _memory.ends(Fault::read);
    return true;
  } catch (const SQLiteError& error) {
    _memory.begins(Fault::read, error.what());
    closeAfter(error);
    _memory.install(domain, nullptr);
    return false;
  }
}

void SQLitePreferences::readIfChanged(std::string_view domain) {
  const PreferencesDatabase& store = database();
  // No transaction for a look: when the version is that of the snapshot, the snapshot was what is stored at that
  // moment.
  if (isUpToDate(domain)) return;
  const SQLiteTransaction transaction = store.transaction(SQLiteTransaction::Kind::read);
  _memory.install(domain, read(domain));
}

bool SQLitePreferences::isUpToDate(std::string_view domain) {
  const auto version = _dataVersions.find(domain);
  return version != _dataVersions.end() && _memory.snapshotOf(domain) && version->second == _database->dataVersion();
}

std::shared_ptr<const SQLitePreferences::Snapshot> SQLitePreferences::read(std::string_view domain) {
  const auto previous = _memory.snapshotOf(domain);
  const bool isSameConnection = _dataVersions.contains(domain);
  auto snapshot = std::make_shared<Snapshot>();
  const PreferencesDatabase& store = *_database;
  store.visitValues(domain, [&](const std::string& key, const StoredValue& value) {
    snapshot->emplace(key, readValue(store, value, previous ? find(*previous, key) : nullptr, isSameConnection));
  });
  _dataVersions.insert_or_assign(std::string(domain), store.dataVersion());
  return snapshot;
}

SQLitePreferences::Stored SQLitePreferences::readValue(const PreferencesDatabase& store, const StoredValue& value,
                                                       const Stored* previous, bool isSameConnection) {
  if (value.runs) {
    const auto known = previous ? previous->list : nullptr;
    const bool isFollowed = isSameConnection && known && known->rows.list == value.runs->list;
    const auto list = isFollowed ? readNewerRows(store, *value.runs, known) : readList(store, *value.runs, known.get());
    // All rows were read, and will not be again.
    if (!isFollowed) store.statements().database().releaseMemory();
    if (list) return {list->value, nullptr, list};
    return {Value(bytesOfList(store, *value.runs)), nullptr, nullptr};
  }
  if (previous && previous->bytes && std::ranges::equal(*previous->bytes, value.bytes)) return *previous;
  const auto bytes = std::make_shared<const Data>(value.bytes.begin(), value.bytes.end());
  return {decodeCBOR(*bytes).value_or(Value(*bytes)), bytes, nullptr};
}

bool SQLitePreferences::write(std::string_view domain, const PendingValues& values) {
  try {
    std::map<std::string, EncodedValue> changes;
    for (const auto& [key, pending] : values) {
      if (pending.value) changes.try_emplace(key, encoded(key, *pending.value));
    }
    const PreferencesDatabase& store = database();
    SQLiteTransaction transaction = store.transaction(SQLiteTransaction::Kind::write);
    // A domain that cannot be read is not written either. Which rows change is told by what is stored now.
    auto snapshot = std::make_shared<Snapshot>(*(isUpToDate(domain) ? _memory.snapshotOf(domain) : read(domain)));
    for (const auto& [key, pending] : values) {
      if (pending.value) {
        Stored stored = writeValue(store, key, domain, std::move(changes.at(key)), find(*snapshot, key));
        snapshot->insert_or_assign(key, std::move(stored));
      } else {
        store.remove(key, domain);
        snapshot->erase(key);
      }
    }
    transaction.commit();
    _memory.install(domain, std::move(snapshot));
  } catch (const SQLiteError& error) {
    _memory.begins(Fault::write, error.what());
    _dataVersions.erase(std::string(domain));
    closeAfter(error);
    return false;
  }
  _memory.removeWritten(domain, values);
  _memory.ends(Fault::read);
  _memory.ends(Fault::write);
  return true;
}

SQLitePreferences::Stored SQLitePreferences::writeValue(const PreferencesDatabase& store, std::string_view key,
                                                        std::string_view domain, EncodedValue value,
                                                        const Stored* stored) {
  if (value.bytes) {
    store.write(key, domain, *value.bytes);
    return {value.value, std::make_shared<const Data>(*std::move(value.bytes)), nullptr};
  }
  const auto list = writeList(store, key, domain, *std::move(value.list), stored ? stored->list : nullptr);
  return {list->value, nullptr, list};
}

bool SQLitePreferences::keepAside(std::string_view key, std::string_view domain, const Data& bytes) const {
  const fs::path folder = _folder / "aside";
  const std::string prefix = fileNameOf(key) + "-" + fileNameOf(domain) + "-";
  if (isKeptAlready(folder, prefix, bytes)) return true;
  if (createPrivateFolder(folder)) return false;
  const std::string name = prefix + utcTime();
  constexpr int attempts = 1000;
  for (int attempt = 1; attempt <= attempts; ++attempt) {
    const std::string suffix = attempt == 1 ? "" : "-" + std::to_string(attempt);
    const FileCreation creation = createPrivateFile(folder / (name + suffix + ".cbor"), bytes);
    if (creation != FileCreation::exists) return creation == FileCreation::created;
  }
  return false;
}

}  // namespace pellor
