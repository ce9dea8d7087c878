// A store during and after whose writes other things happen.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "pellor/friends/PLFriendsManager.h"
#include "pellor/platform/PreferencesStore.h"

namespace pellor {

/// Passes everything on to another store; calls `beforeWrite` in the middle of a save, and `afterWrite` when a
/// versioned write is over and its caller does not know yet, both on the thread that saves. The key is that of the list
/// if it is among those of the write, else the first.
class SlowStore : public PreferencesStore {
 public:
  using Interruption = std::function<void(std::string_view key)>;

  SlowStore(std::shared_ptr<PreferencesStore> store, Interruption beforeWrite, Interruption afterWrite = {})
      : _store(std::move(store)), _beforeWrite(std::move(beforeWrite)), _afterWrite(std::move(afterWrite)) {}

  PreferenceAnswer<Value> copyValue(std::string_view key, std::string_view domain) override {
    return _store->copyValue(key, domain);
  }
  void setValue(std::string_view key, std::optional<Value> value, std::string_view domain) override {
    _beforeWrite(key);
    _store->setValue(key, std::move(value), domain);
  }
  bool synchronize(std::string_view domain) override { return _store->synchronize(domain); }
  PreferenceAnswer<VersionedPreferences> read(std::span<const std::string> keys, std::string_view domain) override {
    return _store->read(keys, domain);
  }
  PreferenceWriteAnswer write(const PreferenceChanges& changes, PreferenceWriteID id,
                              std::string_view domain) override {
    const std::string key = keyOf(changes);
    _beforeWrite(key);
    PreferenceWriteAnswer answer = _store->write(changes, id, domain);
    if (_afterWrite) _afterWrite(key);
    return answer;
  }
  PutAside putAside(std::string_view key, std::string_view domain) override { return _store->putAside(key, domain); }
  std::optional<Value> persistentValueForKey(std::string_view key, std::string_view domain) override {
    return _store->persistentValueForKey(key, domain);
  }

 private:
  static std::string keyOf(const PreferenceChanges& changes) {
    if (changes.contains(PLFriendListKey)) return std::string(PLFriendListKey);
    return changes.empty() ? std::string() : changes.begin()->first;
  }

  const std::shared_ptr<PreferencesStore> _store;
  const Interruption _beforeWrite;
  const Interruption _afterWrite;
};

}  // namespace pellor
