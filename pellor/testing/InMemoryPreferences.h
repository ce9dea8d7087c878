// Preferences in memory, shared by simulated processes.
#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/platform/PreferencesStore.h"
#include "pellor/runtime/Process.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

/// What the stores of several processes have in common. Each process works on a store of its own (`storeFor`), which is
/// strict: what others wrote shows only after the process's own `synchronize`, and what was not synchronised is lost
/// with the process. Any thread. Made with `std::make_shared`.
class InMemoryPreferences : public std::enable_shared_from_this<InMemoryPreferences> {
 public:
  /// One `synchronize` or `write` that stored something.
  struct Write {
    const Process* process = nullptr;  ///< for comparison only: the process may have ended
    std::string domain;
    std::vector<std::string> keys;  ///< set or removed, by name
    PreferenceWriteID id;           ///< nobody's for a `synchronize`
  };
  struct PutAsideCopy {
    std::string key;
    std::string domain;
    Value value;      ///< as `copyValue` gave it; bytes that do not decode are of kind data
    double date = 0;  ///< when it was put aside, in seconds of absolute time
  };

  /// A process's view of the content.
  std::shared_ptr<PreferencesStore> storeFor(Process& process);

  // Content

  /// The number that the versions of this store bear; 1 until it is set or the store is renewed.
  std::uint64_t storeNumber() const;
  /// Not 0.
  void setStoreNumber(std::uint64_t number);
  /// What a store that is made anew starts with: the values of a copy, or nothing.
  enum class Renewal { fromCopy, empty };
  /// From now on the store is another one, under the next number. An empty one counts its versions from the start, so
  /// that they differ from earlier ones in the store's number only. Processes see it at their next `synchronize`.
  void renew(Renewal renewal);
  /// What is stored: the last value that was synchronised; absent when there is none.
  std::optional<Value> value(std::string_view key, std::string_view domain) const;
  /// Stores a value at once, as a process outside the simulation would; absent removes it.
  void setValue(std::string_view key, std::optional<Value> value, std::string_view domain);
  /// Changes a stored value behind the store's back: the last good copy stays as it was, the version is a new one that
  /// nobody wrote. Give data for bytes that do not decode, any other value for one of a wrong type.
  void damage(std::string_view key, Value content, std::string_view domain);
  /// The last value of the key that was written whole; absent when the key was removed since.
  std::optional<Value> lastGoodValue(std::string_view key, std::string_view domain) const;
  /// All copies that were put aside, oldest first.
  std::vector<PutAsideCopy> putAsideCopies() const;
  /// Sets one of the defaults that each process has of its own, in all processes alike; absent removes it.
  void setPersistentValue(std::string_view key, std::optional<Value> value, std::string_view domain);

  // Faults

  static constexpr std::uint64_t Always = std::numeric_limits<std::uint64_t>::max();

  /// Every read of the domain (absent: of all domains) answers that it cannot be read, and its `synchronize` and
  /// `write` fail and store nothing.
  void makeUnreadable(std::optional<std::string> domain = std::nullopt);
  /// Ends `makeUnreadable` for all domains.
  void makeReadable();
  /// Lets the next `times` calls of `synchronize` or `write` fail that have something to write (and were not
  /// overtaken).
  void failWrites(std::uint64_t times = Always);
  void allowWrites() { failWrites(0); }
  /// Lets every store say that it may only be read; writes fail.
  void setReadOnly(bool isReadOnly);
  /// What becomes of a `write` whose caller is not told. It is overtaken like any other if it was by then.
  enum class Untold {
    stored,   ///< it arrives at once
    delayed,  ///< it arrives with `storeDelayedWrites`
    lost,     ///< it never arrives
  };
  /// Lets the next `times` calls of `write` that have something to write answer `unknown`.
  void leaveUntold(Untold fate, std::uint64_t times = Always);
  void tellAgain() { leaveUntold(Untold::stored, 0); }
  /// Lets the delayed writes arrive, in the order of their calls. How many were not overtaken, and so are stored now.
  std::uint64_t storeDelayedWrites();
  /// Lets `putAside` keep no copy.
  void setPutAsideFails(bool fails);

  // Records

  /// What was stored, oldest first, whatever its caller was told.
  std::vector<Write> writes() const;
  std::uint64_t writeCount() const;
  /// Calls of `synchronize` or `write` that had something to write and failed.
  std::uint64_t failedWriteCount() const;
  /// Calls of `write` that were overtaken, whatever the caller was told.
  std::uint64_t overtakenWriteCount() const;
  /// Values that were asked for, of all processes.
  std::uint64_t readCount() const;
  /// Forgets writes and counts.
  void clearRecords();

 private:
  class Store;
  struct Entry {
    Value value;
    std::uint64_t count = 0;
    PreferenceWriteID write;
  };
  using Content = std::map<std::string, Entry, std::less<>>;
  using ContentRef = std::shared_ptr<const Content>;
  using Name = std::pair<std::string, std::string>;  // domain, key
  struct Request {
    const Process* process;
    std::string domain;
    PreferenceChanges changes;
    PreferenceWriteID id;
  };

  bool isUnreadable(std::string_view domain) const PELLOR_REQUIRES(_mutex);
  static bool take(std::uint64_t& times);
  ContentRef contentOf(std::string_view domain) const PELLOR_REQUIRES(_mutex);
  VersionedPreference stored(std::string_view key, std::string_view domain) const PELLOR_REQUIRES(_mutex);
  bool isOvertaken(const PreferenceChanges& changes, std::string_view domain) const PELLOR_REQUIRES(_mutex);
  void put(std::string_view key, const std::optional<Value>& value, PreferenceWriteID id, std::string_view domain)
      PELLOR_REQUIRES(_mutex);
  bool storeUnlessOvertaken(const Request& request) PELLOR_REQUIRES(_mutex);

  mutable Mutex _mutex;  // guards the fields of all stores, too
  std::uint64_t _storeNumber PELLOR_GUARDED_BY(_mutex) = 1;
  std::uint64_t _lastCount PELLOR_GUARDED_BY(_mutex) = 0;  // of all versions in this store
  std::map<std::string, ContentRef, std::less<>> _contents PELLOR_GUARDED_BY(_mutex);
  std::map<Name, Value> _lastGood PELLOR_GUARDED_BY(_mutex);
  std::map<Name, Value> _persistentValues PELLOR_GUARDED_BY(_mutex);
  std::vector<PutAsideCopy> _putAside PELLOR_GUARDED_BY(_mutex);
  bool _allUnreadable PELLOR_GUARDED_BY(_mutex) = false;
  std::set<std::string, std::less<>> _unreadableDomains PELLOR_GUARDED_BY(_mutex);
  std::uint64_t _writesToFail PELLOR_GUARDED_BY(_mutex) = 0;
  bool _isReadOnly PELLOR_GUARDED_BY(_mutex) = false;
  Untold _untold PELLOR_GUARDED_BY(_mutex) = Untold::stored;
  std::uint64_t _writesToLeaveUntold PELLOR_GUARDED_BY(_mutex) = 0;
  std::vector<Request> _delayedWrites PELLOR_GUARDED_BY(_mutex);
  bool _putAsideFails PELLOR_GUARDED_BY(_mutex) = false;
  std::vector<Write> _writes PELLOR_GUARDED_BY(_mutex);
  std::uint64_t _failedWriteCount PELLOR_GUARDED_BY(_mutex) = 0;
  std::uint64_t _overtakenWriteCount PELLOR_GUARDED_BY(_mutex) = 0;
  std::uint64_t _readCount PELLOR_GUARDED_BY(_mutex) = 0;
};

}  // namespace pellor
