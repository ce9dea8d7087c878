#include "linux/postgresql/PostgreSQLTables.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>

#include "linux/CBORValue.h"
#include "linux/EncodedRun.h"
#include "linux/PrivateFiles.h"
#include "linux/postgresql/PostgreSQLLink.h"
#include "linux/postgresql/PostgreSQLSchema.h"

namespace pellor {
namespace {

using Stored = PostgreSQLTables::Stored;
using Snapshot = PostgreSQLTables::Snapshot;

// As a revision: below that of any row.
constexpr std::int64_t Everything = PostgreSQLTables::Everything;

constexpr const char* BeginReading = "BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY";
// What follows a lock has to see what its last holder committed.
constexpr const char* BeginWriting = "BEGIN ISOLATION LEVEL READ COMMITTED READ WRITE";
constexpr const char* Place =
    "SELECT (SELECT coalesce(max(version), 0) FROM pellor.version),"
    " coalesce((SELECT revision FROM pellor.domains WHERE domain = $1), 0)";
constexpr const char* LockedPlace =
    "SELECT (SELECT coalesce(max(version), 0) FROM pellor.version), revision"
    " FROM pellor.domains WHERE domain = $1 FOR UPDATE";
constexpr const char* EnsurePlace = "INSERT INTO pellor.domains VALUES ($1, 0) ON CONFLICT DO NOTHING";
constexpr const char* NewerValues =
    "SELECT key, revision, list, count, CASE WHEN revision > $2 THEN value END"
    " FROM pellor.preferences WHERE domain = $1";
constexpr const char* NewerRuns =
    "SELECT r.list, r.number, r.value FROM pellor.preferences p JOIN pellor.runs r ON r.list = p.list"
    " WHERE p.domain = $1 AND r.revision > $2";

PostgreSQLBatch newer(std::string_view domain, std::int64_t since) {
  return {{NewerValues, {domain, since}}, {NewerRuns, {domain, since}}};
}

template <class Values, class Key>
auto* find(const Values& values, const Key& key) {
  const auto found = values.find(key);
  return found == values.end() ? nullptr : &found->second;
}

/// Makes a domain of what was known of it and what is newer.
class DomainReader {
 public:
  DomainReader(std::int64_t since, std::int64_t revision, std::span<const PostgreSQLRows> newer,
               const Snapshot* previous)
      : _since(since), _revision(revision), _values(newer[0]), _runs(newer[1]), _previous(previous) {
    for (int row = 0; row < _runs.count(); ++row) _rowsOfLists[_runs.integer(row, 0)].push_back(row);
    for (auto& [list, rows] : _rowsOfLists)
      std::ranges::sort(rows, {}, [this](int row) { return _runs.integer(row, 1); });
  }

  /// Null when what is known does not go with what is stored, so that everything has to be read.
  std::shared_ptr<const Snapshot> snapshot() const {
    auto snapshot = std::make_shared<Snapshot>();
    for (int row = 0; row < _values.count(); ++row) {
      const std::string key(_values.text(row, 0));
      const Stored* previous = _previous ? find(*_previous, key) : nullptr;
      auto stored = _values.isNull(row, 2) ? valueIn(row, previous) : listIn(row, previous);
      if (!stored) return nullptr;
      snapshot->emplace(key, *std::move(stored));
    }
    return snapshot;
  }

 private:
  bool isNewer(int row) const { return _values.integer(row, 1) > _since; }

  std::optional<Stored> valueIn(int row, const Stored* previous) const {
    const bool wasValue = previous && previous->bytes;
    if (!isNewer(row)) return wasValue ? std::optional(*previous) : std::nullopt;
    const auto stored = _values.bytes(row, 4);
    if (wasValue && std::ranges::equal(*previous->bytes, stored)) return *previous;
    const auto bytes = std::make_shared<const Data>(stored.begin(), stored.end());
    return Stored{decodeCBOR(*bytes).value_or(Value(*bytes)), bytes, nullptr};
  }

