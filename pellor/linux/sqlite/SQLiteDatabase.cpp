#include "pellor/linux/sqlite/SQLiteDatabase.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>
#include <utility>

#include "pellor/linux/files/internal/PrivatePlace.h"
#include "pellor/linux/sqlite/CheckedPages.h"
#include "pellor/linux/sqlite/RecoveryPauses.h"

namespace pellor {
namespace {

constexpr int LongestPause = 25;  // in milliseconds, between two attempts to take a lock

// In a file URI these three would end the path or begin an escape.
std::string uriOf(const std::filesystem::path& file, SQLiteDatabase::Access access) {
  std::string uri = "file:";
  for (const char character : std::filesystem::absolute(file).string()) {
    if (character == '%') {
      uri += "%25";
    } else if (character == '?') {
      uri += "%3f";
    } else if (character == '#') {
      uri += "%23";
    } else {
      uri += character;
    }
  }
  return access == SQLiteDatabase::Access::frozen ? uri + "?immutable=1" : uri;
}

// SQLite would wait for a pipe in the place of one of its files, and do without what it takes for no log. It gives its
// other files the mode of the database.
void requirePrivateFiles(const std::filesystem::path& file) {
  for (const char* suffix : {"", "-wal", "-shm", "-journal"}) {
    if (const auto problem = PrivateFile(file.string() + suffix).problem())
      throw SQLiteError(SQLITE_CANTOPEN, *problem);
  }
}

// With write-ahead logging the locks are on the index of the log.
std::string busyError(sqlite3* database) {
  const char* name = sqlite3_db_filename(database, "main");
  const std::string file = name ? name : "";
  return heldError(file, {file + "-shm", file});
}

// The code for a file that cannot be opened would read as a lack of permission.
void requireFreeDescriptors(sqlite3* database) {
  const int error = sqlite3_system_errno(database);
  if (error == EMFILE || error == ENFILE) throw SQLiteError(SQLITE_IOERR, "too many files are open");
}

}  // namespace

/// What the connection asks whether to go on waiting for a lock.
struct SQLiteDatabase::LockWait {
  std::shared_ptr<LockPatience> patience;
  std::chrono::steady_clock::time_point end;

