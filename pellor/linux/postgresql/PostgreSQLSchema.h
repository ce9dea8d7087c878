// The tables of a store in PostgreSQL.
#pragma once

#include <cstdint>
#include <string>

#include "pellor/linux/postgresql/PostgreSQLConnection.h"

namespace pellor {

/// Values by domain and key with their last good copies, the runs of long arrays in rows of their own, and the values
/// that were put aside. A domain has a revision, which each writing that changes something raises; rows have that of
/// their last change. That of a value's last writing counts its versions; its writer and the number of its write stand
/// beside it. A writer holds the domain's row.
///
/// The store has a random number. One that was restored from a copy, into tables that were made anew, gets another
/// number, since its versions go on counting apart from those of the store that it was copied from.
class PostgreSQLSchema {
 public:
  static constexpr std::int64_t Version = 2;

  /// Makes it where it is missing, and brings one of an earlier version up to date, where the role may. Throws
  /// PostgreSQLError when it is not ours, is of a later version, or may not be made, brought up to date or read; then
  /// nothing has changed.
  static void ensure(PostgreSQLConnection& connection);
  /// Throws unless it is the version of a schema that this program knows.
  static void requireVersion(std::int64_t version);
  static PostgreSQLBatch make();
};

}  // namespace pellor
