// Reads what is newer in a domain than what is known of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "pellor/linux/postgresql/PostgreSQLConnection.h"
#include "pellor/linux/postgresql/PostgreSQLDomain.h"
#include "pellor/linux/preferences/StoredChunks.h"

namespace pellor {

/// Makes a domain of its known values and the newer ones.
class PostgreSQLDomainReader {
 public:
  using SnapshotValue = PostgreSQLDomain::SnapshotValue;
  using Snapshot = PostgreSQLDomain::Snapshot;

  /// How many `statements` there are.
  static constexpr std::size_t StatementCount = 2;
  /// Those that give what is newer than a revision. Part of a transaction that gives the domain's revision too.
  static PostgreSQLBatch statements(std::string_view domain, std::int64_t since);

  /// `newer` is what the statements gave, `previous` what was known at the revision `since`, or null. All of it has to
  /// outlive the reader.
  PostgreSQLDomainReader(std::uint64_t store, std::int64_t since, std::int64_t revision,
                         std::span<const PostgreSQLRows> newer, const Snapshot* previous);

  /// Null when the known values do not go with the stored ones, so that everything has to be read. Values that turn out
  /// to be equal stay the objects that they were.
  std::shared_ptr<const Snapshot> snapshot() const;

 private:
  bool isNewer(int row) const;
  PreferenceVersion versionIn(int row) const;
  std::optional<SnapshotValue> valueIn(int row, const SnapshotValue* previous) const;
  std::optional<SnapshotValue> listIn(int row, const SnapshotValue* previous) const;
  Chunks chunksWith(const std::vector<int>* newRows, const StoredChunks& rows, const Chunks& known,
                    bool isFollowed) const;
  Data bytesOf(const std::vector<int>* rows) const;

  const std::uint64_t _store;
  const std::int64_t _since;
  const std::int64_t _revision;
  const PostgreSQLRows& _values;
  const PostgreSQLRows& _chunks;
  const Snapshot* const _previous;
  std::map<std::int64_t, std::vector<int>> _rowsOfLists;
};

}  // namespace pellor
