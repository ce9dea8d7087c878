#include "linux/PreferencesDatabase.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "linux/FileLock.h"
#include "linux/PrivateFiles.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;

// So that the row of a run, of 5 to 8 kB, fits into a page: else each write of it takes other pages than the last one.
constexpr int PageSize = 8192;

/// Held while the file is made, opened and laid out. SQLite's own locks do not cover the change to write-ahead logging
/// when several processes start at once.
FileLock lockFolder(const fs::path& folder, LockPatience& patience) {
  FileDescriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!opened) throw SQLiteError(SQLITE_CANTOPEN, systemError("cannot open the folder", folder));
  auto lock = FileLock::take(std::move(opened), patience);
  if (!lock) throw SQLiteError(errno == EWOULDBLOCK ? SQLITE_BUSY : SQLITE_IOERR, lockError(folder));
  return *std::move(lock);
}

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

// Of a file, and of no copy of it: a copy goes on from earlier versions than others know, and their counts would be
// given a second time. Where the system does not know when a file was made, its number has to do.
std::string identityOf(const fs::path& file) {
  struct statx found {};
  if (::statx(AT_FDCWD, file.c_str(), 0, STATX_INO | STATX_BTIME, &found) != 0) return "";
  const bool isDated = (found.stx_mask & STATX_BTIME) != 0;
  std::string identity = std::to_string(found.stx_ino);
  if (isDated) identity += " " + std::to_string(found.stx_btime.tv_sec) + "." + std::to_string(found.stx_btime.tv_nsec);
  return identity;
}

bool lacksPermission(const SQLiteError& error) {
  return error.code() == SQLITE_CANTOPEN || error.code() == SQLITE_READONLY;
}

std::uint64_t unsignedIn(const SQLiteStatement& statement, int column) {
  return static_cast<std::uint64_t>(statement.integer(column));
}

PreferenceWriteID writeIn(const SQLiteStatement& statement, int column) {
  return {unsignedIn(statement, column), unsignedIn(statement, column + 1)};
}

}  // namespace

fs::path PreferencesDatabase::fileIn(const fs::path& folder) { return folder / "preferences.sqlite"; }

PreferencesDatabase::PreferencesDatabase(const fs::path& folder, bool forWriting,
                                         std::shared_ptr<LockPatience> patience)
    : _patience(std::move(patience)) {
  if (forWriting) openForWriting(folder);
  if (!_isWritable) openForReading(fileIn(folder));
}

void PreferencesDatabase::openForWriting(const fs::path& folder) {
  const fs::path file = fileIn(folder);
  if (auto error = createPrivateFolder(folder)) throw SQLiteError(SQLITE_CANTOPEN, *error);
  const FileLock lock = lockFolder(folder, *_patience);
  std::error_code ignored;
  if (!fs::exists(file, ignored)) makeFile(file);
  for (const char* suffix : {"", "-wal", "-shm"}) closeToOthers(besideFile(file, suffix));
  open(file, SQLiteDatabase::Access::readWrite);
  if (_statements->database().isReadOnly()) return;
  try {
    prepareForWriting(identityOf(file));
    _isWritable = true;
  } catch (const SQLiteError& error) {
    // The file may be written but not its folder, where the log would have to be.
    if (!lacksPermission(error)) throw;
  }
}

void PreferencesDatabase::open(const fs::path& file, SQLiteDatabase::Access access) {
  _statements = std::make_unique<SQLiteStatements>(SQLiteDatabase(file, access, _patience));
}

void PreferencesDatabase::prepareForWriting(const std::string& identity) {
  const SQLiteDatabase& database = _statements->database();
  database.execute("PRAGMA synchronous = FULL");
  database.execute("PRAGMA cell_size_check = ON");
  const std::int64_t found = version();
  const bool isNew = found == 0 && database.integer("SELECT count(*) FROM sqlite_master") == 0;
  if (isNew) database.execute("PRAGMA page_size = " + std::to_string(PageSize));
  const PreferencesLayout* layout = isNew ? nullptr : &PreferencesLayout::withNumber(found);
  database.execute("PRAGMA journal_mode = WAL");
  const bool isPresent = layout && layout->hasVersions;
  if (!isPresent || storedIdentity() != identity) {
    SQLiteTransaction transaction(database, SQLiteTransaction::Kind::write);
    if (!layout) {
      PreferencesLayout::make(database);
    } else if (!isPresent) {
      PreferencesLayout::migrate(database, *layout);
    }
    PreferencesLayout::nameStore(database, identity);
    transaction.commit();
  }
  _number = storedNumber();
}

