// Room for what is written all over a database at once.
#pragma once

#include "pellor/linux/sqlite/SQLiteDatabase.h"

namespace pellor {

/// As long as it lives, up to 32 MB of the database's pages are kept in memory in place of 2 MB: a page without room is
/// written, and read again when more of it changes. The database has to outlive it.
class MorePagesInMemory {
 public:
  explicit MorePagesInMemory(const SQLiteDatabase& database) : _database(database) {
    database.execute("PRAGMA cache_size=-32000");
  }
  ~MorePagesInMemory() {
    try {
      _database.execute("PRAGMA cache_size=-2000");
    } catch (const SQLiteError&) {
      // The database keeps more room than it needs.
    }
  }
  MorePagesInMemory(const MorePagesInMemory&) = delete;
  MorePagesInMemory& operator=(const MorePagesInMemory&) = delete;

 private:
  const SQLiteDatabase& _database;
};

}  // namespace pellor
