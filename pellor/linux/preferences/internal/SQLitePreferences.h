// Preferences shared by the user's processes, in a SQLite database.
#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "pellor/linux/preferences/SharedPreferences.h"
#include "pellor/linux/preferences/StoreCopies.h"
#include "pellor/linux/preferences/internal/DefaultsFile.h"
#include "pellor/linux/preferences/internal/PreferencesMemory.h"
#include "pellor/runtime/Log.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

class PreferencesDatabase;
class LockPatience;
class SQLiteError;
enum class EqualValues;
struct DamagedPreference;
struct EncodedValue;

/// One connection, opened at the first use and again after a failure; values that were read or set are answered from
/// memory, without waiting for a write that is under way. A folder or file that cannot be opened or read, that is
/// damaged or that a later version made is never changed: the answer is "unreadable", and each further call tries
/// again. A store without write permission is read, and writing to it fails.
///
/// A versioned write is one transaction, which waits for those of others up to the lock limit (see LockPatience). Its
/// outcome is unknown only when the disk failed at the commit itself; a full disk is a failure. A store that is made
/// anew, also as a copy of another file, has a number of its own. A `synchronize` leaves a value that is equal to the
/// stored one as it is, with its version. To read what has not changed costs some microseconds.
///
/// A long array, and an array of nothing but dictionaries, is kept in rows of LongArray::ChunkSize elements:
/// `synchronize` writes the rows that changed and reads those that others changed. It reads as a long array, of which
/// the chunks that did not change are the same objects as before, also those that were set in place of equal ones.
///
/// Each row of the file carries a checksum, and there is a good copy of each. A value that is not as it was written is
/// put aside as `putAside` does, its good copy is given, with its version, and the log says so once; the next write to
/// the domain writes it in its place. Without a good copy the value is data that holds what was found, of a list the
/// bytes of all rows, one after the other. So is a value that does not decode though it is as it was written.
///
/// A failure is logged once when it begins and once when it ends. Any thread. Does not cross a fork.
class SQLitePreferences final : public SharedPreferences {
 public:
  enum class Access { readWrite, readOnly };
  static constexpr std::chrono::milliseconds LockLimit{4000};

  /// The store is `folder`/preferences.sqlite; values that were put aside go to `folder`/aside. `defaultsFile` is the
  /// JSON file behind `persistentValueForKey` (see DefaultsFile). Touches no file yet.
  SQLitePreferences(std::filesystem::path folder, std::filesystem::path defaultsFile, LogHandle log,
                    Access access = Access::readWrite, std::chrono::milliseconds lockLimit = LockLimit);
  ~SQLitePreferences() override;

  PreferenceAnswer<Value> copyValue(std::string_view key, std::string_view domain) override;
  void setValue(std::string_view key, std::optional<Value> value, std::string_view domain) override;
  /// A value that cannot be encoded (see CBORMaximumDepth, CBORMaximumSize) makes it fail.
  bool synchronize(std::string_view domain) override;
  PreferenceAnswer<VersionedPreferences> read(std::span<const std::string> keys, std::string_view domain) override;
  PreferenceWriteAnswer write(const PreferenceChanges& changes, PreferenceWriteID id, std::string_view domain) override;
  /// The copy is `aside`/<key>-<domain>-<UTC time>.cbor, on the disk when this returns. Equal bytes are kept once.
  PutAside putAside(std::string_view key, std::string_view domain) override;
  std::optional<Value> persistentValueForKey(std::string_view key, std::string_view domain) override;

  bool insertIfAbsent(const Dictionary& values, std::string_view domain) override;
  bool isWritable() override;
  bool isReadOnly() override;
  std::string lastError() const override;
  std::vector<std::string> takeRemarks() override { return _memory.takeRemarks(); }
  WriteCounts writeCounts() const override { return _memory.writeCounts(); }

  /// The copies in `folder`/copies. A store that is gone, or whose file is damaged, is made anew of the values that
  /// this process knows and of those that are later in the newest copy; without either it is new, or unreadable. A
  /// value of which neither row is whole is the newest copy's. That the store lacks what the newest copy has is said.
  const StoreCopies& copies() const override { return _copies; }
  std::optional<StoreCopy> copyOfStore(double date) override;
  void setWriteObserver(std::function<void()> observer) override;
  /// Over a connection of its own: values are read and written meanwhile.
  std::optional<KeptTrace> eraseUnusedSpace() override;
  bool canStartAnew() const override { return true; }
  bool startAnew(const StoreCopy* content) override;

 private:
  using Fault = PreferencesMemory::Fault;
  using PendingValues = PreferencesMemory::PendingValues;
  using Snapshot = PreferencesMemory::Snapshot;
  using SnapshotValue = PreferencesMemory::SnapshotValue;

  using EncodedValues = std::map<std::string, EncodedValue, std::less<>>;

