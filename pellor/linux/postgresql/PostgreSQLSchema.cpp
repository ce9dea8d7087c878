#include "pellor/linux/postgresql/PostgreSQLSchema.h"

#include <array>

namespace pellor {
namespace {

using Problem = PostgreSQLError::Problem;

// Each statement that follows has to see what those before it waited for.
constexpr const char* Begin = "BEGIN ISOLATION LEVEL READ COMMITTED READ WRITE";
// Processes that find no schema at once, or an earlier one, work on it one after the other. The number is any that
// others do not use.
constexpr const char* Turn = "SELECT pg_catalog.pg_advisory_xact_lock(7310033947201)";
constexpr const char* IsThere = "SELECT count(*) FROM pg_catalog.pg_namespace WHERE nspname = 'pellor'";
constexpr const char* VersionThere = "SELECT coalesce(max(version), 0) FROM pellor.version";
constexpr const char* OwnsTables =
    "SELECT coalesce(bool_and(pg_has_role(relowner, 'USAGE')), false) FROM pg_catalog.pg_class"
    " WHERE relnamespace = 'pellor'::regnamespace AND relkind = 'r'";

// By the server: a text that an administrator runs in several databases makes several stores. Never 0.
const std::string RandomNumber =
    "('x' || substr(md5(random()::text || random() || clock_timestamp() || txid_current()), 1, 16))::bit(64)::bigint"
    " | 1";
// Another one wherever the table is made anew, be it from a copy.
const std::string Origin =
    "(SELECT system_identifier FROM pg_catalog.pg_control_system()) || '/' || 'pellor.version'::regclass::oid";

PostgreSQLStatement table(const std::string& name, const std::string& columns) {
  return {"CREATE TABLE pellor." + name + " (" + columns + ")"};
}

PostgreSQLBatch firstVersion() {
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
      {"INSERT INTO pellor.version VALUES (1)"},
  };
}

// No new table: roles keep all the rights that they need.
PostgreSQLBatch versions() {
  return {
      {"ALTER TABLE pellor.preferences ADD COLUMN writer bigint NOT NULL DEFAULT 0,"
       " ADD COLUMN write_number bigint NOT NULL DEFAULT 0"},
      // What is written without them fails.
      {"ALTER TABLE pellor.preferences ALTER COLUMN writer DROP DEFAULT, ALTER COLUMN write_number DROP DEFAULT"},
      {"ALTER TABLE pellor.version ADD COLUMN store bigint, ADD COLUMN origin text"},
      {"UPDATE pellor.version SET version = 2, store = " + RandomNumber + ", origin = " + Origin},
      {"ALTER TABLE pellor.version ALTER COLUMN store SET NOT NULL"},
  };
}

/// Each brings the schema to its version from the one before.
const std::array Steps = {firstVersion, versions};
static_assert(Steps.size() == PostgreSQLSchema::Version);

PostgreSQLBatch stepsFrom(std::int64_t version) {
  PostgreSQLBatch batch;
  for (auto number = static_cast<std::size_t>(version); number < Steps.size(); ++number) {
    for (PostgreSQLStatement& statement : Steps[number]()) batch.push_back(std::move(statement));
  }
  return batch;
}

void makeUnlessThere(PostgreSQLConnection& connection) {
  const auto found = connection.run({{Begin}, {Turn}, {IsThere}});
  PostgreSQLBatch batch;
  if (found[2].integer(0, 0) == 0) batch = PostgreSQLSchema::make();
  batch.push_back({"COMMIT"});
  connection.run(batch);
}

bool isEarlier(std::int64_t version) { return version > 0 && version < PostgreSQLSchema::Version; }

// A program of an earlier version that is connected already takes hold of the domains before it asks for the version,
// and holds both until it has written. So either its writing ends before the tables change, or it finds the new version
// and refuses.
void bringUpToDate(PostgreSQLConnection& connection) {
  if (!connection.run({{OwnsTables}})[0].boolean(0, 0)) {
    throw PostgreSQLError(PostgreSQLError::Kind::refused,
                          {"an earlier version of this program made the store, which this role may not change",
                           "start this version once as the owner of the tables"});
  }
  const auto found =
      connection.run({{Begin}, {Turn}, {"LOCK TABLE pellor.domains IN ACCESS EXCLUSIVE MODE"}, {VersionThere}});
  const std::int64_t version = found[3].integer(0, 0);
  PostgreSQLBatch batch;
  if (isEarlier(version)) batch = stepsFrom(version);
  batch.push_back({"COMMIT"});
  connection.run(batch);
}

void renumberCopy(PostgreSQLConnection& connection) {
  const std::string isCopy = " origin IS DISTINCT FROM " + Origin;
  if (!connection.run({{"SELECT bool_or(" + isCopy + ") FROM pellor.version"}})[0].boolean(0, 0)) return;
  try {
    connection.run(
        {{"UPDATE pellor.version SET store = " + RandomNumber + ", origin = " + Origin + " WHERE" + isCopy}});
  } catch (const PostgreSQLError& error) {
    // Another role, which may write, will do it.
    if (error.kind() == PostgreSQLError::Kind::away) throw;
  }
}

}  // namespace

PostgreSQLBatch PostgreSQLSchema::make() { return stepsFrom(0); }

void PostgreSQLSchema::ensure(PostgreSQLConnection& connection) {
  if (connection.run({{IsThere}})[0].integer(0, 0) == 0) makeUnlessThere(connection);
  std::int64_t version = connection.run({{VersionThere}})[0].integer(0, 0);
  if (isEarlier(version)) {
    bringUpToDate(connection);
    version = connection.run({{VersionThere}})[0].integer(0, 0);
  }
  requireVersion(version);
  renumberCopy(connection);
}

void PostgreSQLSchema::requireVersion(std::int64_t version) {
  if (version == Version) return;
  const Problem later = {"a later version of this program made the store (" + std::to_string(version) + ")",
                         "update the program on this machine"};
  const Problem strange = {"the schema pellor is none of this program's", "connect to another database"};
  throw PostgreSQLError(PostgreSQLError::Kind::refused, version > Version ? later : strange);
}

}  // namespace pellor
