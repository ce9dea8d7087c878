#include "pellor/linux/sqlite/UnusedSpace.h"

#include <algorithm>
#include <string>
#include <vector>

namespace pellor {
namespace {

std::vector<std::string> tablesOf(const SQLiteDatabase& database) {
  std::vector<std::string> tables;
  SQLiteStatement row = database.prepare(
      "SELECT name FROM main.sqlite_schema WHERE type='table' AND name NOT LIKE 'sqlite\\_%' ESCAPE '\\'");
  while (row.step()) tables.push_back("\"" + row.text(0) + "\"");
  return tables;
}

// Pages that were freed without being overwritten are, once they were in use and are freed again.
void useAllFreePages(const SQLiteDatabase& database) {
  constexpr std::int64_t longest = std::int64_t{64} << 20;  // in bytes
  const std::int64_t pageSize = database.integer("PRAGMA page_size");
  database.execute("CREATE TABLE main.unused (bytes BLOB)");
  while (const std::int64_t pages = database.integer("PRAGMA main.freelist_count")) {
    SQLiteStatement insertion = database.prepare("INSERT INTO main.unused VALUES (zeroblob(?))");
    insertion.bind(1, std::min(pages * pageSize, longest)).run();
  }
  database.execute("DROP TABLE main.unused");
}

// The pages of a table are zeroed as they are freed.
void writeAnew(const SQLiteDatabase& database, const std::string& table) {
  database.execute("CREATE TEMP TABLE kept AS SELECT * FROM main." + table);
  database.execute("DELETE FROM main." + table);
  database.execute("INSERT INTO main." + table + " SELECT * FROM temp.kept");
  database.execute("DROP TABLE temp.kept");
}

}  // namespace

void overwriteUnusedSpace(const SQLiteDatabase& database) {
  database.execute("PRAGMA secure_delete=ON");
  database.execute("PRAGMA temp_store=MEMORY");
  database.execute("PRAGMA foreign_keys=OFF");
  SQLiteTransaction transaction(database, SQLiteTransaction::Kind::write);
  useAllFreePages(database);
  for (const std::string& table : tablesOf(database)) writeAnew(database, table);
  transaction.commit();
}

bool emptyLog(const SQLiteDatabase& database) { return database.integer("PRAGMA wal_checkpoint(TRUNCATE)") == 0; }

}  // namespace pellor
