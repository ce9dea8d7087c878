// How the preferences file is laid out, by this version and by earlier ones.
#pragma once

#include <cstdint>
#include <string_view>

#include "pellor/linux/sqlite/SQLiteDatabase.h"

namespace pellor {

/// The tables of one layout. Those of the present one have other names than those of earlier ones, so that a program of
/// an earlier version that still runs fails at its next write, in place of changing values without their versions.
struct PreferencesLayout {
  std::int64_t number;
  const char* values;    ///< domain, key and value, or where its chunks are, and which write made it
  const char* chunks;    ///< of long arrays
  const char* lastGood;  ///< values that were written whole
  const char* lastGoodChunks;
  bool hasChunks;
  bool hasVersions;  ///< and checksums

  static const PreferencesLayout& present();
  /// By the number that is stored in the file. Throws SQLiteError for one that is no layout of this program
  /// (SQLITE_NOTADB) or a later one's (SQLITE_MISMATCH).
  static const PreferencesLayout& withNumber(std::int64_t number);

  /// Lays out an empty file, or a file of layout `found`, as the present one. Then the store has to be named. In a
  /// write transaction.
  static void make(const SQLiteDatabase& database);
  static void migrate(const SQLiteDatabase& database, const PreferencesLayout& found);
  /// Gives the store a new number, for as long as it is that file; counts of removed keys begin anew. In a write
  /// transaction.
  static void nameStore(const SQLiteDatabase& database, std::string_view file);
};

}  // namespace pellor
