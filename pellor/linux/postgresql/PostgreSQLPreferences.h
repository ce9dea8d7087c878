// Preferences shared by the user's machines, in a PostgreSQL database.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "pellor/linux/postgresql/PostgreSQLService.h"
#include "pellor/linux/preferences/SharedPreferences.h"
#include "pellor/linux/preferences/internal/DefaultsFile.h"
#include "pellor/runtime/Log.h"

namespace pellor {

/// Values that were read or set are answered from memory, without waiting. What has to ask the server waits for at most
/// the limits of the service's options, and not at all while the server is known to be away: then the answer is
/// "unreadable", or not synchronized. A writing that was given up in this way before it was sent is never done. One
/// that was sent may have been done, or may still be, and then counts: `write` calls it unknown, `synchronize` failed.
/// While the server still works on it, others that write the domain wait for its end.
///
/// Each writing is one transaction, which holds up other writers of the domain, and which notifies them of the changed
/// keys as it is committed. A process reads ahead what others have written, so that later calls have little to wait
/// for. After the connection was lost everything is read again.
///
/// Values are kept as in the SQLite store: a long array, and an array of nothing but dictionaries, in rows of
/// LongArray::ChunkSize elements, of which only those are written and read that changed (see SQLitePreferences). Runs
/// that were written are those that are read then, also where they took the place of equal ones.
///
/// A failure is logged once when it begins and once when it ends; that the server is away is the service's business.
/// Any thread.
class PostgreSQLPreferences final : public SharedPreferences {
 public:
  /// Copies of the store are kept in `copiesFolder`, and never take its place by themselves. `defaultsFile` is the JSON
  /// file behind `persistentValueForKey` (see DefaultsFile).
  PostgreSQLPreferences(std::shared_ptr<PostgreSQLService> service, std::filesystem::path copiesFolder,
                        std::filesystem::path defaultsFile, LogHandle log);
  ~PostgreSQLPreferences() override;

  PreferenceAnswer<Value> copyValue(std::string_view key, std::string_view domain) override;
  void setValue(std::string_view key, std::optional<Value> value, std::string_view domain) override;
  /// A value that cannot be encoded (see CBORMaximumDepth, CBORMaximumSize) makes it fail.
  bool synchronize(std::string_view domain) override;
  PreferenceAnswer<VersionedPreferences> read(std::span<const std::string> keys, std::string_view domain) override;
  PreferenceWriteAnswer write(const PreferenceChanges& changes, PreferenceWriteID id, std::string_view domain) override;
  /// The copy is a row of the table `pellor.aside`, with its time. Equal bytes are kept once.
  PutAside putAside(std::string_view key, std::string_view domain) override;
  std::optional<Value> persistentValueForKey(std::string_view key, std::string_view domain) override;

  bool insertIfAbsent(const Dictionary& values, std::string_view domain) override;
  bool isWritable() override;
  bool isReadOnly() override;
  std::string lastError() const override;
  std::vector<std::string> takeRemarks() override;
  WriteCounts writeCounts() const override;

  const StoreCopies& copies() const override { return _copies; }
  /// Each domain as it was at one moment of its own.
  std::optional<StoreCopy> copyOfStore(double date) override;
  /// The server's files are not the program's.
  std::optional<KeptTrace> eraseUnusedSpace() override;
  void setWriteObserver(std::function<void()> observer) override;

 private:
  class Core;

  bool renew(std::string_view domain);

  const std::shared_ptr<PostgreSQLService> _service;
  const std::shared_ptr<Core> _core;
  const StoreCopies _copies;
  DefaultsFile _defaults;
};

}  // namespace pellor
