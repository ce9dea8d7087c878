// Preferences shared by the user's processes, in a SQLite database.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "linux/DefaultsFile.h"
#include "platform/PreferencesStore.h"
#include "runtime/Log.h"

namespace pellor {

class PreferencesDatabase;
class SQLiteError;

/// One connection, opened at the first use and again after a failure; values that were read or set are answered from
/// memory, without waiting for a write that is under way. A folder or file that cannot be opened or read, that is
/// damaged or that a later version made is never changed: the answer is "unreadable", and each further call tries
/// again. A store without write permission is read, and `synchronize` fails while something is set.
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

  /// Whether the store is open and may be written.
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

  /// A stored value with its bytes, by which the next reading tells whether it changed.
  struct Stored {
    Value value;
    std::shared_ptr<const Data> bytes;
  };
  using Snapshot = std::map<std::string, Stored, std::less<>>;

  struct Domain {
    PendingValues pending;
    std::shared_ptr<const Snapshot> snapshot;  ///< null: not read, or it could not be read the last time
  };

  struct Fault;
  class ValueReader;

  // Of the state in memory.
  std::optional<PreferenceAnswer<Value>> answerFromMemory(std::string_view key, std::string_view domain) const;
  Domain copyOfDomain(std::string_view domain) const;
  void install(std::string_view domain, std::shared_ptr<const Snapshot> snapshot);
  void removeWritten(std::string_view domain, const PendingValues& written);
  void markFailed(std::string_view domain, const PendingValues& failed);
  Domain& domainNamed(std::string_view domain);
  void begins(Fault& fault, const std::string& error);
  void ends(Fault& fault);

  // With the connection held.
  const PreferencesDatabase& database();
  bool renew(std::string_view domain);
  bool write(std::string_view domain, const PendingValues& values);
  void readIfChanged(std::string_view domain);
  std::shared_ptr<const Snapshot> read(std::string_view domain, ValueReader& reader);
  void closeAfter(const SQLiteError& error);
  bool keepAside(std::string_view key, std::string_view domain, const Data& bytes) const;

  const std::filesystem::path _folder;
  const Access _access;
  const LogHandle _log;
  DefaultsFile _defaults;

  // Taken first, for as long as the file is worked on.
  std::mutex _connectionMutex;
  std::unique_ptr<PreferencesDatabase> _database;
  std::map<std::string, std::int64_t, std::less<>> _dataVersions;  ///< of the snapshots, while the connection lasts

  // Taken last, for moments.
  mutable std::mutex _mutex;
  std::map<std::string, Domain, std::less<>> _domains;
  std::uint64_t _lastSerial = 0;
  std::unique_ptr<Fault> _readFault;
  std::unique_ptr<Fault> _writeFault;
};

}  // namespace pellor
