// Collects the statements that change a domain.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/linux/postgresql/PostgreSQLConnection.h"
#include "pellor/linux/postgresql/PostgreSQLDomain.h"
#include "pellor/linux/postgresql/PostgreSQLWriting.h"
#include "pellor/linux/preferences/StoredChunks.h"

namespace pellor {

/// For one transaction, which holds the domain's row.
class PostgreSQLDomainWriter {
 public:
  using SnapshotValue = PostgreSQLDomain::SnapshotValue;

  /// `stored` is what the transaction found, `domain` its name; both have to outlive the writer.
  PostgreSQLDomainWriter(std::string_view domain, const PostgreSQLDomain& stored, const PostgreSQLWriting& writing);

  /// Of a long array the rows are written of which the bytes differ. Its chunks are those that were given, also where
  /// these take the place of equal ones.
  void put(const std::string& key, EncodedValue value);
  void remove(const std::string& key);

  /// Takes the statements, with those that make the change known; none when nothing changes. Valid as long as the
  /// writer.
  PostgreSQLBatch takeStatements();
  /// What is stored after them.
  PostgreSQLDomain changed() const { return {_stored.store, _revision, _values}; }

 private:
  void add(const char* text, std::vector<PostgreSQLParameter> parameters);
  void removeChunks(std::string_view key);
  void removeAll(std::string_view key);
  SnapshotValue putValue(std::string_view key, EncodedValue value, const SnapshotValue* stored);
  SnapshotValue putList(std::string_view key, EncodedValue value, const SnapshotValue* stored);
  void putChunk(std::int64_t list, std::size_t number, const ArrayChunk& chunk);
  void putHead(std::string_view key, const StoredChunks& rows, std::size_t formerRows);

  const std::string_view _domain;
  const PostgreSQLDomain& _stored;
  const PreferenceWriteID _id;
  const std::int64_t _revision;
  const std::shared_ptr<PostgreSQLDomain::Snapshot> _values;
  PostgreSQLBatch _batch;
  bool _writesList = false;
};

}  // namespace pellor
