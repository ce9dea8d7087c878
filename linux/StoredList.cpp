#include "linux/StoredList.h"

#include <algorithm>
#include <string>
#include <utility>

#include "linux/EncodedRun.h"

namespace pellor {
namespace {

// A row's id is made of its list and its number there.
constexpr int NumberBits = 24;
constexpr std::int64_t HighestNumber = (std::int64_t{1} << NumberBits) - 1;
static_assert(HighestListNumber <= (std::int64_t{1} << (62 - NumberBits)) - 1);

std::int64_t idOf(std::int64_t list, std::size_t number) {
  return (list << NumberBits) + static_cast<std::int64_t>(number);
}

std::size_t numberIn(const SQLiteStatement& row) { return static_cast<std::size_t>(row.integer(0) & HighestNumber); }

enum class Rows { stored, lastGood };

/// Shows id and value of each row, and of stored ones the revision.
template <class Visit>
void visitAll(const PreferencesDatabase& store, Rows which, const StoredRuns& rows, Visit visit) {
  const PreferencesLayout& layout = store.layout();
  const std::string text = (which == Rows::stored ? std::string("SELECT id, value, revision FROM ") + layout.runs
                                                  : std::string("SELECT id, value FROM ") + layout.lastGoodRuns) +
                           " WHERE id BETWEEN ?1 AND ?2 ORDER BY id";
  const SQLiteStatements::Use statement = store.statements().use(text);
  statement->bind(1, idOf(rows.list, 0)).bind(2, idOf(rows.list, HighestNumber));
  while (statement->step()) visit(*statement);
}

void writeRow(const PreferencesDatabase& store, std::int64_t id, const StoredRuns& rows, const ArrayRun& run,
              const PreferenceVersion& version) {
  constexpr const char* row =
      "INSERT INTO stored_runs (id, list, value, revision, writer, write) VALUES (?1, ?2, ?3, ?4, ?5, ?6)"
      " ON CONFLICT DO UPDATE SET value = excluded.value, revision = excluded.revision, writer = excluded.writer,"
      " write = excluded.write";
  constexpr const char* lastGood =
      "INSERT INTO good_runs VALUES (?1, ?2) ON CONFLICT DO UPDATE SET value = excluded.value";
  const auto bytes = bytesOf(run);
  {
    const SQLiteStatements::Use statement = store.statements().use(row);
    statement->bind(1, id).bind(2, rows.list).bind(3, bytes);
    PreferencesDatabase::bindVersion(*statement, 4, version);
    statement->run();
  }
  store.statements().use(lastGood)->bind(1, id).bind(2, bytes).run();
}

void removeRowsFrom(const PreferencesDatabase& store, std::int64_t list, std::size_t first) {
  for (const char* text :
       {"DELETE FROM stored_runs WHERE id BETWEEN ?1 AND ?2", "DELETE FROM good_runs WHERE id BETWEEN ?1 AND ?2"}) {
    store.statements().use(text)->bind(1, idOf(list, first)).bind(2, idOf(list, HighestNumber)).run();
  }
}

}  // namespace

std::shared_ptr<const StoredList> readList(const PreferencesDatabase& store, const StoredRuns& rows,
                                           const StoredList* previous) {
  const Runs& known = runsOf(previous);
  Runs runs;
  std::int64_t revision = rows.revision;
  visitAll(store, Rows::stored, rows, [&](const SQLiteStatement& row) {
    const std::size_t number = runs.size();
    const bool isInOrder = numberIn(row) == number;
    const bool isKnown = number < known.size() && holds(*known[number], row.bytes(1));
    runs.push_back(!isInOrder ? nullptr : isKnown ? known[number] : EncodedRun::decode(row.bytes(1)));
    revision = std::max(revision, row.integer(2));
  });
  return listOf(std::move(runs), rows, revision);
}

std::shared_ptr<const StoredList> readNewerRows(const PreferencesDatabase& store, const StoredRuns& rows,
                                                const std::shared_ptr<const StoredList>& previous) {
  std::vector<std::pair<std::size_t, std::shared_ptr<const ArrayRun>>> newer;
  std::int64_t revision = std::max(rows.revision, previous->revision);
  {
    const SQLiteStatements::Use row =
        store.statements().use(std::string("SELECT id, value, revision FROM ")
                                   .append(store.layout().runs)
                                   .append(" INDEXED BY runs_by_revision WHERE list = ?1 AND revision > ?2"));
    row->bind(1, rows.list).bind(2, previous->revision);
    while (row->step()) {
      newer.emplace_back(numberIn(*row), EncodedRun::decode(row->bytes(1)));
      revision = std::max(revision, row->integer(2));
    }
  }
  if (revision == previous->revision) return previous;
  Runs runs = runsOf(previous.get());
  if (runCount(rows) > runs.size() + newer.size()) return nullptr;
  runs.resize(runCount(rows));
  for (auto& [number, run] : newer) {
    if (number < runs.size()) runs[number] = std::move(run);
  }
  return listOf(std::move(runs), rows, revision);
}

std::optional<Value> lastGoodList(const PreferencesDatabase& store, const StoredRuns& rows) {
  Runs runs;
  visitAll(store, Rows::lastGood, rows,
           [&](const SQLiteStatement& row) { runs.push_back(EncodedRun::decode(row.bytes(1))); });
  if (!areWhole(runs, rows)) return std::nullopt;
  return LongArray(std::move(runs));
}

Data bytesOfList(const PreferencesDatabase& store, const StoredRuns& rows) {
  Data all;
  visitAll(store, Rows::stored, rows, [&](const SQLiteStatement& row) {
    const std::span<const std::uint8_t> bytes = row.bytes(1);
    all.insert(all.end(), bytes.begin(), bytes.end());
  });
  return all;
}

std::shared_ptr<const StoredList> writeList(const PreferencesDatabase& store, std::string_view key,
                                            std::string_view domain, EncodedList list,
                                            const std::shared_ptr<const StoredList>& stored,
                                            const PreferenceVersion& version, EqualValues equal) {
  if (!stored) store.clear(key, domain);
  const Runs& old = runsOf(stored.get());
  const StoredRuns rows{stored ? stored->rows.list : newListNumber(), static_cast<std::int64_t>(list.count),
                        static_cast<std::int64_t>(version.count)};
  const bool isOfOtherLength = !stored || stored->rows.count != rows.count;
  bool hasNewRow = false;
  for (std::size_t number = 0; number < list.runs.size(); ++number) {
    auto& run = list.runs[number];
    if (number < old.size() && areSame(old[number], run)) {
      // Else the caller is to find the run that it gave.
      if (equal == EqualValues::areLeft) run = old[number];
    } else {
      writeRow(store, idOf(rows.list, number), rows, *run, version);
      hasNewRow = true;
    }
  }
  if (equal == EqualValues::areLeft && !hasNewRow && !isOfOtherLength) return stored;
  if (old.size() > list.runs.size()) removeRowsFrom(store, rows.list, list.runs.size());
  if (!hasNewRow || isOfOtherLength) store.write(key, domain, rows, version);
  return std::make_shared<const StoredList>(StoredList{rows, rows.revision, LongArray(std::move(list.runs))});
}

}  // namespace pellor
