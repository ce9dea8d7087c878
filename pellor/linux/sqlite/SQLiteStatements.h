// Prepared statements that are used again.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>

#include "pellor/linux/sqlite/SQLiteDatabase.h"

namespace pellor {

/// Keeps each statement of a database once it is prepared. As a database: one thread at a time.
class SQLiteStatements {
 public:
  explicit SQLiteStatements(SQLiteDatabase database) : _database(std::move(database)) {}

  /// One use of a statement. Its end ends the run, so that no lock of the database stays taken.
  class Use {
   public:
    explicit Use(SQLiteStatement& statement) : _statement(statement) {}
    ~Use() { _statement.reset(); }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;
    SQLiteStatement* operator->() const { return &_statement; }
    SQLiteStatement& operator*() const { return _statement; }

   private:
    SQLiteStatement& _statement;
  };

  /// The statement with that text. One use of a text at a time.
  Use use(std::string_view text) {
    auto found = _statements.find(text);
    if (found == _statements.end()) found = _statements.emplace(text, _database.prepare(text)).first;
    return Use(found->second);
  }

  /// The first column of the query's first row.
  std::int64_t integer(std::string_view query) {
    const Use statement = use(query);
    return statement->step() ? statement->integer(0) : 0;
  }

  const SQLiteDatabase& database() const { return _database; }

 private:
  SQLiteDatabase _database;
  std::map<std::string, SQLiteStatement, std::less<>> _statements;
};

}  // namespace pellor