void PreferencesDatabase::openForReading(const fs::path& file) {
  open(file, SQLiteDatabase::Access::readOnly);
  try {
    layout();
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
  layout();
}

std::int64_t PreferencesDatabase::version() const { return _statements->integer("PRAGMA user_version"); }

// A store that may only be read stays as an earlier version laid it out, until a writer comes.
const PreferencesLayout& PreferencesDatabase::layout() const {
  return _isWritable ? PreferencesLayout::present() : PreferencesLayout::withNumber(version());
}

std::uint64_t PreferencesDatabase::number() const {
  if (_isWritable) return _number;
  return layout().hasVersions ? storedNumber() : 0;
}

std::uint64_t PreferencesDatabase::storedNumber() const {
  return static_cast<std::uint64_t>(_statements->integer("SELECT number FROM store"));
}

std::string PreferencesDatabase::storedIdentity() const {
  const SQLiteStatements::Use statement = _statements->use("SELECT file FROM store");
  return statement->step() ? statement->text(0) : std::string();
}

SQLiteTransaction PreferencesDatabase::transaction(SQLiteTransaction::Kind kind) const {
  if (kind == SQLiteTransaction::Kind::write && !_isWritable) {
    throw SQLiteError(SQLITE_READONLY, ReadOnlyError);
  }
  return {[&statements = *_statements](std::string_view text) { statements.use(text)->run(); }, kind};
}

std::string PreferencesDatabase::textForValues(std::string_view condition) const {
  const PreferencesLayout& present = layout();
  const char* more = present.hasVersions ? "list, count, revision, writer, write"
                     : present.hasRuns   ? "list, count, revision, 0, 0"
                                         : "0, 0, 0, 0, 0";
  return std::string("SELECT key, value, ")
      .append(more)
      .append(" FROM ")
      .append(present.values)
      .append(" WHERE domain = ?1")
      .append(condition);
}

// Bytes beside a list are newer than it: a program from before there were rows for runs, still running, wrote them.
StoredValue PreferencesDatabase::valueIn(const SQLiteStatement& statement, std::uint64_t store) {
  StoredValue value{statement.bytes(1), std::nullopt, {store, unsignedIn(statement, 4), writeIn(statement, 5)}};
  const StoredRuns runs{statement.integer(2), statement.integer(3), statement.integer(4)};
  if (value.bytes.empty() && runs.list != 0) value.runs = runs;
  return value;
}

PreferenceVersion PreferencesDatabase::versionOf(const StoredValue& value) const {
  if (!layout().hasVersions) return {};
  if (!value.runs) return value.version;
  const SQLiteStatements::Use row = _statements->use(
      "SELECT revision, writer, write FROM stored_runs INDEXED BY runs_by_revision WHERE list = ?1"
      " ORDER BY revision DESC LIMIT 1");
  row->bind(1, value.runs->list);
  if (!row->step() || unsignedIn(*row, 0) <= value.version.count) return value.version;
  return {value.version.store, unsignedIn(*row, 0), writeIn(*row, 1)};
}

PreferenceVersion PreferencesDatabase::versionAfter(const PreferenceVersion* stored, PreferenceWriteID id) const {
  const std::uint64_t last =
      stored ? stored->count : static_cast<std::uint64_t>(_statements->integer("SELECT highest_removed FROM store"));
  return {_number, last + 1, id};
}

std::optional<Data> PreferencesDatabase::lastGoodValue(std::string_view key, std::string_view domain) const {
  const SQLiteStatements::Use statement = _statements->use(
      std::string("SELECT value FROM ").append(layout().lastGood).append(" WHERE domain = ?1 AND key = ?2"));
  statement->bind(1, domain).bind(2, key);
  if (!statement->step()) return std::nullopt;
  const std::span<const std::uint8_t> bytes = statement->bytes(0);
  return Data(bytes.begin(), bytes.end());
}

void PreferencesDatabase::write(std::string_view key, std::string_view domain, std::span<const std::uint8_t> value,
                                const PreferenceVersion& version) const {
  removeRuns(key, domain);
  {
    const SQLiteStatements::Use statement = _statements->use(
        "INSERT INTO stored_values (domain, key, value, revision, writer, write) VALUES (?1, ?2, ?3, ?4, ?5, ?6)"
        " ON CONFLICT DO UPDATE SET value = excluded.value, list = NULL, count = NULL, revision = excluded.revision,"
        " writer = excluded.writer, write = excluded.write");
    statement->bind(1, domain).bind(2, key).bind(3, value);
    bindVersion(*statement, 4, version);
    statement->run();
  }
  writeLastGood(key, domain, value);
}

// An update to the same bytes would still be a commit to the disk, and news to every other process.
void PreferencesDatabase::writeLastGood(std::string_view key, std::string_view domain,
                                        std::span<const std::uint8_t> value) const {
  const SQLiteStatements::Use statement = _statements->use(
      "INSERT INTO good_values VALUES (?1, ?2, ?3) ON CONFLICT DO UPDATE"
      " SET value = excluded.value WHERE value IS NOT excluded.value");
  statement->bind(1, domain).bind(2, key).bind(3, value).run();
}

void PreferencesDatabase::write(std::string_view key, std::string_view domain, const StoredRuns& runs,
                                const PreferenceVersion& version) const {
  const SQLiteStatements::Use statement = _statements->use(
      "INSERT INTO stored_values (domain, key, value, list, count, revision, writer, write)"
      " VALUES (?1, ?2, x'', ?3, ?4, ?5, ?6, ?7) ON CONFLICT DO UPDATE"
      " SET value = excluded.value, list = excluded.list, count = excluded.count, revision = excluded.revision,"
      " writer = excluded.writer, write = excluded.write");
  statement->bind(1, domain).bind(2, key).bind(3, runs.list).bind(4, runs.count);
  bindVersion(*statement, 5, version);
  statement->run();
}

void PreferencesDatabase::bindVersion(SQLiteStatement& statement, int parameter, const PreferenceVersion& version) {
  // As the signed integers of the same bits.
  statement.bind(parameter, static_cast<std::int64_t>(version.count))
      .bind(parameter + 1, static_cast<std::int64_t>(version.write.writer))
      .bind(parameter + 2, static_cast<std::int64_t>(version.write.number));
}

void PreferencesDatabase::clear(std::string_view key, std::string_view domain) const {
  removeRuns(key, domain);
  for (const char* text : {"DELETE FROM stored_values WHERE domain = ?1 AND key = ?2",
                           "DELETE FROM good_values WHERE domain = ?1 AND key = ?2"}) {
    _statements->use(text)->bind(1, domain).bind(2, key).run();
  }
}

void PreferencesDatabase::remove(std::string_view key, std::string_view domain,
                                 const PreferenceVersion& version) const {
  clear(key, domain);
  constexpr const char* raise = "UPDATE store SET highest_removed = ?1 WHERE highest_removed < ?1";
  _statements->use(raise)->bind(1, static_cast<std::int64_t>(version.count)).run();
}

void PreferencesDatabase::removeRuns(std::string_view key, std::string_view domain) const {
  const std::string rows =
      "SELECT id FROM stored_runs WHERE list = (SELECT list FROM stored_values WHERE domain = ?1 AND key = ?2)";
  for (const char* table : {"good_runs", "stored_runs"}) {
    const std::string text =
        std::string("DELETE FROM ").append(table).append(" WHERE id IN (").append(rows).append(")");
    _statements->use(text)->bind(1, domain).bind(2, key).run();
  }
}

}  // namespace pellor
