#include "pellor/linux/preferences/internal/StoredList.h"

#include <algorithm>
#include <string>
#include <utility>

#include "pellor/linux/preferences/internal/CheckedRows.h"
#include "pellor/linux/preferences/internal/ChunkRowID.h"
#include "pellor/linux/preferences/internal/EncodedChunk.h"

namespace pellor {
namespace {

std::int64_t idOf(std::int64_t list, std::size_t number) {
  return ChunkRowID::of(list, static_cast<std::int64_t>(number));
}

std::int64_t lastIDOf(std::int64_t list) { return ChunkRowID::of(list, ChunkRowID::HighestNumber); }

/// A row of a list.
struct ChunkRow {
  std::size_t number = 0;
  std::span<const std::uint8_t> bytes;  ///< valid until the next row
  PreferenceVersion version;            ///< without store
  bool isWhole = true;
};

std::string textForRows(const PreferencesLayout& layout, RowCopy copy) {
  const std::string list = copy == RowCopy::stored ? "list" : "id >> " + std::to_string(ChunkRowID::NumberBits);
  std::string text = "SELECT id, " + list + ", value";
  if (copy == RowCopy::stored || layout.hasVersions) text += ", revision";
  if (layout.hasVersions) text += ", writer, write, checksum";
  return text + " FROM " + (copy == RowCopy::stored ? layout.chunks : layout.lastGoodChunks);
}

ChunkRow rowIn(const PreferencesLayout& layout, RowCopy copy, const SQLiteStatement& statement) {
  const std::int64_t id = statement.integer(0);
  ChunkRow row{static_cast<std::size_t>(id & ChunkRowID::HighestNumber), statement.bytes(2), {}};
  if (!layout.hasVersions) {
    if (copy == RowCopy::stored) row.version.count = static_cast<std::uint64_t>(statement.integer(3));
    return row;
  }
  row.version = versionIn(statement, 3);
  const auto table = copy == RowCopy::stored ? CheckedTable::chunks : CheckedTable::goodChunks;
  row.isWhole =
      statement.integer(6) == CheckedRows::checksumOfChunk(table, id, statement.integer(1), row.bytes, row.version);
  return row;
}

/// Visits each ChunkRow of a list.
template <class Visit>
void visitAll(const PreferencesDatabase& store, RowCopy copy, std::int64_t list, Visit visit) {
  const PreferencesLayout& layout = store.layout();
  const SQLiteStatements::Use statement =
      store.statements().use(textForRows(layout, copy) + " WHERE id BETWEEN ?1 AND ?2 ORDER BY id");
  statement->bind(1, idOf(list, 0)).bind(2, lastIDOf(list));
  while (statement->step()) visit(rowIn(layout, copy, *statement));
}

/// The chunks of a list, gathered from its rows.
class GatheredChunks {
 public:
  GatheredChunks(const StoredChunks& rows, const PreferenceVersion& version, const Chunks& known)
      : _known(known),
        _newest(version),
        _chunks(chunkCount(rows)),
        _isTaken(_chunks.size()),
        _revisions(_chunks.size()) {}

  /// Takes the row for its place, unless that is taken. False when it is damaged or has no place. One that is no chunk
  /// though it is as it was written leaves its place empty.
  bool take(const ChunkRow& row) {
    if (!row.isWhole || row.number >= _chunks.size()) return false;
    auto& chunk = _chunks[row.number];
    if (_isTaken[row.number]) return true;
    _isTaken[row.number] = true;
    const bool isKnown = row.number < _known.size() && holds(*_known[row.number], row.bytes);
    chunk = isKnown ? _known[row.number] : EncodedChunk::decode(row.bytes);
    ++_taken;
    _revisions[row.number] = row.version.count;
    if (row.version.count > _newest.count) _newest = {_newest.store, row.version.count, row.version.write};
    return true;
  }

  bool haveAllRows() const { return _taken == _chunks.size(); }
  const std::vector<std::uint64_t>& revisions() const { return _revisions; }
  const PreferenceVersion& newest() const { return _newest; }
  Chunks chunks() && { return std::move(_chunks); }

