#include "linux/PreferencesDatabase.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "linux/CheckedRows.h"
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

// Made without opening it. SQLite gives its other files the same mode.
void makeEmptyFile(const fs::path& file) {
  if (::mknod(file.c_str(), S_IFREG | S_IRUSR | S_IWUSR, 0) == 0) return;
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

/// Beside the place of the file, which it takes once it is laid out: a file there that holds nothing has lost it.
void makeStore(const fs::path& file, std::shared_ptr<LockPatience> patience) {
  const fs::path made = besideFile(file, ".new");
  for (const char* suffix : {"", "-journal"}) {
    std::error_code ignored;
    fs::remove(besideFile(made, suffix), ignored);
  }
  makeEmptyFile(made);
  {
    const SQLiteDatabase database(made, SQLiteDatabase::Access::readWrite, std::move(patience));
    database.execute("PRAGMA synchronous = FULL");
    database.execute("PRAGMA page_size = " + std::to_string(PageSize));
    SQLiteTransaction transaction(database, SQLiteTransaction::Kind::write);
    PreferencesLayout::make(database);
    PreferencesLayout::nameStore(database, identityOf(made));
    transaction.commit();
  }
  // The log of a file that is gone belongs to that file.
  for (const char* suffix : {"-wal", "-shm"}) {
    std::error_code ignored;
    fs::remove(besideFile(file, suffix), ignored);
  }
  if (::rename(made.c_str(), file.c_str()) != 0) throw SQLiteError(SQLITE_CANTOPEN, systemError("cannot make", file));
}

bool lacksPermission(const SQLiteError& error) {
  return error.code() == SQLITE_CANTOPEN || error.code() == SQLITE_READONLY;
}

CheckedTable tableOfValues(RowCopy copy) {
  return copy == RowCopy::stored ? CheckedTable::values : CheckedTable::goodValues;
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
  if (!fs::exists(fs::symlink_status(file, ignored))) makeStore(file, _patience);
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
  const PreferencesLayout& found = PreferencesLayout::withNumber(version());
  database.execute("PRAGMA journal_mode = WAL");
  const auto named = found.hasVersions ? storedIdentity() : std::nullopt;
  _hadDamagedNumber = found.hasVersions && !named;
  if (!named || *named != identity) {
    SQLiteTransaction transaction(database, SQLiteTransaction::Kind::write);
    PreferencesLayout::migrate(database, found);
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
  if (!storedIdentity()) return 0;
  return static_cast<std::uint64_t>(_statements->integer("SELECT number FROM store"));
}

std::optional<std::string> PreferencesDatabase::storedIdentity() const {
  const SQLiteStatements::Use row = _statements->use("SELECT number, file, highest_removed, checksum FROM store");
  if (!row->step()) return std::nullopt;
  std::string identity = row->text(1);
  const bool isWhole = row->integer(3) == CheckedRows::checksumOfStore(row->integer(0), identity, row->integer(2));
  return isWhole ? std::optional(std::move(identity)) : std::nullopt;
}

SQLiteTransaction PreferencesDatabase::transaction(SQLiteTransaction::Kind kind) const {
  if (kind == SQLiteTransaction::Kind::write && !_isWritable) {
    throw SQLiteError(SQLITE_READONLY, ReadOnlyError);
  }
  return {[&statements = *_statements](std::string_view text) { statements.use(text)->run(); }, kind};
}

std::string PreferencesDatabase::textForValues(RowCopy copy, std::string_view condition) const {
  const PreferencesLayout& present = layout();
  const char* more = "0, 0, 0";
  if (present.hasVersions) {
    more = "list, count, revision, writer, write, checksum";
  } else if (present.hasRuns && copy == RowCopy::stored) {
    more = "list, count, revision";
  }
  return std::string("SELECT key, value, ")
      .append(more)
      .append(" FROM ")
      .append(copy == RowCopy::stored ? present.values : present.lastGood)
      .append(" WHERE domain = ?1")
      .append(condition);
}

// Bytes beside a list are newer than it: a program from before there were rows for runs, still running, wrote them.
StoredValue PreferencesDatabase::valueIn(const SQLiteStatement& row, RowCopy copy, std::string_view domain,
                                         std::uint64_t store) const {
  StoredValue value{row.bytes(1), std::nullopt, {}};
  const StoredRuns runs{row.integer(2), row.integer(3), row.integer(4)};
  if (value.bytes.empty() && runs.list != 0) value.runs = runs;
  if (!layout().hasVersions) return value;
  value.version = versionIn(row, 4);
  value.isWhole = row.integer(7) == CheckedRows::checksumOfValue(tableOfValues(copy), domain, row.text(0), value.bytes,
                                                                 runs, value.version);
  value.version.store = store;
  return value;
}

std::vector<std::string> PreferencesDatabase::keysOfGoodCopies(std::string_view domain) const {
  std::vector<std::string> keys;
  if (!layout().hasVersions) return keys;
  const SQLiteStatements::Use row = _statements->use("SELECT key FROM good_values WHERE domain = ?1");
  row->bind(1, domain);
  while (row->step()) keys.push_back(row->text(0));
  return keys;
}

PreferenceVersion PreferencesDatabase::versionAfter(const PreferenceVersion* stored, PreferenceWriteID id) const {
  if (stored) return {_number, stored->count + 1, id};
  if (!storedIdentity()) throw SQLiteError(SQLITE_CORRUPT, "the store's number is damaged");
  const auto removed = static_cast<std::uint64_t>(_statements->integer("SELECT highest_removed FROM store"));
  return {_number, removed + 1, id};
}

void PreferencesDatabase::write(std::string_view key, std::string_view domain, std::span<const std::uint8_t> value,
                                const PreferenceVersion& version) const {
  removeRuns(key, domain);
  writeValue(RowCopy::stored, key, domain, value, {}, version);
  writeLastGood(key, domain, value, version);
}

void PreferencesDatabase::writeLastGood(std::string_view key, std::string_view domain,
                                        std::span<const std::uint8_t> value, const PreferenceVersion& version) const {
  writeValue(RowCopy::lastGood, key, domain, value, {}, version);
}

void PreferencesDatabase::write(std::string_view key, std::string_view domain, const StoredRuns& runs,
                                const PreferenceVersion& version) const {
  for (const RowCopy copy : {RowCopy::stored, RowCopy::lastGood}) writeValue(copy, key, domain, {}, runs, version);
}

// An update to the same row would still be a commit to the disk, and news to every other process.
void PreferencesDatabase::writeValue(RowCopy copy, std::string_view key, std::string_view domain,
                                     std::span<const std::uint8_t> value, const StoredRuns& runs,
                                     const PreferenceVersion& version) const {
  const std::string table = copy == RowCopy::stored ? "stored_values" : "good_values";
  const SQLiteStatements::Use statement = _statements->use(
      "INSERT INTO " + table +
      " (domain, key, value, list, count, revision, writer, write, checksum)"
      " VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9) ON CONFLICT DO UPDATE"
      " SET (value, list, count, revision, writer, write, checksum) ="
      " (excluded.value, excluded.list, excluded.count, excluded.revision, excluded.writer, excluded.write,"
      " excluded.checksum) WHERE (value, list, count, revision, writer, write, checksum) IS NOT"
      " (excluded.value, excluded.list, excluded.count, excluded.revision, excluded.writer, excluded.write,"
      " excluded.checksum)");
  statement->bind(1, domain).bind(2, key).bind(3, value);
  if (runs.list != 0) statement->bind(4, runs.list).bind(5, runs.count);
  bindVersion(*statement, 6, version);
  statement->bind(9, CheckedRows::checksumOfValue(tableOfValues(copy), domain, key, value, runs, version)).run();
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
  const auto identity = storedIdentity();
  if (!identity) throw SQLiteError(SQLITE_CORRUPT, "the store's number is damaged");
  const auto count = static_cast<std::int64_t>(version.count);
  _statements->use("UPDATE store SET highest_removed = ?1, checksum = ?2 WHERE highest_removed < ?1")
      ->bind(1, count)
      .bind(2, CheckedRows::checksumOfStore(static_cast<std::int64_t>(_number), *identity, count))
      .run();
}

// By either row of the key: one of them may be damaged.
void PreferencesDatabase::removeRuns(std::string_view key, std::string_view domain) const {
  for (const RowCopy copy : {RowCopy::stored, RowCopy::lastGood}) {
    std::int64_t list = 0;
    visitValue(copy, key, domain, [&](const StoredValue& value) {
      if (value.isWhole && value.runs) list = value.runs->list;
    });
    if (list == 0) continue;
    for (const char* text :
         {"DELETE FROM stored_runs WHERE id BETWEEN ?1 AND ?2", "DELETE FROM good_runs WHERE id BETWEEN ?1 AND ?2"}) {
      _statements->use(text)
          ->bind(1, PreferencesLayout::idOfRun(list, 0))
          .bind(2, PreferencesLayout::idOfRun(list, PreferencesLayout::HighestRunNumber))
          .run();
    }
  }
}

}  // namespace pellor
