#include "linux/PreferencesDatabase.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "linux/PrivateFiles.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;

constexpr double BusySeconds = 5;
// So that the row of a run, of 5 to 8 kB, fits into a page: else each write of it takes other pages than the last one.
constexpr int PageSize = 8192;
constexpr std::int64_t SchemaVersion = 2;
// The one before it had no rows for runs.
constexpr std::int64_t VersionWithoutRuns = 1;

/// Held while the file is made, opened and laid out. SQLite's own locks do not cover the change to write-ahead logging
/// when several processes start at once.
class FolderLock {
 public:
  explicit FolderLock(const fs::path& folder)
      : _descriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (!_descriptor) throw SQLiteError(SQLITE_CANTOPEN, systemError("cannot open the folder", folder));
    // Tried for a while only: a holder that was stopped in the middle must not stop everybody else.
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(BusySeconds);
    while (::flock(_descriptor.get(), LOCK_EX | LOCK_NB) != 0) {
      if (errno != EWOULDBLOCK && errno != EINTR) throw SQLiteError(SQLITE_IOERR, systemError("cannot lock", folder));
      if (std::chrono::steady_clock::now() > end) throw SQLiteError(SQLITE_BUSY, folder.string() + " is locked");
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  }

 private:
  FileDescriptor _descriptor;
};

fs::path besideFile(const fs::path& file, const char* suffix) { return file.string() + suffix; }

// Made without opening it: a close would drop the locks that another connection of this process holds on the file.
// SQLite gives its other files the same mode.
void makeFile(const fs::path& file) {
  if (::mknod(file.c_str(), S_IFREG | S_IRUSR | S_IWUSR, 0) == 0 || errno == EEXIST) return;
  throw SQLiteError(SQLITE_CANTOPEN, systemError("cannot make", file));
}

void closeToOthers(const fs::path& file) {
  struct stat found {};
  if (::stat(file.c_str(), &found) != 0 || !S_ISREG(found.st_mode) || (found.st_mode & 077) == 0) return;
  // Fails for another user's file, which stays as that user wants it.
  ::chmod(file.c_str(), S_IRUSR | S_IWUSR);
}

bool lacksPermission(const SQLiteError& error) {
  return error.code() == SQLITE_CANTOPEN || error.code() == SQLITE_READONLY;
}

void requireVersion(std::int64_t version) {
  if (version == SchemaVersion || version == VersionWithoutRuns) return;
  throw SQLiteError(SQLITE_NOTADB, version > SchemaVersion
                                       ? "the store was made by a later version (" + std::to_string(version) + ")"
                                       : "the file is no store of this program");
}

void makeValues(const SQLiteDatabase& database) {
  for (const char* table : {"preferences", "last_good"}) {
    database.execute("CREATE TABLE " + std::string(table) +
                     " (domain TEXT NOT NULL, key TEXT NOT NULL, value BLOB NOT NULL, PRIMARY KEY (domain, key))"
                     " WITHOUT ROWID");
  }
}

// A run's id is made of its list and its number there.
void makeRuns(const SQLiteDatabase& database) {
  for (const char* change :
       {"ALTER TABLE preferences ADD COLUMN list INTEGER", "ALTER TABLE preferences ADD COLUMN count INTEGER",
        "ALTER TABLE preferences ADD COLUMN revision INTEGER",
        "CREATE TABLE runs (id INTEGER PRIMARY KEY, list INTEGER NOT NULL, revision INTEGER NOT NULL,"
        " value BLOB NOT NULL)",
        "CREATE INDEX runs_by_revision ON runs (list, revision)",
        "CREATE TABLE last_good_runs (id INTEGER PRIMARY KEY, value BLOB NOT NULL)"}) {
    database.execute(change);
  }
}

}  // namespace

fs::path PreferencesDatabase::fileIn(const fs::path& folder) { return folder / "preferences.sqlite"; }

PreferencesDatabase::PreferencesDatabase(const fs::path& folder, bool forWriting) {
  if (forWriting) openForWriting(folder);
  if (!_isWritable) openForReading(fileIn(folder));
}

void PreferencesDatabase::openForWriting(const fs::path& folder) {
  const fs::path file = fileIn(folder);
  if (auto error = createPrivateFolder(folder)) throw SQLiteError(SQLITE_CANTOPEN, *error);
  const FolderLock lock(folder);
  std::error_code ignored;
  if (!fs::exists(file, ignored)) makeFile(file);
  for (const char* suffix : {"", "-wal", "-shm"}) closeToOthers(besideFile(file, suffix));
  open(file, SQLiteDatabase::Access::readWrite);
  if (_statements->database().isReadOnly()) return;
  try {
    prepareForWriting();
    _isWritable = true;
  } catch (const SQLiteError& error) {
    // The file may be written but not its folder, where the log would have to be.
    if (!lacksPermission(error)) throw;
  }
}

void PreferencesDatabase::open(const fs::path& file, SQLiteDatabase::Access access) {
  _statements = std::make_unique<SQLiteStatements>(SQLiteDatabase(file, access, BusySeconds));
}

