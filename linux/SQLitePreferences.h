// Preferences shared by the user's processes, in a SQLite database.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "linux/DefaultsFile.h"
#include "linux/PreferencesMemory.h"
#include "linux/SharedPreferences.h"
#include "runtime/Log.h"
#include "runtime/ThreadSafety.h"

namespace pellor {

class PreferencesDatabase;
class SQLiteError;
struct EncodedValue;
struct StoredList;
struct StoredValue;

/// One connection, opened at the first use and again after a failure; values that were read or set are answered from
/// memory, without waiting for a write that is under way. A folder or file that cannot be opened or read, that is
/// damaged or that a later version made is never changed: the answer is "unreadable", and each further call tries
/// again. A store without write permission is read, and `synchronize` fails while something is set.
///
/// A long array, and an array of nothing but dictionaries, is kept in rows of LongArray::RunSize elements:
/// `synchronize` writes the rows that changed and reads those that others changed. It reads as a long array, of which
/// the runs that did not change are the same objects as before, also those that were set in place of equal ones. When a
/// row is damaged the value is data that holds the bytes of all rows, one after the other.
///
/// A failure is logged once when it begins and once when it ends. Any thread. Does not cross a fork.
class SQLitePreferences final : public SharedPreferences {
 public:
  enum class Access { readWrite, readOnly };

  /// The store is `folder`/preferences.sqlite; values that were put aside go to `folder`/aside. `defaultsFile` is the
  /// JSON file behind `persistentValueForKey` (see DefaultsFile). Touches no file yet.
  SQLitePreferences(std::filesystem::path folder, std::filesystem::path defaultsFile, LogHandle log,
                    Access access = Access::readWrite);
  ~SQLitePreferences() override;

  PreferenceAnswer<Value> copyValue(std::string_view key, std::string_view domain) override;
  void setValue(std::string_view key, std::optional<Value> value, std::string_view domain) override;
  /// A value that cannot be encoded (see CBORMaximumDepth, CBORMaximumSize) makes it fail.
  bool synchronize(std::string_view domain) override;
  /// The copy is `aside`/<key>-<domain>-<UTC time>.cbor, on the disk when this returns. The same bytes are kept once.
  PutAside putAside(std::string_view key, std::string_view domain) override;
  std::optional<Value> persistentValueForKey(std::string_view key, std::string_view domain) override;

  bool insertIfAbsent(const Dictionary& values, std::string_view domain) override;
  bool isWritable() override;
  std::string lastError() const override;

 private:
  using Fault = PreferencesMemory::Fault;
  using PendingValues = PreferencesMemory::PendingValues;
  using Snapshot = PreferencesMemory::Snapshot;
  using Stored = PreferencesMemory::Stored;

  // With the connection held.
  const PreferencesDatabase& database() PELLOR_REQUIRES(_connectionMutex);
  bool renew(std::string_view domain) PELLOR_REQUIRES(_connectionMutex);
  bool write(std::string_view domain, const PendingValues& values) PELLOR_REQUIRES(_connectionMutex);
  void readIfChanged(std::string_view domain) PELLOR_REQUIRES(_connectionMutex);
  bool isUpToDate(std::string_view domain) PELLOR_REQUIRES(_connectionMutex);
  std::shared_ptr<const Snapshot> read(std::string_view domain) PELLOR_REQUIRES(_connectionMutex);
  static Stored readValue(const PreferencesDatabase& store, const StoredValue& value, const Stored* previous,
                          bool isSameConnection);
  static Stored writeValue(const PreferencesDatabase& store, std::string_view key, std::string_view domain,
                           EncodedValue value, const Stored* stored);
  void closeAfter(const SQLiteError& error) PELLOR_REQUIRES(_connectionMutex);
  bool keepAside(std::string_view key, std::string_view domain, const Data& bytes) const;

  const std::filesystem::path _folder;
  const Access _access;
  PreferencesMemory _memory;
  DefaultsFile _defaults;

  // Held as long as the file is worked on.
  Mutex _connectionMutex;
  std::unique_ptr<PreferencesDatabase> _database PELLOR_GUARDED_BY(_connectionMutex);
  /// Of the snapshots, while the connection lasts.
  std::map<std::string, std::int64_t, std::less<>> _dataVersions PELLOR_GUARDED_BY(_connectionMutex);
};

}  // namespace pellor
