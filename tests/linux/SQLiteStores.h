// Stores in SQLite, and what the world does to their file.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "pellor/linux/preferences/internal/CheckedRows.h"
#include "pellor/linux/preferences/internal/SQLitePreferences.h"
#include "pellor/linux/sqlite/SQLiteDatabase.h"
#include "tests/linux/TemporaryFolder.h"

namespace pellor {

inline constexpr const char* SQLiteStoreFile = "preferences.sqlite";

inline std::shared_ptr<SQLitePreferences> openIn(
    const std::filesystem::path& folder, std::shared_ptr<LogSink> sink = nullptr,
    SQLitePreferences::Access access = SQLitePreferences::Access::readWrite,
    std::chrono::milliseconds lockLimit = SQLitePreferences::LockLimit) {
  return std::make_shared<SQLitePreferences>(folder, folder / "defaults.json",
                                             LogHandle("org.tapnote.Pellor", "preferences", std::move(sink)), access,
                                             lockLimit);
}

/// A connection that knows nothing of preferences.
inline void executeIn(const std::filesystem::path& folder, std::string_view statement) {
  SQLiteDatabase(folder / SQLiteStoreFile, SQLiteDatabase::Access::readWrite, 5).execute(statement);
}

class SQLiteStores {
 public:
  std::shared_ptr<PreferencesStore> open() { return openIn(_folder.path()); }
  std::shared_ptr<PreferencesStore> openInChild() { return open(); }
  std::shared_ptr<PreferencesStore> openReadOnly() {
    return openIn(_folder.path(), nullptr, SQLitePreferences::Access::readOnly);
  }

  void damage(std::string_view key, std::string_view domain) {
    SQLiteDatabase database(_folder / SQLiteStoreFile, SQLiteDatabase::Access::readWrite, 5);
    constexpr std::string_view cut = " SET value = substr(value, 1, length(value) - 1)",
                               mine = "domain = ?1 AND key = ?2";
    const std::string value =
        std::string("UPDATE stored_values").append(cut).append(" WHERE list IS NULL AND ").append(mine);
    const std::string rows = std::string("UPDATE stored_runs")
                                 .append(cut)
                                 .append(", revision = revision + 1 WHERE list = ")
                                 .append("(SELECT list FROM stored_values WHERE ")
                                 .append(mine)
                                 .append(")");
    for (const std::string& statement : {value, rows}) database.prepare(statement).bind(1, domain).bind(2, key).run();
    // As if it had been written so.
    CheckedRows::seal(database);
  }
  void makeUnreadable() {
    std::filesystem::rename(_folder / SQLiteStoreFile, _folder / "elsewhere");
    std::filesystem::create_directory(_folder / SQLiteStoreFile);
  }
  void makeReadable() {
    std::filesystem::remove(_folder / SQLiteStoreFile);
    std::filesystem::rename(_folder / "elsewhere", _folder / SQLiteStoreFile);
  }
  void failWrites(bool fail) {
    executeIn(_folder.path(),
              fail ? "CREATE TRIGGER full BEFORE INSERT ON good_values BEGIN SELECT RAISE(ABORT, 'full'); END"
                   : "DROP TRIGGER full");
  }

 private:
  TemporaryFolder _folder;
};

}  // namespace pellor