void PreferencesDatabase::prepareForWriting() {
  const SQLiteDatabase& database = _statements->database();
  database.execute("PRAGMA synchronous = FULL");
  database.execute("PRAGMA cell_size_check = ON");
  const std::int64_t found = version();
  const bool isNew = found == 0 && database.integer("SELECT count(*) FROM sqlite_master") == 0;
  if (isNew) {
    database.execute("PRAGMA page_size = " + std::to_string(PageSize));
  } else {
    requireVersion(found);
  }
  database.execute("PRAGMA journal_mode = WAL");
  if (found == SchemaVersion) return;
  SQLiteTransaction transaction(database, SQLiteTransaction::Kind::write);
  if (isNew) makeValues(database);
  makeRuns(database);
  database.execute("PRAGMA user_version = " + std::to_string(SchemaVersion));
  transaction.commit();
}

void PreferencesDatabase::openForReading(const fs::path& file) {
  open(file, SQLiteDatabase::Access::readOnly);
  try {
    requireVersion(version());
    return;
  } catch (const SQLiteError& error) {
    // Reading beside writers needs two more files. Where they cannot be made nobody writes either, and the file by
    // itself is complete, unless a log with commits that are not in it yet was left beside it.
    std::error_code ignored;
    const auto logSize = fs::file_size(besideFile(file, "-wal"), ignored);
    const bool isComplete = ignored || logSize == 0;
    if (!lacksPermission(error) || !isComplete) throw;
  }
  open(file, SQLiteDatabase::Access::frozen);
  _isFrozen = true;
  requireVersion(version());
}

std::int64_t PreferencesDatabase::version() const { return _statements->integer("PRAGMA user_version"); }

SQLiteTransaction PreferencesDatabase::transaction(SQLiteTransaction::Kind kind) const {
  if (kind == SQLiteTransaction::Kind::write && !_isWritable) {
    throw SQLiteError(SQLITE_READONLY, ReadOnlyError);
  }
  return {[&statements = *_statements](std::string_view text) { statements.use(text)->run(); }, kind};
}

// A store that may only be read stays as an earlier version laid it out, until a writer comes.
std::string PreferencesDatabase::textForValues(std::string_view condition) const {
  const char* runs = !_isWritable && version() == VersionWithoutRuns ? "0, 0, 0" : "list, count, revision";
  return std::string("SELECT key, value, ")
      .append(runs)
      .append(" FROM preferences WHERE domain = ?1")
      .append(condition);
}

// Bytes beside a list are newer than it: an earlier version that was still running wrote them.
StoredValue PreferencesDatabase::valueIn(const SQLiteStatement& statement) {
  StoredValue value{statement.bytes(1), std::nullopt};
  const StoredRuns runs{statement.integer(2), statement.integer(3), statement.integer(4)};
  if (value.bytes.empty() && runs.list != 0) value.runs = runs;
  return value;
}

std::optional<Data> PreferencesDatabase::lastGoodValue(std::string_view key, std::string_view domain) const {
  const SQLiteStatements::Use statement =
      _statements->use("SELECT value FROM last_good WHERE domain = ?1 AND key = ?2");
  statement->bind(1, domain).bind(2, key);
  if (!statement->step()) return std::nullopt;
  const std::span<const std::uint8_t> bytes = statement->bytes(0);
  return Data(bytes.begin(), bytes.end());
}

void PreferencesDatabase::write(std::string_view key, std::string_view domain,
                                std::span<const std::uint8_t> value) const {
  removeRuns(key, domain);
  // An update to the same bytes would still be a commit to the disk, and news to every other process.
  change(
      "INSERT INTO preferences (domain, key, value) VALUES (?1, ?2, ?3) ON CONFLICT DO UPDATE"
      " SET value = excluded.value, list = NULL, count = NULL, revision = NULL WHERE value IS NOT excluded.value",
      key, domain, value);
  change(
      "INSERT INTO last_good VALUES (?1, ?2, ?3) ON CONFLICT DO UPDATE"
      " SET value = excluded.value WHERE value IS NOT excluded.value",
      key, domain, value);
}

void PreferencesDatabase::write(std::string_view key, std::string_view domain, const StoredRuns& runs) const {
  const SQLiteStatements::Use statement = _statements->use(
      "INSERT INTO preferences VALUES (?1, ?2, x'', ?3, ?4, ?5) ON CONFLICT DO UPDATE"
      " SET value = excluded.value, list = excluded.list, count = excluded.count, revision = excluded.revision");
  statement->bind(1, domain).bind(2, key).bind(3, runs.list).bind(4, runs.count).bind(5, runs.revision).run();
}

void PreferencesDatabase::remove(std::string_view key, std::string_view domain) const {
  removeRuns(key, domain);
  change("DELETE FROM preferences WHERE domain = ?1 AND key = ?2", key, domain, std::nullopt);
  change("DELETE FROM last_good WHERE domain = ?1 AND key = ?2", key, domain, std::nullopt);
}

void PreferencesDatabase::removeRuns(std::string_view key, std::string_view domain) const {
  const std::string rows =
      "SELECT id FROM runs WHERE list = (SELECT list FROM preferences WHERE domain = ?1 AND key = ?2)";
  for (const char* table : {"last_good_runs", "runs"}) {
    change(std::string("DELETE FROM ").append(table).append(" WHERE id IN (").append(rows).append(")"), key, domain,
           std::nullopt);
  }
}

void PreferencesDatabase::change(std::string_view text, std::string_view key, std::string_view domain,
                                 std::optional<std::span<const std::uint8_t>> value) const {
  const SQLiteStatements::Use statement = _statements->use(text);
  statement->bind(1, domain).bind(2, key);
  if (value) statement->bind(3, *value);
  statement->run();
}

}  // namespace pellor
