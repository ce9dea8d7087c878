#include "pellor/linux/postgresql/PostgreSQLDomainWriter.h"

#include <array>
#include <memory>
#include <span>
#include <utility>

#include "pellor/linux/files/internal/PrivateFiles.h"
#include "pellor/linux/postgresql/PostgreSQLLink.h"

namespace pellor {
namespace {

constexpr std::array<const char*, 2> RemoveChunks = {
    "DELETE FROM pellor.last_good_runs WHERE list ="
    " (SELECT list FROM pellor.preferences WHERE domain = $1 AND key = $2)",
    "DELETE FROM pellor.runs WHERE list = (SELECT list FROM pellor.preferences WHERE domain = $1 AND key = $2)"};
constexpr std::array<const char*, 2> RemoveValue = {"DELETE FROM pellor.preferences WHERE domain = $1 AND key = $2",
                                                    "DELETE FROM pellor.last_good WHERE domain = $1 AND key = $2"};
constexpr std::array<const char*, 2> RemoveLastRows = {
    "DELETE FROM pellor.last_good_runs WHERE list = $1 AND number >= $2",
    "DELETE FROM pellor.runs WHERE list = $1 AND number >= $2"};
constexpr const char* PutValue =
    "INSERT INTO pellor.preferences (domain, key, revision, writer, write_number, value)"
    " VALUES ($1, $2, $3, $4, $5, $6) ON CONFLICT (domain, key) DO UPDATE SET revision = excluded.revision,"
    " writer = excluded.writer, write_number = excluded.write_number, value = excluded.value, list = NULL,"
    " count = NULL";
constexpr const char* PutLastGood =
    "INSERT INTO pellor.last_good (domain, key, value) VALUES ($1, $2, $3)"
    " ON CONFLICT (domain, key) DO UPDATE SET value = excluded.value";
constexpr const char* PutList =
    "INSERT INTO pellor.preferences (domain, key, revision, writer, write_number, value, list, count)"
    " VALUES ($1, $2, $3, $4, $5, '', $6, $7) ON CONFLICT (domain, key) DO UPDATE SET revision = excluded.revision,"
    " writer = excluded.writer, write_number = excluded.write_number, value = excluded.value, list = excluded.list,"
    " count = excluded.count";
constexpr const char* PutChunk =
    "INSERT INTO pellor.runs (list, number, value, revision) VALUES ($1, $2, $3, $4)"
    " ON CONFLICT (list, number) DO UPDATE SET value = excluded.value, revision = excluded.revision";
constexpr const char* PutLastGoodChunk =
    "INSERT INTO pellor.last_good_runs (list, number, value) VALUES ($1, $2, $3)"
    " ON CONFLICT (list, number) DO UPDATE SET value = excluded.value";

// A bigint holds it, with another sign where it is large.
std::int64_t bigint(std::uint64_t number) { return static_cast<std::int64_t>(number); }

template <class Values, class Key>
auto* findIn(const Values& values, const Key& key) {
  const auto found = values.find(key);
  return found == values.end() ? nullptr : &found->second;
}

}  // namespace

PostgreSQLDomainWriter::PostgreSQLDomainWriter(std::string_view domain, const PostgreSQLDomain& stored,
                                               const PostgreSQLWriting& writing)
    : _domain(domain),
      _stored(stored),
      _id(writing.id),
      _revision(stored.revision + 1),
      _values(std::make_shared<PostgreSQLDomain::Snapshot>(*stored.values)) {}

void PostgreSQLDomainWriter::put(const std::string& key, EncodedValue value) {
  const SnapshotValue* stored = findIn(*_stored.values, key);
  SnapshotValue after = value.list ? putList(key, std::move(value), stored) : putValue(key, std::move(value), stored);
  after.version = {_stored.store, static_cast<std::uint64_t>(_revision), _id};
  _values->insert_or_assign(key, std::move(after));
}

void PostgreSQLDomainWriter::remove(const std::string& key) {
  if (_values->erase(key) != 0) removeAll(key);
}

PostgreSQLBatch PostgreSQLDomainWriter::takeStatements() {
  if (_batch.empty()) return {};
  add("UPDATE pellor.domains SET revision = $2 WHERE domain = $1", {_domain, _revision});
  const std::string payload =
      std::string(_writesList ? PostgreSQLLink::ListWritten : PostgreSQLLink::ValuesWritten) + fileNameOf(_domain);
  add("SELECT pg_notify($1, $2)", {PostgreSQLLink::DataChannel, std::string_view(payload)});
  return std::exchange(_batch, {});
}

void PostgreSQLDomainWriter::add(const char* text, std::vector<PostgreSQLParameter> parameters) {
  _batch.push_back({text, std::move(parameters)});
}

void PostgreSQLDomainWriter::removeChunks(std::string_view key) {
  for (const char* text : RemoveChunks) add(text, {_domain, key});
}

void PostgreSQLDomainWriter::removeAll(std::string_view key) {
  removeChunks(key);
  for (const char* text : RemoveValue) add(text, {_domain, key});
}

PostgreSQLDomain::SnapshotValue PostgreSQLDomainWriter::putValue(std::string_view key, EncodedValue value,
                                                                 const SnapshotValue* stored) {
  const auto bytes = std::make_shared<const Data>(*std::move(value.bytes));
  // It may have been a list.
  if (stored && !stored->bytes) removeChunks(key);
  add(PutValue, {_domain, key, _revision, bigint(_id.writer), bigint(_id.number), std::span(*bytes)});
  add(PutLastGood, {_domain, key, std::span(*bytes)});
  return {value.value, bytes, nullptr};
}

PostgreSQLDomain::SnapshotValue PostgreSQLDomainWriter::putList(std::string_view key, EncodedValue value,
                                                                const SnapshotValue* stored) {
  const auto known = stored ? stored->list : nullptr;
  const StoredChunks rows{known ? known->rows.list : newListNumber(), static_cast<std::int64_t>(value.list->count),
                          _revision};
  if (stored && !known) removeAll(key);
  const Chunks& old = chunksOf(known.get());
  Chunks& chunks = value.list->chunks;
  for (std::size_t number = 0; number < chunks.size(); ++number) {
    if (number >= old.size() || !areSame(old[number], chunks[number])) putChunk(rows.list, number, *chunks[number]);
  }
  putHead(key, rows, old.size());
  auto list = std::make_shared<const StoredList>(StoredList{rows, _revision, LongArray(std::move(chunks))});
  return {list->value, nullptr, list};
}

void PostgreSQLDomainWriter::putChunk(std::int64_t list, std::size_t number, const ArrayChunk& chunk) {
  const auto place = static_cast<std::int64_t>(number);
  add(PutChunk, {list, place, bytesOf(chunk), _revision});
  add(PutLastGoodChunk, {list, place, bytesOf(chunk)});
}

void PostgreSQLDomainWriter::putHead(std::string_view key, const StoredChunks& rows, std::size_t formerRows) {
  _writesList = true;
  add(PutList, {_domain, key, _revision, bigint(_id.writer), bigint(_id.number), rows.list, rows.count});
  if (formerRows <= chunkCount(rows)) return;
  for (const char* text : RemoveLastRows) add(text, {rows.list, static_cast<std::int64_t>(chunkCount(rows))});
}

}  // namespace pellor
