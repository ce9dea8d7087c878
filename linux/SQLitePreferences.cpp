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

Data encoded(std::string_view key, const Value& value) {
  std::optional<Data> bytes = encodeCBOR(value);
  if (!bytes) throw SQLiteError(SQLITE_TOOBIG, std::string(key) + " is nested too deeply or too long to be stored");
  return *std::move(bytes);
}

bool isDamage(const SQLiteError& error) {
  // What another try on the same connection could not cure.
  const int code = error.code();
  return code == SQLITE_CORRUPT || code == SQLITE_NOTADB || code == SQLITE_IOERR || code == SQLITE_CANTOPEN ||
         code == SQLITE_READONLY;
}

}  // namespace

/// Makes values of stored bytes, without decoding those that are known.
class SQLitePreferences::ValueReader {
 public:
  explicit ValueReader(std::shared_ptr<const Snapshot> previous) : _previous(std::move(previous)) {}

  /// A value that is being written, with its bytes.
  void know(const std::string& key, Value value, Data bytes) {
    _written.insert_or_assign(key, Stored{std::move(value), std::make_shared<const Data>(std::move(bytes))});
  }

  const Data& bytesOf(const std::string& key) const { return *_written.at(key).bytes; }

  Stored read(const std::string& key, std::span<const std::uint8_t> bytes) const {
    if (const Stored* known = find(_previous.get(), key, bytes)) return *known;
    if (const Stored* known = find(&_written, key, bytes)) return *known;
    const auto kept = std::make_shared<const Data>(bytes.begin(), bytes.end());
    return {decodeCBOR(bytes).value_or(Value(*kept)), kept};
  }

 private:
  static const Stored* find(const Snapshot* values, const std::string& key, std::span<const std::uint8_t> bytes) {
    if (!values) return nullptr;
    const auto found = values->find(key);
    if (found == values->end() || !std::ranges::equal(*found->second.bytes, bytes)) return nullptr;
    return &found->second;
  }

  std::shared_ptr<const Snapshot> _previous;
  Snapshot _written;
};

SQLitePreferences::SQLitePreferences(fs::path folder, fs::path defaultsFile, LogHandle log, Access access)
    : _folder(std::move(folder)), _access(access), _log(std::move(log)), _defaults(std::move(defaultsFile), _log) {}

SQLitePreferences::~SQLitePreferences() = default;

PreferenceAnswer<Value> SQLitePreferences::copyValue(std::string_view key, std::string_view domain) {
  if (const auto answer = answerFromMemory(key, domain)) return *answer;
  const MutexLock lock(_connectionMutex);
  // Another thread may have read the domain meanwhile; then this renews nothing.
  if (!renew(domain)) return PreferenceAnswer<Value>::unreadable();
  return answerFromMemory(key, domain).value_or(PreferenceAnswer<Value>::unreadable());
}

PreferenceAnswer<std::int64_t> SQLitePreferences::integerValue(std::string_view key, std::string_view domain) {
  const PreferenceAnswer<Value> answer = copyValue(key, domain);
  if (!answer.isReadable()) return PreferenceAnswer<std::int64_t>::unreadable();
  const auto integer = answer.value() ? answer.value()->integer() : std::nullopt;
  return integer ? PreferenceAnswer<std::int64_t>::some(*integer) : PreferenceAnswer<std::int64_t>::none();
}

PreferenceAnswer<bool> SQLitePreferences::booleanValue(std::string_view key, std::string_view domain) {
  const PreferenceAnswer<Value> answer = copyValue(key, domain);
  if (!answer.isReadable()) return PreferenceAnswer<bool>::unreadable();
  const auto boolean = answer.value() ? answer.value()->boolean() : std::nullopt;
  return boolean ? PreferenceAnswer<bool>::some(*boolean) : PreferenceAnswer<bool>::none();
}

void SQLitePreferences::setValue(std::string_view key, std::optional<Value> value, std::string_view domain) {
  const MutexLock lock(_mutex);
  Pending pending{std::move(value), ++_lastSerial};
  domainNamed(domain).pending.insert_or_assign(std::string(key), std::move(pending));
}

bool SQLitePreferences::synchronize(std::string_view domain) {
  const MutexLock lock(_connectionMutex);
  const PendingValues values = copyOfDomain(domain).pending;
  if (values.empty()) return renew(domain);
  if (write(domain, values)) return true;
  markFailed(domain, values);
  renew(domain);
  return false;
}

bool SQLitePreferences::insertIfAbsent(const Dictionary& values, std::string_view domain) {
  const MutexLock lock(_connectionMutex);
  try {
    const PreferencesDatabase& store = database();
    SQLiteTransaction transaction = store.transaction(SQLiteTransaction::Kind::write);
    for (const auto& [key, value] : values) {
      if (!store.value(key, domain)) store.write(key, domain, encoded(key, value));
    }
    transaction.commit();
    ends(Fault::write);
  } catch (const SQLiteError& error) {
    begins(Fault::write, error.what());
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
    if (const auto lastGood = store.lastGoodValue(key, domain)) result.lastGood = decodeCBOR(*lastGood);
    if (const auto bytes = store.value(key, domain)) result.kept = keepAside(key, domain, *bytes);
  } catch (const SQLiteError& error) {
    begins(Fault::read, error.what());
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
    begins(Fault::write, PreferencesDatabase::ReadOnlyError);
    return false;
  } catch (const SQLiteError& error) {
    begins(Fault::read, error.what());
    closeAfter(error);
    return false;
  }
}

