#include "linux/PreferencesLayout.h"

#include <iterator>
#include <limits>
#include <random>
#include <string>

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

// Revisions become the counts of versions: of a value, and of a list that of its newest row. So a write of one run
// changes no page for the sake of its version.
void makeVersions(const SQLiteDatabase& database) {
  for (const char* change :
       {"ALTER TABLE preferences RENAME TO stored_values", "ALTER TABLE runs RENAME TO stored_runs",
        "ALTER TABLE last_good RENAME TO good_values", "ALTER TABLE last_good_runs RENAME TO good_runs",
        "ALTER TABLE stored_values ADD COLUMN writer INTEGER", "ALTER TABLE stored_values ADD COLUMN write INTEGER",
        "ALTER TABLE stored_runs ADD COLUMN writer INTEGER", "ALTER TABLE stored_runs ADD COLUMN write INTEGER",
        "UPDATE stored_values SET revision = 1 WHERE revision IS NULL",
        "CREATE TABLE store (number INTEGER NOT NULL, file TEXT NOT NULL, highest_removed INTEGER NOT NULL)",
        "INSERT INTO store VALUES (0, '', 0)"}) {
    database.execute(change);
  }
  database.execute("PRAGMA user_version = " + std::to_string(PreferencesLayout::present().number));
}

}  // namespace

const PreferencesLayout& PreferencesLayout::present() { return *std::rbegin(Layouts); }

const PreferencesLayout& PreferencesLayout::withNumber(std::int64_t number) {
  for (const PreferencesLayout& layout : Layouts) {
    if (layout.number == number) return layout;
  }
  throw SQLiteError(SQLITE_NOTADB, number > present().number
                                       ? "the store was made by a later version (" + std::to_string(number) + ")"
                                       : "the file is no store of this program");
}

void PreferencesLayout::make(const SQLiteDatabase& database) {
  makeValues(database);
  makeRuns(database);
  makeVersions(database);
}

void PreferencesLayout::migrate(const SQLiteDatabase& database, const PreferencesLayout& found) {
  if (!found.hasRuns) makeRuns(database);
  if (!found.hasVersions) makeVersions(database);
}

void PreferencesLayout::nameStore(const SQLiteDatabase& database, std::string_view file) {
  std::random_device random;
  const auto number = std::uniform_int_distribution<std::int64_t>(1, std::numeric_limits<std::int64_t>::max())(random);
  database.prepare("UPDATE store SET number = ?1, file = ?2").bind(1, number).bind(2, file).run();
}

}  // namespace pellor
