#include "pellor/linux/preferences/internal/PreferencesDatabase.h"

#include <sys/stat.h>

#include <utility>

#include "pellor/linux/preferences/internal/CheckedRows.h"
#include "pellor/linux/preferences/internal/ChunkRowID.h"

namespace pellor {
namespace {

CheckedTable tableOfValues(RowCopy copy) {
  return copy == RowCopy::stored ? CheckedTable::values : CheckedTable::goodValues;
}

}  // namespace

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

PreferencesDatabase::Loss PreferencesDatabase::loss() const {
  if (_file.empty()) return Loss::none;
  struct stat file {};
  // Another file in its place has lost nothing.
  if (::stat(_file.c_str(), &file) != 0 || file.st_ino != _fileNumber) return Loss::none;
  const auto size = static_cast<std::uintmax_t>(file.st_size);
  if (size < _size) return Loss::end;
  _size = size;
  // SQLite removes the log with the last connection alone.
  struct stat log {};
  const bool isLogThere = ::stat(_log.c_str(), &log) == 0 && log.st_ino == _logNumber;
  return isLogThere ? Loss::none : Loss::log;
}

void PreferencesDatabase::remember(const std::filesystem::path& file) {
  struct stat found {
  }, log{};
  const std::string logFile = file.string() + "-wal";
  if (::stat(file.c_str(), &found) != 0 || ::stat(logFile.c_str(), &log) != 0) return;
  _file = file.string();
  _log = logFile;
  _size = static_cast<std::uintmax_t>(found.st_size);
  _fileNumber = found.st_ino;
  _logNumber = log.st_ino;
}

SQLiteTransaction PreferencesDatabase::transaction(SQLiteTransaction::Kind kind) const {
  if (kind == SQLiteTransaction::Kind::write && !_isWritable) {
    throw SQLiteError(SQLITE_READONLY, _readOnlyError);
  }
  return {[&statements = *_statements](std::string_view text) { statements.use(text)->run(); }, kind};
}

std::string PreferencesDatabase::textForValues(RowCopy copy, std::string_view condition) const {
  const PreferencesLayout& present = layout();
  const char* more = "0, 0, 0";
  if (present.hasVersions) {
    more = "list, count, revision, writer, write, checksum";
  } else if (present.hasChunks && copy == RowCopy::stored) {
    more = "list, count, revision";
  }
  return std::string("SELECT key, value, ")
      .append(more)
      .append(" FROM ")
      .append(copy == RowCopy::stored ? present.values : present.lastGood)
      .append(" WHERE domain = ?1")
      .append(condition);
}

// Bytes beside a list are newer than it: a program from before there were rows for chunks, still running, wrote them.
StoredValue PreferencesDatabase::valueIn(const SQLiteStatement& row, RowCopy copy, std::string_view domain,
                                         std::uint64_t store) const {
  StoredValue value{row.bytes(1), std::nullopt, {}};
  const StoredChunks chunks{row.integer(2), row.integer(3), row.integer(4)};
  if (value.bytes.empty() && chunks.list != 0) value.chunks = chunks;
  if (!layout().hasVersions) return value;
  value.version = versionIn(row, 4);
  value.isWhole = row.integer(7) == CheckedRows::checksumOfValue(tableOfValues(copy), domain, row.text(0), value.bytes,
                                                                 chunks, value.version);
  value.version.store = store;
  return value;
}

std::vector<std::string> PreferencesDatabase::domains() const {
  std::vector<std::string> domains;
  const SQLiteStatements::Use row =
      _statements->use(std::string("SELECT DISTINCT domain FROM ").append(layout().values));
  while (row->step()) domains.push_back(row->text(0));
  return domains;
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
  if (!storedIdentity()) throw SQLiteError(SQLITE_IOERR, "the store's number is damaged");
  return {_number, highestRemoved() + 1, id};
}

std::uint64_t PreferencesDatabase::highestRemoved() const {
  if (!layout().hasVersions) return 0;
  return static_cast<std::uint64_t>(_statements->integer("SELECT highest_removed FROM store"));
}

void PreferencesDatabase::write(std::string_view key, std::string_view domain, std::span<const std::uint8_t> value,
                                const PreferenceVersion& version) const {
  removeChunks(key, domain);
  writeValue(RowCopy::stored, key, domain, value, {}, version);
  writeLastGood(key, domain, value, version);
}

void PreferencesDatabase::writeLastGood(std::string_view key, std::string_view domain,
                                        std::span<const std::uint8_t> value, const PreferenceVersion& version) const {
  writeValue(RowCopy::lastGood, key, domain, value, {}, version);
}

void PreferencesDatabase::write(std::string_view key, std::string_view domain, const StoredChunks& chunks,
                                const PreferenceVersion& version) const {
  for (const RowCopy copy : {RowCopy::stored, RowCopy::lastGood}) writeValue(copy, key, domain, {}, chunks, version);
}

// An update to an equal row would still be a commit to the disk, and news to every other process.
void PreferencesDatabase::writeValue(RowCopy copy, std::string_view key, std::string_view domain,
                                     std::span<const std::uint8_t> value, const StoredChunks& chunks,
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
  if (chunks.list != 0) statement->bind(4, chunks.list).bind(5, chunks.count);
  bindVersion(*statement, 6, version);
  statement->bind(9, CheckedRows::checksumOfValue(tableOfValues(copy), domain, key, value, chunks, version)).run();
}

void PreferencesDatabase::bindVersion(SQLiteStatement& statement, int parameter, const PreferenceVersion& version) {
  // As the signed integers of the same bits.
  statement.bind(parameter, static_cast<std::int64_t>(version.count))
      .bind(parameter + 1, static_cast<std::int64_t>(version.write.writer))
      .bind(parameter + 2, static_cast<std::int64_t>(version.write.number));
}

void PreferencesDatabase::clear(std::string_view key, std::string_view domain) const {
  removeChunks(key, domain);
  for (const char* text : {"DELETE FROM stored_values WHERE domain = ?1 AND key = ?2",
                           "DELETE FROM good_values WHERE domain = ?1 AND key = ?2"}) {
    _statements->use(text)->bind(1, domain).bind(2, key).run();
  }
}

void PreferencesDatabase::remove(std::string_view key, std::string_view domain,
                                 const PreferenceVersion& version) const {
  clear(key, domain);
  const auto identity = storedIdentity();
  if (!identity) throw SQLiteError(SQLITE_IOERR, "the store's number is damaged");
  const auto count = static_cast<std::int64_t>(version.count);
  _statements->use("UPDATE store SET highest_removed = ?1, checksum = ?2 WHERE highest_removed < ?1")
      ->bind(1, count)
      .bind(2, CheckedRows::checksumOfStore(static_cast<std::int64_t>(_number), *identity, count))
      .run();
}

// By either row of the key: one of them may be damaged.
void PreferencesDatabase::removeChunks(std::string_view key, std::string_view domain) const {
  for (const RowCopy copy : {RowCopy::stored, RowCopy::lastGood}) {
    std::int64_t list = 0;
    visitValue(copy, key, domain, [&](const StoredValue& value) {
      if (value.isWhole && value.chunks) list = value.chunks->list;
    });
    if (list == 0) continue;
    for (const char* text :
         {"DELETE FROM stored_runs WHERE id BETWEEN ?1 AND ?2", "DELETE FROM good_runs WHERE id BETWEEN ?1 AND ?2"}) {
      _statements->use(text)
          ->bind(1, ChunkRowID::of(list, 0))
          .bind(2, ChunkRowID::of(list, ChunkRowID::HighestNumber))
          .run();
    }
  }
}

}  // namespace pellor
