#include "pellor/linux/preferences/internal/PreferencesLayout.h"

#include <iterator>
#include <limits>
#include <random>
#include <string>

#include "pellor/linux/preferences/internal/CheckedRows.h"

namespace pellor {
namespace {

constexpr PreferencesLayout Layouts[] = {
    {1, "preferences", "", "last_good", "", false, false},
    {2, "preferences", "runs", "last_good", "last_good_runs", true, false},
    {3, "stored_values", "stored_runs", "good_values", "good_runs", true, true},
};

// A file of an earlier layout is brought through all that followed, and so is a new one: it ends as any other.
void makeValues(const SQLiteDatabase& database) {
  for (const char* table : {"preferences", "last_good"}) {
    database.execute("CREATE TABLE " + std::string(table) +
                     " (domain TEXT NOT NULL, key TEXT NOT NULL, value BLOB NOT NULL, PRIMARY KEY (domain, key))"
                     " WITHOUT ROWID");
  }
}

void makeChunks(const SQLiteDatabase& database) {
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

// Revisions become the counts of versions: of a value, and of a list that of its newest row. So a write of one chunk
// changes no page for the sake of its version. A good copy has all that the row has that it is a copy of.
void makeVersions(const SQLiteDatabase& database) {
  for (const char* change :
       {"ALTER TABLE preferences RENAME TO stored_values", "ALTER TABLE runs RENAME TO stored_runs",
        "ALTER TABLE last_good RENAME TO good_values", "ALTER TABLE last_good_runs RENAME TO good_runs",
        "ALTER TABLE good_values ADD COLUMN list INTEGER", "ALTER TABLE good_values ADD COLUMN count INTEGER",
        "ALTER TABLE good_values ADD COLUMN revision INTEGER", "ALTER TABLE good_runs ADD COLUMN revision INTEGER"}) {
    database.execute(change);
  }
  for (const char* table : {"stored_values", "stored_runs", "good_values", "good_runs"}) {
    for (const char* column : {"writer", "write", "checksum"}) {
      database.execute(std::string("ALTER TABLE ") + table + " ADD COLUMN " + column + " INTEGER");
    }
  }
  for (const char* change :
       {"UPDATE stored_values SET revision = 1 WHERE revision IS NULL",
        // Bytes beside a list are newer than it: a program from before there were rows for chunks, still running, wrote
        // them.
        "DELETE FROM stored_runs WHERE list IN (SELECT list FROM stored_values WHERE value <> x'')",
        "DELETE FROM good_runs WHERE id >> 24 IN (SELECT list FROM stored_values WHERE value <> x'')",
        "UPDATE stored_values SET list = NULL, count = NULL WHERE value <> x''",
        "UPDATE good_values SET revision = stored_values.revision FROM stored_values"
        " WHERE good_values.domain = stored_values.domain AND good_values.key = stored_values.key",
        "UPDATE good_runs SET revision = stored_runs.revision FROM stored_runs WHERE good_runs.id = stored_runs.id",
        "INSERT OR REPLACE INTO good_values SELECT * FROM stored_values WHERE list IS NOT NULL",
        "CREATE TABLE store (number INTEGER NOT NULL, file TEXT NOT NULL, highest_removed INTEGER NOT NULL,"
        " checksum INTEGER)"}) {
    database.execute(change);
  }
  CheckedRows::seal(database);
  database.execute("PRAGMA user_version = " + std::to_string(PreferencesLayout::present().number));
}

}  // namespace

const PreferencesLayout& PreferencesLayout::present() { return *std::rbegin(Layouts); }

const PreferencesLayout& PreferencesLayout::withNumber(std::int64_t number) {
  for (const PreferencesLayout& layout : Layouts) {
    if (layout.number == number) return layout;
  }
  if (number > present().number) {
    throw SQLiteError(SQLITE_MISMATCH, "the store was made by a later version (" + std::to_string(number) + ")");
  }
  throw SQLiteError(SQLITE_NOTADB, "the file is empty, or no store of this program");
}

void PreferencesLayout::make(const SQLiteDatabase& database) {
  makeValues(database);
  makeChunks(database);
  makeVersions(database);
}

void PreferencesLayout::migrate(const SQLiteDatabase& database, const PreferencesLayout& found) {
  if (!found.hasChunks) makeChunks(database);
  if (!found.hasVersions) makeVersions(database);
}

void PreferencesLayout::nameStore(const SQLiteDatabase& database, std::string_view file) {
  std::random_device random;
  const auto number = std::uniform_int_distribution<std::int64_t>(1, std::numeric_limits<std::int64_t>::max())(random);
  database.execute("DELETE FROM store");
  constexpr std::int64_t highestRemoved = 0;
  database.prepare("INSERT INTO store VALUES (?1, ?2, ?3, ?4)")
      .bind(1, number)
      .bind(2, file)
      .bind(3, highestRemoved)
      .bind(4, CheckedRows::checksumOfStore(number, file, highestRemoved))
      .run();
}

}  // namespace pellor
