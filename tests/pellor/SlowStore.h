// A store during whose writes other things happen.
#pragma once

#include <functional>
#include <memory>
#include <string_view>
#include <utility>

#include "platform/PreferencesStore.h"

namespace pellor {

/// Passes everything on to another store; calls `beforeWrite` in the middle of a save, on the thread that saves.
class SlowStore : public PreferencesStore {
 public:
  using Interruption = std::function<void(std::string_view key)>;

  SlowStore(std::shared_ptr<PreferencesStore> store, Interruption beforeWrite)
      : _store(std::move(store)), _beforeWrite(std::move(beforeWrite)) {}

  PreferenceAnswer<Value> copyValue(std::string_view key, std::string_view domain) override {
    return _store->copyValue(key, domain);
  }
  PreferenceAnswer<std::int64_t> integerValue(std::string_view key, std::string_view domain) override {
    return _store->integerValue(key, domain);
  }
  PreferenceAnswer<bool> booleanValue(std::string_view key, std::string_view domain) override {
    return _store->booleanValue(key, domain);
  }
  void setValue(std::string_view key, std::optional<Value> value, std::string_view domain) override {
    _beforeWrite(key);
    _store->setValue(key, std::move(value), domain);
  }
  bool synchronize(std::string_view domain) override { return _store->synchronize(domain); }
  PutAside putAside(std::string_view key, std::string_view domain) override { return _store->putAside(key, domain); }
  std::optional<Value> persistentValueForKey(std::string_view key, std::string_view domain) override {
    return _store->persistentValueForKey(key, domain);
  }

 private:
  const std::shared_ptr<PreferencesStore> _store;
  const Interruption _beforeWrite;
};

}  // namespace pellor
