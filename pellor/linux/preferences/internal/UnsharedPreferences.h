// A store for a dry run.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "pellor/linux/preferences/SharedPreferences.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

/// Shows another store, and keeps what is written to itself: the other one is not changed, and nobody else sees it.
/// Copies of the store and a new start are the other one's own, and are not to be asked for. Any thread.
class UnsharedPreferences final : public SharedPreferences {
 public:
  explicit UnsharedPreferences(std::shared_ptr<SharedPreferences> shared) : _shared(std::move(shared)) {}

  PreferenceAnswer<Value> copyValue(std::string_view key, std::string_view domain) override;
  void setValue(std::string_view key, std::optional<Value> value, std::string_view domain) override;
  bool synchronize(std::string_view domain) override;
  PreferenceAnswer<VersionedPreferences> read(std::span<const std::string> keys, std::string_view domain) override;
  PreferenceWriteAnswer write(const PreferenceChanges& changes, PreferenceWriteID id, std::string_view domain) override;
  /// The damaged value stays where it is: there is none that may be written over.
  PutAside putAside(std::string_view key, std::string_view domain) override;
  std::optional<Value> persistentValueForKey(std::string_view key, std::string_view domain) override;

  bool insertIfAbsent(const Dictionary& values, std::string_view domain) override;
  bool isWritable() override { return _shared->isWritable(); }
  bool isReadOnly() override { return _shared->isReadOnly(); }
  std::string lastError() const override { return _shared->lastError(); }
  std::vector<std::string> takeRemarks() override { return _shared->takeRemarks(); }
  WriteCounts writeCounts() const override { return _shared->writeCounts(); }
  const StoreCopies& copies() const override { return _shared->copies(); }
  std::optional<StoreCopy> copyOfStore(double date) override { return _shared->copyOfStore(date); }
  /// Nobody is called: the store does not change.
  void setWriteObserver(std::function<void()> /*observer*/) override {}
  bool canStartAnew() const override { return _shared->canStartAnew(); }
  /// Nothing of it is this one's.
  std::optional<KeptTrace> eraseUnusedSpace() override { return std::nullopt; }

 private:
  using Key = std::pair<std::string, std::string>;  // domain, key

  VersionedPreferences readLocked(std::span<const std::string> keys, std::string_view domain,
                                  VersionedPreferences stored) PELLOR_REQUIRES(_mutex);
  VersionedPreference set(std::string_view key, std::optional<Value> value, PreferenceVersion version,
                          std::string_view domain) PELLOR_REQUIRES(_mutex);

  const std::shared_ptr<SharedPreferences> _shared;
  Mutex _mutex;
  std::map<Key, VersionedPreference> _written PELLOR_GUARDED_BY(_mutex);
  std::map<Key, std::optional<Value>> _waiting PELLOR_GUARDED_BY(_mutex);  // for the next `synchronize`
};

}  // namespace pellor
