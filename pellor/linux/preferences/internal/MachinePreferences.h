// The preferences of a list that several machines share.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "pellor/linux/preferences/SharedPreferences.h"

namespace pellor {

/// One of the machines keeps the list in step with its contacts: the first that asks whether it should, until another
/// one is told to. The others take what it finds. If each did, they would rewrite each other's list for ever, since the
/// numbers of records and their databases, and often the contacts themselves, are a machine's own.
///
/// So the setting that says whether contacts are followed reads as false on all machines but that one. To set it on
/// another one, to true, makes that one follow from then on, in programs that start later. Versions are those of the
/// setting as it is stored. Everything else is the store's. Any thread.
class MachinePreferences final : public SharedPreferences {
 public:
  /// `machine` is a name that no other machine of the store has; `followsContacts` the key of the setting.
  MachinePreferences(std::shared_ptr<SharedPreferences> store, std::string machine, std::string followsContacts);

  /// For a user's data on this machine: of its machine-id, else its name, and the data folder. Tells nothing of either.
  static std::string machineName(const std::filesystem::path& dataFolder);

  PreferenceAnswer<Value> copyValue(std::string_view key, std::string_view domain) override;
  void setValue(std::string_view key, std::optional<Value> value, std::string_view domain) override;
  bool synchronize(std::string_view domain) override { return _store->synchronize(domain); }
  PreferenceAnswer<VersionedPreferences> read(std::span<const std::string> keys, std::string_view domain) override;
  PreferenceWriteAnswer write(const PreferenceChanges& changes, PreferenceWriteID id, std::string_view domain) override;
  PutAside putAside(std::string_view key, std::string_view domain) override { return _store->putAside(key, domain); }
  std::optional<Value> persistentValueForKey(std::string_view key, std::string_view domain) override {
    return _store->persistentValueForKey(key, domain);
  }
  bool insertIfAbsent(const Dictionary& values, std::string_view domain) override {
    return _store->insertIfAbsent(values, domain);
  }
  bool isWritable() override { return _store->isWritable(); }
  bool isReadOnly() override { return _store->isReadOnly(); }
  std::string lastError() const override { return _store->lastError(); }
  std::vector<std::string> takeRemarks() override { return _store->takeRemarks(); }
  WriteCounts writeCounts() const override { return _store->writeCounts(); }
  const StoreCopies& copies() const override { return _store->copies(); }
  std::optional<StoreCopy> copyOfStore(double date) override { return _store->copyOfStore(date); }
  std::optional<KeptTrace> eraseUnusedSpace() override { return _store->eraseUnusedSpace(); }
  void setWriteObserver(std::function<void()> observer) override { _store->setWriteObserver(std::move(observer)); }

 private:
  bool isFollower(std::string_view domain);

  const std::shared_ptr<SharedPreferences> _store;
  const std::string _machine;
  const std::string _followsContacts;
};

}  // namespace pellor
