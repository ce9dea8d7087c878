// Preferences shared by the user's processes, in a SQLite database.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "linux/DefaultsFile.h"
#include "platform/PreferencesStore.h"
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
class SQLitePreferences final : public PreferencesStore {
 public:
  enum class Access { readWrite, readOnly };

  /// The store is `folder`/preferences.sqlite; values that were put aside go to `folder`/aside. `defaultsFile` is the
  /// JSON file behind `persistentValueForKey` (see DefaultsFile). Touches no file yet.
  SQLitePreferences(std::filesystem::path folder, std::filesystem::path defaultsFile, LogHandle log,
                    Access access = Access::readWrite);
  ~SQLitePreferences() override;

  PreferenceAnswer<Value> copyValue(std::string_view key, std::string_view domain) override;
  PreferenceAnswer<std::int64_t> integerValue(std::string_view key, std::string_view domain) override;
  PreferenceAnswer<bool> booleanValue(std::string_view key, std::string_view domain) override;
  void setValue(std::string_view key, std::optional<Value> value, std::string_view domain) override;
  /// A value that cannot be encoded (see CBORMaximumDepth, CBORMaximumSize) makes it fail.
  bool synchronize(std::string_view domain) override;
  /// The copy is `aside`/<key>-<domain>-<UTC time>.cbor, on the disk when this returns. The same bytes are kept once.
  PutAside putAside(std::string_view key, std::string_view domain) override;
  std::optional<Value> persistentValueForKey(std::string_view key, std::string_view domain) override;

  /// Writes those values at once whose keys are not in the store yet, in one transaction, so that of several processes
  /// one decides. True when every key is stored afterwards.
  bool insertIfAbsent(const Dictionary& values, std::string_view domain);

  /// Whether the store is open and may be written; if not, `lastError` says why.
  bool isWritable();
  /// What went wrong last and has not worked since, for the user; empty when all is well.
  std::string lastError() const;

 private:
  struct Pending {
    std::optional<Value> value;  ///< absent: the key is to be removed
    std::uint64_t serial = 0;    ///< tells it from a value that was set later
    bool hasFailed = false;      ///< a write failed, so readers are given what is stored
  };
  using PendingValues = std::map<std::string, Pending, std::less<>>;

  /// A stored value with what tells the next reading whether it changed: its bytes, or the list that it is.
  struct Stored {
    Value value;
    std::shared_ptr<const Data> bytes;
    std::shared_ptr<const StoredList> list;
  };
  using Snapshot = std::map<std::string, Stored, std::less<>>;

  struct Domain {
    PendingValues pending;
    std::shared_ptr<const Snapshot> snapshot;  ///< null: not read, or it could not be read the last time
  };

  /// What does not work at the moment.
  enum class Fault { read, write };

  // Of the state in memory.
  std::optional<PreferenceAnswer<Value>> answerFromMemory(std::string_view key, std::string_view domain) const;
  PendingValues copyOfPending(std::string_view domain) const;
  std::shared_ptr<const Snapshot> snapshotOf(std::string_view domain) const;
  void install(std::string_view domain, std::shared_ptr<const Snapshot> snapshot);
  void removeWritten(std::string_view domain, const PendingValues& written);
  void markFailed(std::string_view domain, const PendingValues& failed);
  Domain& domainNamed(std::string_view domain) PELLOR_REQUIRES(_mutex);
  static const char* participleOf(Fault fault);
  void begins(Fault fault, const std::string& error);
  void ends(Fault fault);

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
  const LogHandle _log;
  DefaultsFile _defaults;

  // Taken first, for as long as the file is worked on.
  Mutex _connectionMutex;
  std::unique_ptr<PreferencesDatabase> _database PELLOR_GUARDED_BY(_connectionMutex);
  /// Of the snapshots, while the connection lasts.
  std::map<std::string, std::int64_t, std::less<>> _dataVersions PELLOR_GUARDED_BY(_connectionMutex);

  // Taken last, for moments.
  mutable Mutex _mutex;
  std::map<std::string, Domain, std::less<>> _domains PELLOR_GUARDED_BY(_mutex);
  std::uint64_t _lastSerial PELLOR_GUARDED_BY(_mutex) = 0;
  std::map<Fault, std::string> _errors PELLOR_GUARDED_BY(_mutex);  ///< of the faults that last
};

}  // namespace pellor