  /// Zero when the wait is to end. `attempts` is how often the same lock was refused before.
  static int goesOn(void* waiting, int attempts) {
    LockWait& self = *static_cast<LockWait*>(waiting);
    if (attempts == 0) self.end = self.patience->endOfWait();
    if (std::chrono::steady_clock::now() >= self.end) {
      self.patience->lose();
      return 0;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(std::min(attempts + 1, LongestPause)));
    return 1;
  }
};

SQLiteStatement::SQLiteStatement(sqlite3* database, std::string_view text) : _database(database) {
  sqlite3_stmt* statement = nullptr;
  const int code = sqlite3_prepare_v2(database, text.data(), static_cast<int>(text.size()), &statement, nullptr);
  _statement.reset(statement);
  check(code);
}

void SQLiteStatement::check(int code) const {
  if ((code & 0xFF) == SQLITE_BUSY) throw SQLiteError(code, busyError(_database));
  // Its name for another program that does not make the index of the log anew.
  if ((code & 0xFF) == SQLITE_PROTOCOL) {
    RecoveryPauses::lose();
    throw SQLiteError(SQLITE_BUSY, busyError(_database));
  }
  if ((code & 0xFF) == SQLITE_CANTOPEN) requireFreeDescriptors(_database);
  if (code != SQLITE_OK) throw SQLiteError(code, sqlite3_errmsg(_database));
}

SQLiteStatement& SQLiteStatement::bind(int parameter, std::string_view text) {
  // A null pointer would bind NULL in place of an empty text.
  const char* content = text.data() ? text.data() : "";
  check(sqlite3_bind_text64(_statement.get(), parameter, content, text.size(), SQLITE_STATIC, SQLITE_UTF8));
  return *this;
}

SQLiteStatement& SQLiteStatement::bind(int parameter, std::span<const std::uint8_t> bytes) {
  const void* content = bytes.data() ? static_cast<const void*>(bytes.data()) : "";
  check(sqlite3_bind_blob64(_statement.get(), parameter, content, bytes.size(), SQLITE_STATIC));
  return *this;
}

SQLiteStatement& SQLiteStatement::bind(int parameter, std::int64_t integer) {
  check(sqlite3_bind_int64(_statement.get(), parameter, integer));
  return *this;
}

bool SQLiteStatement::step() {
  const int code = sqlite3_step(_statement.get());
  if (code == SQLITE_ROW) return true;
  if (code != SQLITE_DONE) check(code);
  return false;
}

void SQLiteStatement::reset() {
  // What it returns is the error of the last step, which has been reported.
  sqlite3_reset(_statement.get());
  sqlite3_clear_bindings(_statement.get());
}

void SQLiteStatement::run() {
  while (step()) {
  }
}

std::int64_t SQLiteStatement::integer(int column) const { return sqlite3_column_int64(_statement.get(), column); }

std::string SQLiteStatement::text(int column) const {
  const std::span<const std::uint8_t> content = bytes(column);
  return {reinterpret_cast<const char*>(content.data()), content.size()};
}

std::span<const std::uint8_t> SQLiteStatement::bytes(int column) const {
  const void* content = sqlite3_column_blob(_statement.get(), column);
  const int length = sqlite3_column_bytes(_statement.get(), column);
  return {static_cast<const std::uint8_t*>(content), static_cast<std::size_t>(length)};
}

SQLiteDatabase::SQLiteDatabase() = default;
SQLiteDatabase::SQLiteDatabase(SQLiteDatabase&& other) noexcept = default;
SQLiteDatabase::~SQLiteDatabase() = default;

SQLiteDatabase::SQLiteDatabase(const std::filesystem::path& file, Access access, int busySeconds)
    : SQLiteDatabase(file, access, std::make_shared<LockPatience>(std::chrono::seconds(busySeconds))) {}

SQLiteDatabase::SQLiteDatabase(const std::filesystem::path& file, Access access, std::shared_ptr<LockPatience> patience)
    : _waiting(std::make_unique<LockWait>(LockWait{std::move(patience), {}})) {
  requirePrivateFiles(file);
  const int mode = access == Access::readWrite ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY;
  open(uriOf(file, access).c_str(), mode | SQLITE_OPEN_URI | SQLITE_OPEN_NOFOLLOW);
  sqlite3_busy_handler(_database.get(), LockWait::goesOn, _waiting.get());
}

SQLiteDatabase SQLiteDatabase::inMemory() {
  SQLiteDatabase database;
  database.open(":memory:", SQLITE_OPEN_READWRITE);
  return database;
}

void SQLiteDatabase::open(const char* name, int flags) {
  sqlite3* database = nullptr;
  const int code =
      sqlite3_open_v2(name, &database, flags | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_PRIVATECACHE, CheckedPages::name());
  _database.reset(database);
  if (code == SQLITE_CANTOPEN && database) requireFreeDescriptors(database);
  if (code != SQLITE_OK) throw SQLiteError(code, database ? sqlite3_errmsg(database) : sqlite3_errstr(code));
}

std::int64_t SQLiteDatabase::integer(std::string_view query) const {
  SQLiteStatement statement = prepare(query);
  return statement.step() ? statement.integer(0) : 0;
}

void SQLiteDatabase::beginCheckedPages() const { CheckedPages::begin(_database.get()); }

bool SQLiteDatabase::hasCheckedPages() const { return CheckedPages::areIn(_database.get()); }

bool SQLiteDatabase::isReadOnly() const { return sqlite3_db_readonly(_database.get(), "main") != 0; }

bool SQLiteDatabase::hasMoved() const {
  int moved = 0;
  sqlite3_file_control(_database.get(), "main", SQLITE_FCNTL_HAS_MOVED, &moved);
  return moved != 0;
}

SQLiteTransaction::SQLiteTransaction(const SQLiteDatabase& database, Kind kind)
    : SQLiteTransaction([&database](std::string_view text) { database.execute(text); }, kind) {}

SQLiteTransaction::SQLiteTransaction(Execute execute, Kind kind) : _execute(std::move(execute)) {
  _execute(kind == Kind::write ? "BEGIN IMMEDIATE" : "BEGIN");
}

SQLiteTransaction::~SQLiteTransaction() {
  if (!_isOpen) return;
  try {
    _execute("ROLLBACK");
  } catch (const SQLiteError&) {
    // Some failures have rolled it back already.
  }
}

void SQLiteTransaction::commit() {
  _execute("COMMIT");
  _isOpen = false;
}

}  // namespace pellor