  std::optional<Stored> listIn(int row, const Stored* previous) const {
    const StoredRuns rows{_values.integer(row, 2), _values.integer(row, 3), _values.integer(row, 1)};
    const auto known = previous ? previous->list : nullptr;
    const bool isFollowed = _since != Everything && known && known->rows.list == rows.list;
    if (!isFollowed && !isNewer(row)) return std::nullopt;
    const std::vector<int>* newRows = find(_rowsOfLists, rows.list);
    if (isFollowed && !newRows && known->rows.count == rows.count) return *previous;
    auto list = listOf(runsWith(newRows, rows, runsOf(known.get()), isFollowed), rows, _revision);
    if (list) return Stored{list->value, nullptr, list};
    if (_since != Everything) return std::nullopt;
    return Stored{Value(bytesOf(newRows)), nullptr, nullptr};
  }

  Runs runsWith(const std::vector<int>* newRows, const StoredRuns& rows, const Runs& known, bool isFollowed) const {
    Runs runs = isFollowed ? known : Runs();
    // No more of them than there can be, whatever the count says.
    if (rows.count < 1 || runCount(rows) > runs.size() + (newRows ? newRows->size() : 0)) return {};
    runs.resize(runCount(rows));
    for (const int row : newRows ? *newRows : std::vector<int>()) {
      const auto number = static_cast<std::size_t>(_runs.integer(row, 1));
      const auto bytes = _runs.bytes(row, 2);
      const bool isKnown = number < known.size() && holds(*known[number], bytes);
      if (number < runs.size()) runs[number] = isKnown ? known[number] : EncodedRun::decode(bytes);
    }
    return runs;
  }

  Data bytesOf(const std::vector<int>* rows) const {
    Data all;
    for (const int row : rows ? *rows : std::vector<int>()) {
      const auto bytes = _runs.bytes(row, 2);
      all.insert(all.end(), bytes.begin(), bytes.end());
    }
    return all;
  }

  const std::int64_t _since;
  const std::int64_t _revision;
  const PostgreSQLRows& _values;
  const PostgreSQLRows& _runs;
  const Snapshot* const _previous;
  std::map<std::int64_t, std::vector<int>> _rowsOfLists;
};

constexpr std::array<const char*, 2> RemoveRuns = {
    "DELETE FROM pellor.last_good_runs WHERE list ="
    " (SELECT list FROM pellor.preferences WHERE domain = $1 AND key = $2)",
    "DELETE FROM pellor.runs WHERE list = (SELECT list FROM pellor.preferences WHERE domain = $1 AND key = $2)"};
constexpr std::array<const char*, 2> RemoveValue = {"DELETE FROM pellor.preferences WHERE domain = $1 AND key = $2",
                                                    "DELETE FROM pellor.last_good WHERE domain = $1 AND key = $2"};
constexpr std::array<const char*, 2> RemoveLastRows = {
    "DELETE FROM pellor.last_good_runs WHERE list = $1 AND number >= $2",
    "DELETE FROM pellor.runs WHERE list = $1 AND number >= $2"};
constexpr const char* PutValue =
    "INSERT INTO pellor.preferences (domain, key, value, revision) VALUES ($1, $2, $3, $4)"
    " ON CONFLICT (domain, key) DO UPDATE SET value = excluded.value, revision = excluded.revision, list = NULL,"
    " count = NULL";
constexpr const char* PutLastGood =
    "INSERT INTO pellor.last_good (domain, key, value) VALUES ($1, $2, $3)"
    " ON CONFLICT (domain, key) DO UPDATE SET value = excluded.value";
constexpr const char* PutList =
    "INSERT INTO pellor.preferences (domain, key, value, revision, list, count) VALUES ($1, $2, '', $3, $4, $5)"
    " ON CONFLICT (domain, key) DO UPDATE SET value = excluded.value, revision = excluded.revision,"
    " list = excluded.list, count = excluded.count";
constexpr const char* PutRun =
    "INSERT INTO pellor.runs (list, number, value, revision) VALUES ($1, $2, $3, $4)"
    " ON CONFLICT (list, number) DO UPDATE SET value = excluded.value, revision = excluded.revision";
constexpr const char* PutLastGoodRun =
    "INSERT INTO pellor.last_good_runs (list, number, value) VALUES ($1, $2, $3)"
    " ON CONFLICT (list, number) DO UPDATE SET value = excluded.value";

constexpr const char* LastGoodRuns =
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

/// Collects the statements that make a domain what it is to be.
class DomainWriter {
 public:
  DomainWriter(std::string_view domain, std::int64_t revision) : _domain(domain), _revision(revision) {}

