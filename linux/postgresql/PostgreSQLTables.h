// The preferences in the tables of a PostgreSQL database: reading and writing whole domains.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "linux/PreferencesMemory.h"
#include "linux/StoredRuns.h"
#include "linux/postgresql/PostgreSQLConnection.h"
#include "platform/PreferencesStore.h"

namespace pellor {

/// Remembers of each domain what it read or wrote last, with the domain's revision, so that only what has a newer one
/// is read. One thread. Operations throw PostgreSQLError.
class PostgreSQLTables {
 public:
  using Stored = PreferencesMemory::Stored;
  using Snapshot = PreferencesMemory::Snapshot;
  /// By key; absent: to be removed.
  using Changes = std::map<std::string, std::optional<EncodedValue>, std::less<>>;
  enum class Which { all, absent };
  /// Stands for a revision when nothing is known.
  static constexpr std::int64_t Everything = -1;

  /// Everything is to be read again, by another connection. What turns out to be the same stays the same objects.
  void forgetRevisions();
  std::vector<std::string> domains() const;

  std::shared_ptr<const Snapshot> read(PostgreSQLConnection& connection, std::string_view domain);
  /// Writes all changes, or those of keys that have no value, in one transaction, and what others wrote comes with it.
  std::shared_ptr<const Snapshot> write(PostgreSQLConnection& connection, std::string_view domain, Changes changes,
                                        Which which);

  static std::optional<Value> lastGood(PostgreSQLConnection& connection, std::string_view key, std::string_view domain);
  /// Whether there is a value, which has a copy then.
  static bool putAside(PostgreSQLConnection& connection, std::string_view key, std::string_view domain);
  static bool mayWrite(PostgreSQLConnection& connection);

 private:
  struct Known {
    std::int64_t revision = Everything;
    std::shared_ptr<const Snapshot> snapshot;
  };

  Known& knownOf(std::string_view domain);
  static void refresh(PostgreSQLConnection& connection, std::string_view domain, Known& known,
                      const PostgreSQLBatch& begin, const PostgreSQLBatch& end);
  static bool update(Known& known, std::int64_t since, std::int64_t revision, std::span<const PostgreSQLRows> newer);

  std::map<std::string, Known, std::less<>> _known;
};

}  // namespace pellor
