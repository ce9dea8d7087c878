// A thin layer over SQLite's C interface: lifetimes, and errors as exceptions.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "pellor/linux/files/internal/FileLock.h"

namespace pellor {

/// What SQLite reports. Never leaves the adapters.
class SQLiteError : public std::runtime_error {
 public:
  SQLiteError(int code, const std::string& text) : std::runtime_error(text), _code(code) {}
  /// The primary result code.
  int code() const { return _code & 0xFF; }

 private:
  int _code;
};

/// A prepared statement. Text and bytes that are bound have to outlive the step.
class SQLiteStatement {
 public:
  SQLiteStatement(sqlite3* database, std::string_view text);

  SQLiteStatement& bind(int parameter, std::string_view text);
  SQLiteStatement& bind(int parameter, std::span<const std::uint8_t> bytes);
  SQLiteStatement& bind(int parameter, std::int64_t integer);

  /// The next row; false after the last one.
  bool step();
  /// Ends the run and unbinds all parameters, so that they are null: the statement can be used again.
  void reset();
  /// Runs to the end.
  void run();

  std::int64_t integer(int column) const;
  std::string text(int column) const;
  /// Valid until the next step.
  std::span<const std::uint8_t> bytes(int column) const;

 private:
  void check(int code) const;

  struct Finalizer {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
  };
  sqlite3* _database;
  std::unique_ptr<sqlite3_stmt, Finalizer> _statement;
};

/// An open database. One thread at a time; does not cross a fork.
class SQLiteDatabase {
 public:
  enum class Access {
    readWrite,
    readOnly,
    frozen,  ///< read-only, taken as if nobody could change the file: needs no place for a lock or an index beside it
  };

  /// The file must be there. Waits for locks of others as long as the patience lasts, which several may share.
  SQLiteDatabase(const std::filesystem::path& file, Access access, std::shared_ptr<LockPatience> patience);
  SQLiteDatabase(const std::filesystem::path& file, Access access, int busySeconds);
  /// An empty database in memory, seen by nobody else.
  static SQLiteDatabase inMemory();

  SQLiteStatement prepare(std::string_view text) const { return SQLiteStatement(_database.get(), text); }
  void execute(std::string_view text) const { prepare(text).run(); }
  /// The first column of the first row.
  std::int64_t integer(std::string_view query) const;

  /// Gives back the memory in which pages of the file are kept, up to 2 MB: the system keeps them as well.
  void releaseMemory() const { sqlite3_db_release_memory(_database.get()); }

  /// See CheckedPages. The first one of an empty database.
  void beginCheckedPages() const;
  bool hasCheckedPages() const;

  bool isReadOnly() const;
  /// Whether the file was deleted or replaced since it was opened.
  bool hasMoved() const;

  SQLiteDatabase(SQLiteDatabase&& other) noexcept;
  SQLiteDatabase& operator=(SQLiteDatabase&& other) = delete;
  ~SQLiteDatabase();

 private:
  SQLiteDatabase();
  void open(const char* name, int flags);

  struct LockWait;
  std::unique_ptr<LockWait> _waiting;  // outlives the connection
  struct Closer {
    void operator()(sqlite3* database) const { sqlite3_close_v2(database); }
  };
  std::unique_ptr<sqlite3, Closer> _database;
};

/// A transaction, rolled back unless it is committed.
class SQLiteTransaction {
 public:
  enum class Kind { read, write };
  /// Runs one of a transaction's own statements.
  using Execute = std::function<void(std::string_view)>;
  SQLiteTransaction(const SQLiteDatabase& database, Kind kind);
  SQLiteTransaction(Execute execute, Kind kind);
  ~SQLiteTransaction();
  SQLiteTransaction(const SQLiteTransaction&) = delete;
  SQLiteTransaction& operator=(const SQLiteTransaction&) = delete;
  void commit();

 private:
  const Execute _execute;
  bool _isOpen = true;
};

}  // namespace pellor
