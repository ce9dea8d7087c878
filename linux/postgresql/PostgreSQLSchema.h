// The tables of a store in PostgreSQL.
#pragma once

#include <cstdint>
#include <string>

#include "linux/postgresql/PostgreSQLConnection.h"

namespace pellor {

/// Values by domain and key with their last good copies, the runs of long arrays in rows of their own, and the values
/// that were put aside. A domain has a revision, which each writing that changes something raises; rows have that of
/// their last change. Whoever writes a domain has its row locked.
class PostgreSQLSchema {
 public:
  static constexpr std::int64_t Version = 1;

  /// Makes it where it is missing and the role may. Throws PostgreSQLError when it is not ours, is of a later version,
  /// or may not be made or read; then nothing has changed.
  static void ensure(PostgreSQLConnection& connection);
  /// Throws unless it is the version of a schema that this program knows.
  static void requireVersion(std::int64_t version);
  static PostgreSQLBatch make();
};

}  // namespace pellor