  Stored put(std::string_view key, EncodedValue value, const Stored* stored) {
    return value.list ? putList(key, std::move(value), stored) : putValue(key, std::move(value), stored);
  }

  void remove(std::string_view key) {
    for (const char* text : RemoveRuns) add(text, {_domain, key});
    for (const char* text : RemoveValue) add(text, {_domain, key});
  }

  /// The statements, with those that make the change known; none when nothing changes. Valid as long as what was put.
  PostgreSQLBatch batch() && {
    if (_batch.empty()) return {};
    add("UPDATE pellor.domains SET revision = $2 WHERE domain = $1", {_domain, _revision});
    const std::string payload =
        std::string(_writesList ? PostgreSQLLink::ListWritten : PostgreSQLLink::ValuesWritten) + fileNameOf(_domain);
    add("SELECT pg_notify($1, $2)", {PostgreSQLLink::DataChannel, std::string_view(payload)});
    return std::move(_batch);
  }

 private:
  void add(const char* text, std::vector<PostgreSQLParameter> parameters) {
    _batch.push_back({text, std::move(parameters)});
  }

  Stored putValue(std::string_view key, EncodedValue value, const Stored* stored) {
    if (stored && stored->bytes && *stored->bytes == *value.bytes) return *stored;
    const auto bytes = std::make_shared<const Data>(*std::move(value.bytes));
    // It may have been a list.
    if (stored && !stored->bytes) {
      for (const char* text : RemoveRuns) add(text, {_domain, key});
    }
    add(PutValue, {_domain, key, std::span(*bytes), _revision});
    add(PutLastGood, {_domain, key, std::span(*bytes)});
    return {value.value, bytes, nullptr};
  }

  Stored putList(std::string_view key, EncodedValue value, const Stored* stored) {
    const auto known = stored ? stored->list : nullptr;
    if (stored && !known) remove(key);
    const StoredRuns rows{known ? known->rows.list : newListNumber(), static_cast<std::int64_t>(value.list->count),
                          _revision};
    const bool isOfOtherLength = !known || known->rows.count != rows.count;
    const Runs& old = runsOf(known.get());
    Runs& runs = value.list->runs;
    const std::size_t before = _batch.size();
    for (std::size_t number = 0; number < runs.size(); ++number) {
      if (number < old.size() && areSame(old[number], runs[number])) {
        runs[number] = old[number];
      } else {
        putRun(rows.list, number, *runs[number]);
      }
    }
    if (isOfOtherLength) putLength(key, rows, old.size());
    if (known && _batch.size() == before) return *stored;
    _writesList = true;
    auto list = std::make_shared<const StoredList>(StoredList{rows, _revision, LongArray(std::move(runs))});
    return {list->value, nullptr, list};
  }

  void putRun(std::int64_t list, std::size_t number, const ArrayRun& run) {
    const auto place = static_cast<std::int64_t>(number);
    add(PutRun, {list, place, bytesOf(run), _revision});
    add(PutLastGoodRun, {list, place, bytesOf(run)});
  }

  void putLength(std::string_view key, const StoredRuns& rows, std::size_t formerRows) {
    add(PutList, {_domain, key, rows.revision, rows.list, rows.count});
    if (formerRows <= runCount(rows)) return;
    for (const char* text : RemoveLastRows) add(text, {rows.list, static_cast<std::int64_t>(runCount(rows))});
  }

