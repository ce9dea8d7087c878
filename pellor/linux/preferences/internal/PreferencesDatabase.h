// The file in which the preferences are kept: how it is found, made and laid out.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/linux/preferences/StoreCopies.h"
#include "pellor/linux/preferences/StoredChunks.h"
#include "pellor/linux/preferences/internal/PreferencesLayout.h"
#include "pellor/linux/sqlite/SQLiteStatements.h"
#include "pellor/platform/PreferencesStore.h"
#include "pellor/runtime/Value.h"

namespace pellor {

/// A value's bytes, or where its chunks are instead.
struct StoredValue {
  std::span<const std::uint8_t> bytes;  ///< valid until the visit ends
  std::optional<StoredChunks> chunks;
  PreferenceVersion version;  ///< of chunks, when `chunks` changed last; rows may be newer
  bool isWhole = true;        ///< false: the checksum tells that this is not what was written
};

/// Which of the two rows of a value or a chunk.
enum class RowCopy { stored, lastGood };

/// Values as bytes by domain and key, each with a good copy that is written with it. The chunks of long arrays are two
/// more tables of the same kind (see StoredList). All rows carry checksums. One thread at a time. Operations throw
/// SQLiteError.
class PreferencesDatabase {
 public:
  /// Opens `folder`/preferences.sqlite. With `forWriting` a missing folder or file is made (0700, 0600), whole or not
  /// at all, so that an empty file is none that was just made; what may not be written is opened for reading. Throws
  /// when it is missing and may not be made, cannot be read, is no database of ours or was made by a later version;
  /// then it has not been changed. Waits for locks of others as long as the patience lasts.
  ///
  /// A file that is made gets what `content` gives, if anything. So does one that takes the place of a file which is
  /// damaged, empty or no database of ours, if there is anything to give; what was found is moved to `folder`/aside.
  using Content = std::function<std::optional<StoreCopy>()>;
  PreferencesDatabase(const std::filesystem::path& folder, bool forWriting, std::shared_ptr<LockPatience> patience,
                      const Content& content);

  /// Moves the file to `folder`/aside, if there is one, and makes another with that content; null: none. Throws when
  /// a later version made it, or that fails. Leaves a file alone that `isToGo` spares, asked when nobody else makes
  /// or replaces one.
  static void startAnew(const std::filesystem::path& folder, std::shared_ptr<LockPatience> patience,
                        const StoreCopy* content, const std::function<bool()>& isToGo);

  static std::filesystem::path fileIn(const std::filesystem::path& folder);

  bool isWritable() const { return _isWritable; }
  /// Why it may only be read, for the user.
  const std::string& readOnlyError() const { return _readOnlyError; }
  /// Whether it still shows what is stored. Not when the file was deleted or replaced, and, opened where nothing can be
  /// written beside it, never: then it has to be opened anew to see changes.
  bool isCurrent() const { return !_isFrozen && !_statements->database().hasMoved(); }

  /// What the file has lost under this connection, which may still have it.
  enum class Loss {
    none,
    end,  ///< it has become shorter, which it never does by itself
    log,  ///< its log was deleted or replaced, with the commits that were in it alone
  };
  Loss loss() const;

  /// The layout of the file; of one that may only be read, at this moment. Then it throws for a later version's.
  const PreferencesLayout& layout() const;
  /// The store's number in versions; 0 where an earlier layout has none, or where it is damaged and cannot be written.
  std::uint64_t number() const;
  /// No key that was removed had a version of a larger count. 0 where an earlier layout does not tell.
  std::uint64_t highestRemoved() const;
  /// What became of the store as it was opened, that the user should know.
  const std::vector<std::string>& remarks() const { return _remarks; }

  /// Changes whenever another connection has committed.
  std::int64_t dataVersion() const { return _statements->integer("PRAGMA data_version"); }

  /// Ends with the object unless it is committed. A write one throws when the store is read-only.
  SQLiteTransaction transaction(SQLiteTransaction::Kind kind) const;