 private:
  const Chunks& _known;
  PreferenceVersion _newest;
  Chunks _chunks;
  std::vector<bool> _isTaken;
  std::vector<std::uint64_t> _revisions;
  std::size_t _taken = 0;
};

// Rows that changed are found by it, without looking at the others.
bool isIndexWhole(const PreferencesDatabase& store, std::int64_t list, const std::vector<std::uint64_t>& revisions) {
  try {
    const SQLiteStatements::Use entry =
        store.statements().use("SELECT id, revision FROM stored_runs INDEXED BY runs_by_revision WHERE list = ?1");
    entry->bind(1, list);
    std::size_t count = 0;
    for (; entry->step(); ++count) {
      const std::int64_t number = entry->integer(0) - idOf(list, 0);
      const auto revision = static_cast<std::uint64_t>(entry->integer(1));
      if (number < 0 || number >= std::ssize(revisions)) return false;
      if (revisions[static_cast<std::size_t>(number)] != revision) return false;
    }
    return count == revisions.size();
  } catch (const SQLiteError& error) {
    if (error.code() != SQLITE_CORRUPT) throw;
    return false;
  }
}

void writeRow(const PreferencesDatabase& store, RowCopy copy, std::int64_t id, std::int64_t list,
              const ArrayChunk& chunk, const PreferenceVersion& version) {
  constexpr const char* stored =
      "INSERT INTO stored_runs (id, list, value, revision, writer, write, checksum)"
      " VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7) ON CONFLICT DO UPDATE SET value = excluded.value,"
      " revision = excluded.revision, writer = excluded.writer, write = excluded.write, checksum = excluded.checksum";
  constexpr const char* lastGood =
      "INSERT INTO good_runs (id, value, revision, writer, write, checksum)"
      " VALUES (?1, ?3, ?4, ?5, ?6, ?7) ON CONFLICT DO UPDATE SET value = excluded.value,"
      " revision = excluded.revision, writer = excluded.writer, write = excluded.write, checksum = excluded.checksum";
  const bool isStored = copy == RowCopy::stored;
  const auto bytes = bytesOf(chunk);
  const SQLiteStatements::Use statement = store.statements().use(isStored ? stored : lastGood);
  statement->bind(1, id).bind(3, bytes);
  if (isStored) statement->bind(2, list);
  PreferencesDatabase::bindVersion(*statement, 4, version);
  const auto table = isStored ? CheckedTable::chunks : CheckedTable::goodChunks;
  statement->bind(7, CheckedRows::checksumOfChunk(table, id, list, bytes, version)).run();
}

void removeRowsFrom(const PreferencesDatabase& store, std::int64_t list, std::size_t first) {
  for (const char* text :
       {"DELETE FROM stored_runs WHERE id BETWEEN ?1 AND ?2", "DELETE FROM good_runs WHERE id BETWEEN ?1 AND ?2"}) {
    store.statements().use(text)->bind(1, idOf(list, first)).bind(2, lastIDOf(list)).run();
  }
}

bool canBeRead(const StoredChunks& rows) {
  return rows.count >= 1 && static_cast<std::int64_t>(chunkCount(rows)) <= ChunkRowID::HighestNumber;
}

}  // namespace

ListReading readList(const PreferencesDatabase& store, const StoredChunks& rows, const PreferenceVersion& version,
                     const StoredList* previous) {
  ListReading reading{nullptr, version, false};
  if (!canBeRead(rows)) return reading;
  GatheredChunks chunks(rows, version, chunksOf(previous));
  bool areWhole = true;
  visitAll(store, RowCopy::stored, rows.list, [&](const ChunkRow& row) { areWhole = chunks.take(row) && areWhole; });
  if (store.layout().hasVersions) {
    if (!chunks.haveAllRows()) {
      areWhole = false;
      visitAll(store, RowCopy::lastGood, rows.list, [&](const ChunkRow& row) { chunks.take(row); });
    }
    reading.isDamaged = !areWhole || !isIndexWhole(store, rows.list, chunks.revisions());
  }
  reading.version = chunks.newest();
  const auto revision = std::max(rows.revision, static_cast<std::int64_t>(chunks.newest().count));
  reading.list = listOf(std::move(chunks).chunks(), rows, revision);
  return reading;
}

ListReading readNewerRows(const PreferencesDatabase& store, const StoredChunks& rows, const PreferenceVersion& version,
                          const std::shared_ptr<const StoredList>& previous, const PreferenceVersion& known) {
  ListReading reading{nullptr, version.count > known.count ? version : known, false};
  if (!canBeRead(rows)) return reading;
  const PreferencesLayout& layout = store.layout();
  Chunks chunks = chunksOf(previous.get());
  chunks.resize(chunkCount(rows));
  std::int64_t revision = std::max(rows.revision, previous->revision);
  bool areWhole = true;
  {
    const SQLiteStatements::Use statement = store.statements().use(
        textForRows(layout, RowCopy::stored) + " INDEXED BY runs_by_revision WHERE list = ?1 AND revision > ?2");
    statement->bind(1, rows.list).bind(2, previous->revision);
    while (statement->step()) {
      const ChunkRow row = rowIn(layout, RowCopy::stored, *statement);
      const PreferenceVersion& newest = reading.version;
      if (row.version.count > newest.count) reading.version = {version.store, row.version.count, row.version.write};
      revision = std::max(revision, static_cast<std::int64_t>(row.version.count));
      areWhole = areWhole && row.isWhole;
      if (row.number < chunks.size()) chunks[row.number] = EncodedChunk::decode(row.bytes);
    }
  }
  if (!areWhole) return reading;
  reading.list = revision == previous->revision ? previous : listOf(std::move(chunks), rows, revision);
  return reading;
}

std::optional<Value> lastGoodList(const PreferencesDatabase& store, const StoredChunks& rows) {
  if (!canBeRead(rows)) return std::nullopt;
  GatheredChunks chunks(rows, {}, chunksOf(nullptr));
  visitAll(store, RowCopy::lastGood, rows.list, [&](const ChunkRow& row) { chunks.take(row); });
  const auto list = listOf(std::move(chunks).chunks(), rows, rows.revision);
  return list ? std::optional(list->value) : std::nullopt;
}

Data foundBytes(const PreferencesDatabase& store, const StoredValue& value) {
  if (!value.chunks) return {value.bytes.begin(), value.bytes.end()};
  Data all;
  visitAll(store, RowCopy::stored, value.chunks->list,
           [&](const ChunkRow& row) { all.insert(all.end(), row.bytes.begin(), row.bytes.end()); });
  return all;
}

std::shared_ptr<const StoredList> writeList(const PreferencesDatabase& store, std::string_view key,
                                            std::string_view domain, EncodedList list,
                                            const std::shared_ptr<const StoredList>& stored,
                                            const PreferenceVersion& version, EqualValues equal) {
  if (!stored) store.clear(key, domain);
  const Chunks& old = chunksOf(stored.get());
  const StoredChunks rows{stored ? stored->rows.list : newListNumber(), static_cast<std::int64_t>(list.count),
                          static_cast<std::int64_t>(version.count)};
  const bool isOfOtherLength = !stored || stored->rows.count != rows.count;
  bool hasNewRow = false;
  for (std::size_t number = 0; number < list.chunks.size(); ++number) {
    auto& chunk = list.chunks[number];
    if (number < old.size() && areSame(old[number], chunk)) {
      // Else the caller is to find the chunk that it gave.
      if (equal == EqualValues::areLeft) chunk = old[number];
    } else {
      for (const RowCopy copy : {RowCopy::stored, RowCopy::lastGood}) {
        writeRow(store, copy, idOf(rows.list, number), rows.list, *chunk, version);
      }
      hasNewRow = true;
    }
  }
  if (equal == EqualValues::areLeft && !hasNewRow && !isOfOtherLength) return stored;
  if (old.size() > list.chunks.size()) removeRowsFrom(store, rows.list, list.chunks.size());
  if (!hasNewRow || isOfOtherLength) store.write(key, domain, rows, version);
  return std::make_shared<const StoredList>(StoredList{rows, rows.revision, LongArray(std::move(list.chunks))});
}

}  // namespace pellor