  const std::string_view _domain;
  const std::int64_t _revision;
  PostgreSQLBatch _batch;
  bool _writesList = false;
};

}  // namespace

void PostgreSQLTables::forgetRevisions() {
  for (auto& [domain, known] : _known) known.revision = Everything;
}

std::vector<std::string> PostgreSQLTables::domains() const {
  std::vector<std::string> domains;
  for (const auto& [domain, known] : _known) domains.push_back(domain);
  return domains;
}

PostgreSQLTables::Known& PostgreSQLTables::knownOf(std::string_view domain) {
  return _known.try_emplace(std::string(domain)).first->second;
}

/// `begin` ends with the statement that gives the place.
void PostgreSQLTables::refresh(PostgreSQLConnection& connection, std::string_view domain, Known& known,
                               const PostgreSQLBatch& begin, const PostgreSQLBatch& end) {
  for (const std::int64_t since : {known.revision, Everything}) {
    PostgreSQLBatch batch = begin;
    for (const PostgreSQLBatch& part : {newer(domain, since), end}) batch.insert(batch.end(), part.begin(), part.end());
    const auto rows = connection.run(batch);
    const PostgreSQLRows& place = rows[begin.size() - 1];
    PostgreSQLSchema::requireVersion(place.integer(0, 0));
    if (update(known, since, place.integer(0, 1), std::span(rows).subspan(begin.size(), 2))) return;
    connection.rollBack();
  }
  throw PostgreSQLError(PostgreSQLError::Kind::refused,
                        {"the tables hold what was never written", "let the administrator restore the schema pellor"});
}

/// False when everything has to be read.
bool PostgreSQLTables::update(Known& known, std::int64_t since, std::int64_t revision,
                              std::span<const PostgreSQLRows> newer) {
  if (since != Everything && revision == since) return true;
  // Somebody put an earlier state in place.
  if (revision < since) return false;
  auto snapshot = DomainReader(since, revision, newer, known.snapshot.get()).snapshot();
  if (!snapshot) return false;
  known = {revision, std::move(snapshot)};
  return true;
}

std::shared_ptr<const Snapshot> PostgreSQLTables::read(PostgreSQLConnection& connection, std::string_view domain) {
  Known& known = knownOf(domain);
  refresh(connection, domain, known, {{BeginReading}, {Place, {domain}}}, {{"COMMIT"}});
  return known.snapshot;
}

std::shared_ptr<const Snapshot> PostgreSQLTables::write(PostgreSQLConnection& connection, std::string_view domain,
                                                        Changes changes, Which which) {
  Known& known = knownOf(domain);
  refresh(connection, domain, known, {{BeginWriting}, {EnsurePlace, {domain}}, {LockedPlace, {domain}}}, {});
  auto snapshot = std::make_shared<Snapshot>(*known.snapshot);
  DomainWriter writer(domain, known.revision + 1);
  for (auto& [key, value] : changes) {
    const Stored* stored = find(*snapshot, key);
    if (stored && which == Which::absent) continue;
    if (value) {
      snapshot->insert_or_assign(key, writer.put(key, *std::move(value), stored));
    } else if (stored) {
      writer.remove(key);
      snapshot->erase(key);
    }
  }
  PostgreSQLBatch batch = std::move(writer).batch();
  if (batch.empty()) {
    connection.rollBack();
    return known.snapshot;
  }
  batch.push_back({"COMMIT"});
  connection.run(batch);
  known = {known.revision + 1, std::move(snapshot)};
  return known.snapshot;
}

std::optional<Value> PostgreSQLTables::lastGood(PostgreSQLConnection& connection, std::string_view key,
                                                std::string_view domain) {
  const auto rows = connection.run(
      {{BeginReading}, {Place, {domain}}, {LastGoodRuns, {domain, key}}, {LastGoodValue, {domain, key}}, {"COMMIT"}});
  PostgreSQLSchema::requireVersion(rows[1].integer(0, 0));
  const PostgreSQLRows &list = rows[2], &value = rows[3];
  if (list.count() == 0) return value.count() > 0 ? decodeCBOR(value.bytes(0, 0)) : std::nullopt;
  Runs runs;
  for (int row = 0; row < list.count(); ++row) runs.push_back(EncodedRun::decode(list.bytes(row, 1)));
  if (!areWhole(runs, {0, list.integer(0, 0), 0})) return std::nullopt;
  return LongArray(std::move(runs));
}

bool PostgreSQLTables::putAside(PostgreSQLConnection& connection, std::string_view key, std::string_view domain) {
  const auto rows = connection.run({{BeginWriting}, {CopyAside, {domain, key}}, {Find, {domain, key}}, {"COMMIT"}});
  return rows[2].count() > 0;
}

bool PostgreSQLTables::mayWrite(PostgreSQLConnection& connection) {
  return connection.run({{MayWrite}})[0].boolean(0, 0);
}

}  // namespace pellor
