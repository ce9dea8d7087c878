#include "pellor/linux/preferences/internal/CheckedRows.h"

#include <string>
#include <tuple>
#include <vector>

#include "pellor/linux/preferences/internal/ChunkRowID.h"

namespace pellor {
namespace {

std::int64_t signedOf(std::uint64_t number) { return static_cast<std::int64_t>(number); }

RowChecksum& add(RowChecksum& checksum, const PreferenceVersion& version) {
  return checksum.add(signedOf(version.count)).add(signedOf(version.write.writer)).add(signedOf(version.write.number));
}

void sealValues(const SQLiteDatabase& database, CheckedTable table, const std::string& name) {
  std::vector<std::tuple<std::string, std::string, std::int64_t>> checksums;
  SQLiteStatement row =
      database.prepare("SELECT domain, key, value, list, count, revision, writer, write FROM " + name);
  while (row.step()) {
    const StoredChunks chunks{row.integer(3), row.integer(4)};
    const std::string domain = row.text(0), key = row.text(1);
    checksums.emplace_back(domain, key,
                           CheckedRows::checksumOfValue(table, domain, key, row.bytes(2), chunks, versionIn(row, 5)));
  }
  for (const auto& [domain, key, checksum] : checksums) {
    database.prepare("UPDATE " + name + " SET checksum = ?3 WHERE domain = ?1 AND key = ?2")
        .bind(1, domain)
        .bind(2, key)
        .bind(3, checksum)
        .run();
  }
}

void sealChunks(const SQLiteDatabase& database, CheckedTable table, const std::string& name, const std::string& list) {
  std::vector<std::pair<std::int64_t, std::int64_t>> checksums;
  SQLiteStatement row = database.prepare("SELECT id, " + list + ", value, revision, writer, write FROM " + name);
  while (row.step()) {
    const std::int64_t id = row.integer(0);
    checksums.emplace_back(id,
                           CheckedRows::checksumOfChunk(table, id, row.integer(1), row.bytes(2), versionIn(row, 3)));
  }
  for (const auto& [id, checksum] : checksums) {
    database.prepare("UPDATE " + name + " SET checksum = ?2 WHERE id = ?1").bind(1, id).bind(2, checksum).run();
  }
}

}  // namespace

PreferenceVersion versionIn(const SQLiteStatement& row, int column) {
  const auto number = [&](int offset) { return static_cast<std::uint64_t>(row.integer(column + offset)); };
  return {0, number(0), {number(1), number(2)}};
}

std::int64_t CheckedRows::checksumOfStore(std::int64_t number, std::string_view file, std::int64_t highestRemoved) {
  return RowChecksum(CheckedTable::store).add(number).add(file).add(highestRemoved).value();
}

std::int64_t CheckedRows::checksumOfValue(CheckedTable table, std::string_view domain, std::string_view key,
                                          std::span<const std::uint8_t> value, const StoredChunks& chunks,
                                          const PreferenceVersion& version) {
  RowChecksum checksum(table);
  checksum.add(domain).add(key).add(value).add(chunks.list).add(chunks.count);
  return add(checksum, version).value();
}

std::int64_t CheckedRows::checksumOfChunk(CheckedTable table, std::int64_t id, std::int64_t list,
                                          std::span<const std::uint8_t> value, const PreferenceVersion& version) {
  RowChecksum checksum(table);
  checksum.add(id).add(list).add(value);
  return add(checksum, version).value();
}

void CheckedRows::seal(const SQLiteDatabase& database) {
  sealValues(database, CheckedTable::values, "stored_values");
  sealValues(database, CheckedTable::goodValues, "good_values");
  sealChunks(database, CheckedTable::chunks, "stored_runs", "list");
  sealChunks(database, CheckedTable::goodChunks, "good_runs", "id >> " + std::to_string(ChunkRowID::NumberBits));
}

}  // namespace pellor
