#include "pellor/linux/postgresql/PostgreSQLTables.h"

#include <algorithm>
#include <utility>

#include "pellor/linux/postgresql/PostgreSQLDomainReader.h"
#include "pellor/linux/postgresql/PostgreSQLSchema.h"
#include "pellor/linux/preferences/internal/EncodedChunk.h"
#include "pellor/runtime/CBOR.h"

namespace pellor {
namespace {

constexpr const char* BeginReading = "BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY";
// What follows a lock has to see what its last holder committed.
constexpr const char* BeginWriting = "BEGIN ISOLATION LEVEL READ COMMITTED READ WRITE";
constexpr const char* Place =
    "SELECT (SELECT coalesce(max(version), 0) FROM pellor.version), (SELECT max(store) FROM pellor.version),"
    " coalesce((SELECT revision FROM pellor.domains WHERE domain = $1), 0)";
// It takes hold of the table before the version is asked for: a later version of this program, which brings the schema
// up to date, waits for it, or it finds that version's.
constexpr const char* EnsurePlace = "INSERT INTO pellor.domains VALUES ($1, 0) ON CONFLICT DO NOTHING";
constexpr const char* LockedPlace =
    "SELECT (SELECT coalesce(max(version), 0) FROM pellor.version), (SELECT max(store) FROM pellor.version), revision"
    " FROM pellor.domains WHERE domain = $1 FOR UPDATE";
constexpr const char* LastGoodChunks =
    "SELECT p.count, g.value FROM pellor.preferences p JOIN pellor.last_good_runs g ON g.list = p.list"
    " WHERE p.domain = $1 AND p.key = $2 ORDER BY g.number";
constexpr const char* LastGoodValue = "SELECT value FROM pellor.last_good WHERE domain = $1 AND key = $2";
constexpr const char* Find = "SELECT FROM pellor.preferences WHERE domain = $1 AND key = $2";
constexpr const char* CopyAside =
    "INSERT INTO pellor.aside (domain, key, value) SELECT domain, key, bytes FROM"
    " (SELECT domain, key, CASE WHEN list IS NULL THEN value ELSE (SELECT coalesce(string_agg(r.value, '' ORDER BY"
    " r.number), '') FROM pellor.runs r WHERE r.list = p.list) END AS bytes"
    " FROM pellor.preferences p WHERE domain = $1 AND key = $2) damaged"
    " WHERE NOT EXISTS (SELECT FROM pellor.aside a WHERE a.domain = $1 AND a.key = $2 AND a.value = bytes)";
constexpr const char* MayWrite =
    "SELECT current_setting('transaction_read_only') = 'off' AND bool_and(has_table_privilege(name, 'INSERT')"
    " AND has_table_privilege(name, 'UPDATE') AND has_table_privilege(name, 'DELETE')) FROM unnest(ARRAY["
    "'pellor.domains', 'pellor.preferences', 'pellor.last_good', 'pellor.runs', 'pellor.last_good_runs']) AS name";

bool isOvertaken(const PostgreSQLDomain& stored, const PostgreSQLWriting& writing) {
  return std::ranges::any_of(writing.madeFrom,
                             [&](const auto& made) { return stored.preference(made.first).version != made.second; });
}

void collect(PostgreSQLDomainWriter& writer, const PostgreSQLDomain& stored, PostgreSQLWriting& writing) {
  for (auto& [key, value] : writing.changes) {
    if (writing.which == PostgreSQLWriting::Which::absent && stored.values->contains(key)) continue;
    if (value) {
      writer.put(key, *std::move(value));
    } else {
      writer.remove(key);
    }
  }
}

}  // namespace

void PostgreSQLTables::forgetRevisions() {
  for (auto& [domain, known] : _known) known.revision = PostgreSQLDomain::Everything;
}

std::vector<std::string> PostgreSQLTables::domains() const {
  std::vector<std::string> domains;
  for (const auto& [domain, known] : _known) domains.push_back(domain);
  return domains;
}

std::vector<std::string> PostgreSQLTables::domainsIn(PostgreSQLConnection& connection) {
  const auto rows = connection.run({{"SELECT domain FROM pellor.domains ORDER BY domain"}});
  std::vector<std::string> domains;
  for (int row = 0; row < rows[0].count(); ++row) domains.emplace_back(rows[0].text(row, 0));
  return domains;
}

PostgreSQLDomain& PostgreSQLTables::knownOf(std::string_view domain) {
  return _known.try_emplace(std::string(domain)).first->second;
}

/// `begin` ends with the statement that gives the place.
void PostgreSQLTables::refresh(PostgreSQLConnection& connection, std::string_view domain, PostgreSQLDomain& known,
                               const PostgreSQLBatch& begin, const PostgreSQLBatch& end) {
  for (const std::int64_t since : {known.revision, PostgreSQLDomain::Everything}) {
    PostgreSQLBatch batch = begin;
    for (const PostgreSQLBatch& part : {PostgreSQLDomainReader::statements(domain, since), end})
      batch.insert(batch.end(), part.begin(), part.end());
    const auto rows = connection.run(batch);
    const PostgreSQLRows& place = rows[begin.size() - 1];
    PostgreSQLSchema::requireVersion(place.integer(0, 0));
    const auto newer = std::span(rows).subspan(begin.size(), PostgreSQLDomainReader::StatementCount);
    if (update(known, since, place, newer)) return;
    connection.rollBack();
  }
  throw PostgreSQLError(PostgreSQLError::Kind::refused,
                        {"the tables hold what was never written", "let the administrator restore the schema pellor"});
}

/// False when everything has to be read.
bool PostgreSQLTables::update(PostgreSQLDomain& known, std::int64_t since, const PostgreSQLRows& place,
                              std::span<const PostgreSQLRows> newer) {
  const auto store = static_cast<std::uint64_t>(place.integer(0, 1));
  const std::int64_t revision = place.integer(0, 2);
  const bool isSameStore = since == PostgreSQLDomain::Everything || store == known.store;
  // Somebody put another store or an earlier state in place.
  if (!isSameStore || revision < since) return false;
  if (since != PostgreSQLDomain::Everything && revision == since) return true;
  auto values = PostgreSQLDomainReader(store, since, revision, newer, known.values.get()).snapshot();
  if (!values) return false;
  known = {store, revision, std::move(values)};
  return true;
}

PostgreSQLDomain PostgreSQLTables::read(PostgreSQLConnection& connection, std::string_view domain) {
  PostgreSQLDomain& known = knownOf(domain);
  refresh(connection, domain, known, {{BeginReading}, {Place, {domain}}}, {{"COMMIT"}});
  return known;
}

PostgreSQLTables::Outcome PostgreSQLTables::write(PostgreSQLConnection& connection, std::string_view domain,
                                                  PostgreSQLWriting writing) {
  PostgreSQLDomain& known = knownOf(domain);
  refresh(connection, domain, known, {{BeginWriting}, {EnsurePlace, {domain}}, {LockedPlace, {domain}}}, {});
  if (isOvertaken(known, writing)) {
    connection.rollBack();
    return Outcome::overtaken;
  }
  PostgreSQLDomainWriter writer(domain, known, writing);
  collect(writer, known, writing);
  PostgreSQLBatch batch = writer.takeStatements();
  const bool commits = !batch.empty() && writing.mayCommit();
  if (!commits) {
    connection.rollBack();
    return batch.empty() ? Outcome::written : Outcome::notCommitted;
  }
  batch.push_back({"COMMIT"});
  connection.run(batch);
  known = writer.changed();
  return Outcome::written;
}

std::optional<Value> PostgreSQLTables::lastGood(PostgreSQLConnection& connection, std::string_view key,
                                                std::string_view domain) {
  const auto rows = connection.run(
      {{BeginReading}, {Place, {domain}}, {LastGoodChunks, {domain, key}}, {LastGoodValue, {domain, key}}, {"COMMIT"}});
  PostgreSQLSchema::requireVersion(rows[1].integer(0, 0));
  const PostgreSQLRows &list = rows[2], &value = rows[3];
  if (list.count() == 0) return value.count() > 0 ? decodeCBOR(value.bytes(0, 0)) : std::nullopt;
  Chunks chunks;
  for (int row = 0; row < list.count(); ++row) chunks.push_back(EncodedChunk::decode(list.bytes(row, 1)));
  if (!areWhole(chunks, {0, list.integer(0, 0), 0})) return std::nullopt;
  return LongArray(std::move(chunks));
}

bool PostgreSQLTables::putAside(PostgreSQLConnection& connection, std::string_view key, std::string_view domain) {
  const auto rows = connection.run({{BeginWriting}, {CopyAside, {domain, key}}, {Find, {domain, key}}, {"COMMIT"}});
  return rows[2].count() > 0;
}

bool PostgreSQLTables::mayWrite(PostgreSQLConnection& connection) {
  return connection.run({{MayWrite}})[0].boolean(0, 0);
}

}  // namespace pellor