  /// Calls `visit(key, value)` for each StoredValue of the domain, by key.
  template <class Visit>
  void visitValues(std::string_view domain, Visit visit) const {
    const std::uint64_t store = number();
    const SQLiteStatements::Use statement = _statements->use(textForValues(RowCopy::stored, ""));
    statement->bind(1, domain);
    while (statement->step()) visit(statement->text(0), valueIn(*statement, RowCopy::stored, domain, store));
  }
  /// Calls `visit(value)` if there is one.
  template <class Visit>
  void visitValue(RowCopy copy, std::string_view key, std::string_view domain, Visit visit) const {
    const std::uint64_t store = number();
    const SQLiteStatements::Use statement = _statements->use(textForValues(copy, " AND key = ?2"));
    statement->bind(1, domain).bind(2, key);
    if (statement->step()) visit(valueIn(*statement, copy, domain, store));
  }
  /// The domains that have values.
  std::vector<std::string> domains() const;
  /// The keys of the domain that have a good copy, which are those that have a value. None in earlier layouts.
  std::vector<std::string> keysOfGoodCopies(std::string_view domain) const;

  /// The version that write `id` makes of a key with version `stored`, or of one without a value.
  PreferenceVersion versionAfter(const PreferenceVersion* stored, PreferenceWriteID id) const;
  /// Writes the value and its good copy, in place of chunks as well.
  void write(std::string_view key, std::string_view domain, std::span<const std::uint8_t> value,
             const PreferenceVersion& version) const;
  /// Writes the good copy of a value that is stored, unless it is as it should be.
  void writeLastGood(std::string_view key, std::string_view domain, std::span<const std::uint8_t> value,
                     const PreferenceVersion& version) const;
  /// Writes where the chunks are, for a key without a value or with this list.
  void write(std::string_view key, std::string_view domain, const StoredChunks& chunks,
             const PreferenceVersion& version) const;
  /// Removes both, with all chunks, before another value of the key is written.
  void clear(std::string_view key, std::string_view domain) const;
  /// Removes both likewise, where no other value follows. Later versions of the key will have larger counts than this
  /// one.
  void remove(std::string_view key, std::string_view domain, const PreferenceVersion& version) const;

  SQLiteStatements& statements() const { return *_statements; }
  /// Binds count, writer and number of the write to that parameter and the next two.
  static void bindVersion(SQLiteStatement& statement, int parameter, const PreferenceVersion& version);

 private:
  explicit PreferencesDatabase(std::shared_ptr<LockPatience> patience);
  void openForWriting(const std::filesystem::path& folder, const Content& content);
  void openFile(const std::filesystem::path& file);
  void makeStore(const std::filesystem::path& file, const StoreCopy* content);
  void fill(const StoreCopy& content) const;
  void openForReading(const std::filesystem::path& file);
  void openFrozen(const std::filesystem::path& file);
  void open(const std::filesystem::path& file, SQLiteDatabase::Access access);
  void prepareForWriting(const std::string& identity);
  std::int64_t version() const;
  /// What tells a loss. Nothing is told of a file that is gone again already.
  void remember(const std::filesystem::path& file);
  std::uint64_t storedNumber() const;
  /// How the file is named for this store; absent when that row is damaged or missing.
  std::optional<std::string> storedIdentity() const;
  std::string textForValues(RowCopy copy, std::string_view condition) const;
  StoredValue valueIn(const SQLiteStatement& row, RowCopy copy, std::string_view domain, std::uint64_t store) const;
  void writeValue(RowCopy copy, std::string_view key, std::string_view domain, std::span<const std::uint8_t> value,
                  const StoredChunks& chunks, const PreferenceVersion& version) const;
  void removeChunks(std::string_view key, std::string_view domain) const;

  const std::shared_ptr<LockPatience> _patience;
  std::string _file, _log;           ///< while it may be written
  mutable std::uintmax_t _size = 0;  ///< the largest that the file was seen to have
  // By which the system knows the two files.
  std::uint64_t _fileNumber = 0;
  std::uint64_t _logNumber = 0;
  std::unique_ptr<SQLiteStatements> _statements;
  bool _isWritable = false;
  bool _isFrozen = false;
  std::string _readOnlyError = "the store is read-only: neither its files nor their folder may be written";
  std::vector<std::string> _remarks;
  std::uint64_t _number = 0;  ///< while it may be written
};

}  // namespace pellor
