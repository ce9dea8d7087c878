// The preferences in the tables of a PostgreSQL database: reading and writing whole domains.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/linux/postgresql/PostgreSQLConnection.h"
#include "pellor/linux/postgresql/PostgreSQLDomain.h"
#include "pellor/linux/postgresql/PostgreSQLDomainWriter.h"
#include "pellor/runtime/Value.h"

namespace pellor {

/// Remembers of each domain what it read or wrote last, with the domain's revision, so that only what has a newer one
/// is read. One thread. Operations throw PostgreSQLError.
class PostgreSQLTables {
 public:
  /// Everything is to be read again, by another connection. Values that turn out to be equal stay the objects that they
  /// were.
  void forgetRevisions();
  /// Those that are known.
  std::vector<std::string> domains() const;
  /// All that the database has.
  static std::vector<std::string> domainsIn(PostgreSQLConnection& connection);

  PostgreSQLDomain read(PostgreSQLConnection& connection, std::string_view domain);

  enum class Outcome { written, overtaken, notCommitted };
  /// Writes all of it in one transaction, which holds up other writers of the domain; what they wrote before comes with
  /// it. `domain` then gives what is stored. Changes nothing when a key has another version than it is made from, and
  /// when it may not commit.
  Outcome write(PostgreSQLConnection& connection, std::string_view domain, PostgreSQLWriting writing);
  /// As it was read or written last.
  const PostgreSQLDomain& known(std::string_view domain) { return knownOf(domain); }

  static std::optional<Value> lastGood(PostgreSQLConnection& connection, std::string_view key, std::string_view domain);
  /// Whether there is a value, which has a copy then.
  static bool putAside(PostgreSQLConnection& connection, std::string_view key, std::string_view domain);
  static bool mayWrite(PostgreSQLConnection& connection);

 private:
  PostgreSQLDomain& knownOf(std::string_view domain);
  static void refresh(PostgreSQLConnection& connection, std::string_view domain, PostgreSQLDomain& known,
                      const PostgreSQLBatch& begin, const PostgreSQLBatch& end);
  static bool update(PostgreSQLDomain& known, std::int64_t since, const PostgreSQLRows& place,
                     std::span<const PostgreSQLRows> newer);

  std::map<std::string, PostgreSQLDomain, std::less<>> _known;
};

}  // namespace pellor
