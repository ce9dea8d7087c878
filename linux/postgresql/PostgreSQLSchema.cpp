#include "linux/postgresql/PostgreSQLSchema.h"

namespace pellor {
namespace {

constexpr const char* IsThere = "SELECT count(*) FROM pg_catalog.pg_namespace WHERE nspname = 'pellor'";

PostgreSQLStatement table(const std::string& name, const std::string& columns) {
  return {"CREATE TABLE pellor." + name + " (" + columns + ")"};
}

// Processes that find no schema at once make it one after the other. The number is any that others do not use.
void makeUnlessThere(PostgreSQLConnection& connection) {
  const auto found = connection.run({{"BEGIN"}, {"SELECT pg_catalog.pg_advisory_xact_lock(7310033947201)"}, {IsThere}});
  PostgreSQLBatch batch;
  if (found[2].integer(0, 0) == 0) batch = PostgreSQLSchema::make();
  batch.push_back({"COMMIT"});
  connection.run(batch);
}

}  // namespace

PostgreSQLBatch PostgreSQLSchema::make() {
  const std::string name = R"(text COLLATE "C" NOT NULL)", number = "bigint NOT NULL", bytes = "bytea NOT NULL";
  const std::string value = "domain " + name + ", key " + name + ", value " + bytes;
  const std::string run = "list " + number + ", number " + number + ", value " + bytes;
  const std::string byKey = ", PRIMARY KEY (domain, key)", byNumber = ", PRIMARY KEY (list, number)";
  return {
      {"CREATE SCHEMA pellor"},
      table("version", "version " + number),
      table("domains", "domain " + name + " PRIMARY KEY, revision " + number),
      table("preferences", value + ", revision " + number + ", list bigint, count bigint" + byKey),
      table("last_good", value + byKey),
      table("runs", run + ", revision " + number + byNumber),
      {"CREATE INDEX runs_by_revision ON pellor.runs (list, revision)"},
      table("last_good_runs", run + byNumber),
      table("aside", value + ", put_aside timestamptz NOT NULL DEFAULT pg_catalog.now()"),
      {"INSERT INTO pellor.version VALUES (" + std::to_string(Version) + ")"},
  };
}

void PostgreSQLSchema::ensure(PostgreSQLConnection& connection) {
  if (connection.run({{IsThere}})[0].integer(0, 0) == 0) makeUnlessThere(connection);
  const auto found = connection.run({{"SELECT coalesce(max(version), 0) FROM pellor.version"}});
  requireVersion(found[0].integer(0, 0));
}

void PostgreSQLSchema::requireVersion(std::int64_t version) {
  if (version == Version) return;
  using Problem = PostgreSQLError::Problem;
  const Problem later = {"a later version of this program made the store (" + std::to_string(version) + ")",
                         "update the program on this machine"};
  const Problem strange = {"the schema pellor is none of this program's", "connect to another database"};
  throw PostgreSQLError(PostgreSQLError::Kind::refused, version > Version ? later : strange);
}

}  // namespace pellor