std::string SQLitePreferences::lastError() const {
  const MutexLock lock(_mutex);
  for (const Fault fault : {Fault::write, Fault::read}) {
    if (const auto found = _errors.find(fault); found != _errors.end()) return found->second;
  }
  return {};
}

// The state in memory

std::optional<PreferenceAnswer<Value>> SQLitePreferences::answerFromMemory(std::string_view key,
                                                                           std::string_view domain) const {
  const MutexLock lock(_mutex);
  const auto found = _domains.find(domain);
  if (found == _domains.end()) return std::nullopt;
  const auto answer = [](const std::optional<Value>& value) {
    return value ? PreferenceAnswer<Value>::some(*value) : PreferenceAnswer<Value>::none();
  };
  const auto pending = found->second.pending.find(key);
  if (pending != found->second.pending.end() && !pending->second.hasFailed) return answer(pending->second.value);
  if (!found->second.snapshot) return std::nullopt;
  const auto stored = found->second.snapshot->find(key);
  return answer(stored == found->second.snapshot->end() ? std::nullopt : std::optional(stored->second.value));
}

SQLitePreferences::Domain& SQLitePreferences::domainNamed(std::string_view domain) {
  return _domains.try_emplace(std::string(domain)).first->second;
}

SQLitePreferences::Domain SQLitePreferences::copyOfDomain(std::string_view domain) const {
  const MutexLock lock(_mutex);
  const auto found = _domains.find(domain);
  return found == _domains.end() ? Domain{} : found->second;
}

void SQLitePreferences::install(std::string_view domain, std::shared_ptr<const Snapshot> snapshot) {
  const MutexLock lock(_mutex);
  // The old snapshot goes with `snapshot`, after the lock.
  domainNamed(domain).snapshot.swap(snapshot);
}

void SQLitePreferences::removeWritten(std::string_view domain, const PendingValues& written) {
  const MutexLock lock(_mutex);
  PendingValues& pending = domainNamed(domain).pending;
  for (const auto& [key, value] : written) {
    const auto found = pending.find(key);
    if (found != pending.end() && found->second.serial == value.serial) pending.erase(found);
  }
}

void SQLitePreferences::markFailed(std::string_view domain, const PendingValues& failed) {
  const MutexLock lock(_mutex);
  PendingValues& pending = domainNamed(domain).pending;
  for (const auto& [key, value] : failed) {
    const auto found = pending.find(key);
    if (found != pending.end() && found->second.serial == value.serial) found->second.hasFailed = true;
  }
}

const char* SQLitePreferences::participleOf(Fault fault) { return fault == Fault::read ? "read" : "written"; }

void SQLitePreferences::begins(Fault fault, const std::string& error) {
  {
    const MutexLock lock(_mutex);
    if (!_errors.insert_or_assign(fault, error).second) return;
  }
  _log.log("preferences in %@ cannot be %@: %@", _folder.string(), participleOf(fault), error);
}

void SQLitePreferences::ends(Fault fault) {
  {
    const MutexLock lock(_mutex);
    if (_errors.erase(fault) == 0) return;
  }
  _log.log("preferences in %@ can be %@ again", _folder.string(), participleOf(fault));
}

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
    ends(Fault::read);
    return true;
  } catch (const SQLiteError& error) {
    begins(Fault::read, error.what());
    closeAfter(error);
    install(domain, nullptr);
    return false;
  }
}

void SQLitePreferences::readIfChanged(std::string_view domain) {
  const PreferencesDatabase& store = database();
  const SQLiteTransaction transaction = store.transaction(SQLiteTransaction::Kind::read);
  const auto previous = copyOfDomain(domain).snapshot;
  const auto version = _dataVersions.find(domain);
  const bool isKnown = previous && version != _dataVersions.end() && version->second == store.dataVersion();
  if (isKnown) return;
  ValueReader reader(previous);
  install(domain, read(domain, reader));
}

std::shared_ptr<const SQLitePreferences::Snapshot> SQLitePreferences::read(std::string_view domain,
                                                                           ValueReader& reader) {
  auto snapshot = std::make_shared<Snapshot>();
  _dataVersions.insert_or_assign(std::string(domain), _database->dataVersion());
  _database->visitValues(domain, [&](const std::string& key, std::span<const std::uint8_t> bytes) {
    snapshot->emplace(key, reader.read(key, bytes));
  });
  return snapshot;
}

bool SQLitePreferences::write(std::string_view domain, const PendingValues& values) {
  try {
    ValueReader reader(copyOfDomain(domain).snapshot);
    for (const auto& [key, pending] : values) {
      if (pending.value) reader.know(key, *pending.value, encoded(key, *pending.value));
    }
    const PreferencesDatabase& store = database();
    SQLiteTransaction transaction = store.transaction(SQLiteTransaction::Kind::write);
    for (const auto& [key, pending] : values) {
      pending.value ? store.write(key, domain, reader.bytesOf(key)) : store.remove(key, domain);
    }
    // A domain that cannot be read is not written either.
    auto snapshot = read(domain, reader);
    transaction.commit();
    install(domain, std::move(snapshot));
  } catch (const SQLiteError& error) {
    begins(Fault::write, error.what());
    _dataVersions.erase(std::string(domain));
    closeAfter(error);
    return false;
  }
  removeWritten(domain, values);
  ends(Fault::read);
  ends(Fault::write);
  return true;
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
