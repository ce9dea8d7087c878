// The checksums of the preferences file's rows.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "pellor/linux/preferences/StoredChunks.h"
#include "pellor/linux/sqlite/RowChecksum.h"
#include "pellor/linux/sqlite/SQLiteDatabase.h"
#include "pellor/platform/PreferencesStore.h"

namespace pellor {

/// Each covers all that its row says, what it is called included: a row that came to another key, place or version is
/// as damaged as one whose value changed.
struct CheckedRows {
  static std::int64_t checksumOfStore(std::int64_t number, std::string_view file, std::int64_t highestRemoved);
  /// Of a row in the table of values or of their good copies. Where the chunks are counts in place of their revision,
  /// which is that of the version.
  static std::int64_t checksumOfValue(CheckedTable table, std::string_view domain, std::string_view key,
                                      std::span<const std::uint8_t> value, const StoredChunks& chunks,
                                      const PreferenceVersion& version);
  /// Of a row in the table of chunks or of their good copies.
  static std::int64_t checksumOfChunk(CheckedTable table, std::int64_t id, std::int64_t list,
                                      std::span<const std::uint8_t> value, const PreferenceVersion& version);

  /// Gives the rows of all values and chunks the checksums of their present content. In a write transaction.
  static void seal(const SQLiteDatabase& database);
};

/// Count, writer and number of the write in that column of a row and the next two. The store is not set.
PreferenceVersion versionIn(const SQLiteStatement& row, int column);

}  // namespace pellor
