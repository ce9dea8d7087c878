// What a preferences store knows without asking: values that were set, values that were read, and what does not work.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/linux/preferences/SharedPreferences.h"
#include "pellor/platform/PreferencesStore.h"
#include "pellor/runtime/Log.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

struct StoredList;

/// The half of a store that lies in memory, whatever keeps the values. Any thread; nothing waits here.
class PreferencesMemory {
 public:
  struct PendingValue {
    std::optional<Value> value;  ///< absent: the key is to be removed
    std::uint64_t serial = 0;    ///< tells it from a value that was set later
  };
  using PendingValues = std::map<std::string, PendingValue, std::less<>>;

  /// A stored value with what tells the next reading whether it changed: its bytes, or the list that it is.
  struct SnapshotValue {
    Value value;
    std::shared_ptr<const Data> bytes;
    std::shared_ptr<const StoredList> list;
    PreferenceVersion version{};
    bool isGoodCopy = false;  ///< what is stored is damaged, and this is to take its place
  };
  using Snapshot = std::map<std::string, SnapshotValue, std::less<>>;

  /// What does not work at the moment.
  enum class Fault { read, write };

  /// `place` says in the log where the preferences are.
  PreferencesMemory(std::string place, LogHandle log);

  /// Absent when the domain has to be read first.
  std::optional<PreferenceAnswer<Value>> answer(std::string_view key, std::string_view domain) const;

  // What was set and is not written yet.
  void keep(std::string_view key, std::optional<Value> value, std::string_view domain);
  PendingValues copyOfPending(std::string_view domain) const;
  /// Forgets what was written or could not be written, but not what was set meanwhile.
  void removePending(std::string_view domain, const PendingValues& values);

  // What is stored, as it was read or written last. Null: not read, or it could not be read the last time.
  std::shared_ptr<const Snapshot> snapshotOf(std::string_view domain) const;
  void install(std::string_view domain, std::shared_ptr<const Snapshot> snapshot);
  /// Of these keys alone; nothing when the domain has no snapshot. Keys that are not in `stored` are removed.
  void installKeys(std::string_view domain, std::span<const std::string> keys, const Snapshot& stored);

  /// Says on the log what happened to the preferences there.
  void remark(const std::string& text);
  /// What was said so since the last call.
  std::vector<std::string> takeRemarks();

  // What has become of the writes.
  void count(PreferenceWriteOutcome outcome);
  SharedPreferences::WriteCounts writeCounts() const;
  /// Each is logged when it changes something.
  void begins(Fault fault, const std::string& error);
  void ends(Fault fault);
  /// Of the faults that last, first of those of writing; empty when all is well.
  std::string lastError() const;

 private:
  struct Domain {
    PendingValues pending;
    std::shared_ptr<const Snapshot> snapshot;
  };

  Domain& domainNamed(std::string_view domain) PELLOR_REQUIRES(_mutex);
  static const char* participleOf(Fault fault);

  const std::string _place;
  const LogHandle _log;
  mutable Mutex _mutex;
  std::map<std::string, Domain, std::less<>> _domains PELLOR_GUARDED_BY(_mutex);
  std::uint64_t _lastSerial PELLOR_GUARDED_BY(_mutex) = 0;
  std::vector<std::string> _remarks PELLOR_GUARDED_BY(_mutex);
  SharedPreferences::WriteCounts _writeCounts PELLOR_GUARDED_BY(_mutex);
  std::map<Fault, std::string> _errors PELLOR_GUARDED_BY(_mutex);  ///< of the faults that last
};

}  // namespace pellor
