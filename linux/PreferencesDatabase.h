// The file in which the preferences are kept: how it is found, made and laid out.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "linux/SQLiteDatabase.h"
#include "runtime/Value.h"

namespace pellor {

/// Two tables of (domain, key, value) with values as bytes: the values, and the last one of each key that was written
/// whole. One thread at a time. Operations throw SQLiteError.
class PreferencesDatabase {
 public:
  /// Opens `folder`/preferences.sqlite. With `forWriting` a missing folder or file is made (0700, 0600); what may not
  /// be written is opened for reading. Throws when it is missing and may not be made, cannot be read, is no database of
  /// ours or was made by a later version; then it has not been changed.
  PreferencesDatabase(const std::filesystem::path& folder, bool forWriting);

  static std::filesystem::path fileIn(const std::filesystem::path& folder);

  /// What writers of a store are told that may only be read.
  static constexpr const char* ReadOnlyError =
      "the store is read-only: neither its files nor their folder may be written";
  bool isWritable() const { return _isWritable; }
  /// Whether it still shows what is stored. Not when the file was deleted or replaced, and, opened where nothing can be
  /// written beside it, never: then it has to be opened anew to see changes.
  bool isCurrent() const { return !_isFrozen && !_database->hasMoved(); }

  /// Changes whenever another connection has committed.
  std::int64_t dataVersion() const { return _database->integer("PRAGMA data_version"); }

  /// Ends with the object unless it is committed. A write one throws when the store is read-only.
  SQLiteTransaction transaction(SQLiteTransaction::Kind kind) const;

  /// Calls `visit(key, bytes)` for each value of the domain, by key.
  template <class Visit>
  void visitValues(std::string_view domain, Visit visit) const {
    SQLiteStatement statement = _database->prepare("SELECT key, value FROM preferences WHERE domain = ?1");
    statement.bind(1, domain);
    while (statement.step()) visit(statement.text(0), statement.bytes(1));
  }

  std::optional<Data> value(std::string_view key, std::string_view domain) const;
  std::optional<Data> lastGoodValue(std::string_view key, std::string_view domain) const;
  /// Writes the value and its last good copy. Nothing is written when both are there already.
  void write(std::string_view key, std::string_view domain, std::span<const std::uint8_t> value) const;
  /// Removes both.
  void remove(std::string_view key, std::string_view domain) const;

 private:
  void openForWriting(const std::filesystem::path& folder);
  void openForReading(const std::filesystem::path& file);
  void prepareForWriting();
  std::optional<Data> query(std::string_view text, std::string_view key, std::string_view domain) const;
  void change(std::string_view text, std::string_view key, std::string_view domain,
              std::optional<std::span<const std::uint8_t>> value) const;

  std::unique_ptr<SQLiteDatabase> _database;
  bool _isWritable = false;
  bool _isFrozen = false;
};

}  // namespace pellor