  /// What is stored in a domain, as it was read or written last over the connection.
  struct DomainState {
    std::shared_ptr<const Snapshot> snapshot;
    std::optional<std::int64_t> dataVersion;  ///< of the snapshot; absent when it has to be read again
    std::uint64_t number = 0;                 ///< the store's
    VersionedPreference preference(const std::string& key) const;
  };

  /// What was found of a value that is damaged, and said.
  struct Damage {
    Data bytes;
    bool isKept = false;  ///< aside
  };

  struct Batch;

  // With the connection held.
  const PreferencesDatabase& database() PELLOR_REQUIRES(_connectionMutex);
  DomainState& knownOf(std::string_view domain) PELLOR_REQUIRES(_connectionMutex);
  bool isUpToDate(const DomainState& known) const PELLOR_REQUIRES(_connectionMutex);
  /// Reads what is stored, unless it is known, and shows it to callers.
  bool renew(std::string_view domain) PELLOR_REQUIRES(_connectionMutex);
  /// Reads what is stored likewise, without showing it.
  bool look(std::string_view domain) PELLOR_REQUIRES(_connectionMutex);
  bool lookOnce(std::string_view domain, bool& isReplaced) PELLOR_REQUIRES(_connectionMutex);
  /// What is stored at the moment of the open transaction.
  const DomainState& present(std::string_view domain) PELLOR_REQUIRES(_connectionMutex);
  void countVersions(Snapshot& snapshot, const DomainState& known) PELLOR_REQUIRES(_connectionMutex);
  /// Puts it aside and says so, once.
  void reportDamage(const DamagedPreference& damaged, std::string_view domain) PELLOR_REQUIRES(_connectionMutex);

  PreferenceWriteOutcome store(std::string_view domain, const Batch& batch) PELLOR_REQUIRES(_connectionMutex);
  static bool isOvertaken(const PreferenceChanges& changes, const DomainState& known);
  std::shared_ptr<const Snapshot> change(std::string_view domain, const Batch& batch, EncodedValues values,
                                         const Snapshot& stored) const PELLOR_REQUIRES(_connectionMutex);
  /// With good copies. Throws where one that is damaged could not be put aside.
  void replaceDamaged(std::string_view domain, Snapshot& snapshot) const PELLOR_REQUIRES(_connectionMutex);
  static SnapshotValue writeValue(const PreferencesDatabase& store, std::string_view key, std::string_view domain,
                                  EncodedValue value, const SnapshotValue* stored, const PreferenceVersion& version,
                                  EqualValues equal);
  void show(std::string_view domain, const VersionedPreferences& written) PELLOR_REQUIRES(_connectionMutex);
  /// Where another try on the connection cannot help. Whether the file was replaced, so that another one can.
  bool closeAfter(const SQLiteError& error) PELLOR_REQUIRES(_connectionMutex);

  std::filesystem::path asideFolder() const;
  /// Puts the store's file aside and makes it anew of its known values, if there are any. Throws SQLiteError.
  bool replaceStore(const std::string& reason, const std::function<bool()>& isToGo) PELLOR_REQUIRES(_connectionMutex);
  void replaceLostStore() PELLOR_REQUIRES(_connectionMutex);
  bool replaceDamagedStore(const SQLiteError& error) PELLOR_REQUIRES(_connectionMutex);
  std::optional<StoreCopy> contentOfNewStore() PELLOR_REQUIRES(_connectionMutex);
  void compareWithCopy(std::string_view domain, const DomainState& known) PELLOR_REQUIRES(_connectionMutex);
  bool takeFromCopy(std::string_view domain, const std::string& key, SnapshotValue& stored)
      PELLOR_REQUIRES(_connectionMutex);

  const std::filesystem::path _folder;
  const Access _access;
  const std::shared_ptr<LockPatience> _patience;
  const StoreCopies _copies;
  PreferencesMemory _memory;
  std::function<void()> _observer;  // set before the first write
  DefaultsFile _defaults;
  // Of versions that the store does not give, because it was laid out before there were any.
  const std::uint64_t _ownNumber;

  std::atomic<bool> _isReadOnly{false};  // as it was opened last; written with the connection held
  // Held as long as the file is worked on.
  Mutex _connectionMutex;
  std::unique_ptr<PreferencesDatabase> _database PELLOR_GUARDED_BY(_connectionMutex);
  /// Before the database was opened; absent when there was none, or the store was said to lack what it has.
  std::optional<StoreCopyHead> _newestCopy PELLOR_GUARDED_BY(_connectionMutex);
  std::map<std::string, DomainState, std::less<>> _known PELLOR_GUARDED_BY(_connectionMutex);
  /// By domain and key.
  std::map<std::pair<std::string, std::string>, Damage> _damage PELLOR_GUARDED_BY(_connectionMutex);
  std::uint64_t _ownCount PELLOR_GUARDED_BY(_connectionMutex) = 0;
};

}  // namespace pellor
