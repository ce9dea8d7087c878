#include "pellor/linux/postgresql/PostgreSQLDomainReader.h"

#include <algorithm>
#include <string>
#include <utility>

#include "pellor/linux/preferences/internal/EncodedChunk.h"
#include "pellor/runtime/CBOR.h"

namespace pellor {
namespace {

constexpr std::int64_t Everything = PostgreSQLDomain::Everything;

constexpr const char* NewerValues =
    "SELECT key, revision, list, count, CASE WHEN revision > $2 THEN value END, writer, write_number"
    " FROM pellor.preferences WHERE domain = $1";
constexpr const char* NewerChunks =
    "SELECT r.list, r.number, r.value FROM pellor.preferences p JOIN pellor.runs r ON r.list = p.list"
    " WHERE p.domain = $1 AND r.revision > $2";

template <class Values, class Key>
auto* find(const Values& values, const Key& key) {
  const auto found = values.find(key);
  return found == values.end() ? nullptr : &found->second;
}

}  // namespace

PostgreSQLBatch PostgreSQLDomainReader::statements(std::string_view domain, std::int64_t since) {
  return {{NewerValues, {domain, since}}, {NewerChunks, {domain, since}}};
}

PostgreSQLDomainReader::PostgreSQLDomainReader(std::uint64_t store, std::int64_t since, std::int64_t revision,
                                               std::span<const PostgreSQLRows> newer, const Snapshot* previous)
    : _store(store), _since(since), _revision(revision), _values(newer[0]), _chunks(newer[1]), _previous(previous) {
  for (int row = 0; row < _chunks.count(); ++row) _rowsOfLists[_chunks.integer(row, 0)].push_back(row);
  for (auto& [list, rows] : _rowsOfLists)
    std::ranges::sort(rows, {}, [this](int row) { return _chunks.integer(row, 1); });
}

std::shared_ptr<const PostgreSQLDomainReader::Snapshot> PostgreSQLDomainReader::snapshot() const {
  auto snapshot = std::make_shared<Snapshot>();
  for (int row = 0; row < _values.count(); ++row) {
    const std::string key(_values.text(row, 0));
    const SnapshotValue* previous = _previous ? find(*_previous, key) : nullptr;
    auto stored = _values.isNull(row, 2) ? valueIn(row, previous) : listIn(row, previous);
    if (!stored) return nullptr;
    stored->version = versionIn(row);
    snapshot->emplace(key, *std::move(stored));
  }
  return snapshot;
}

bool PostgreSQLDomainReader::isNewer(int row) const { return _values.integer(row, 1) > _since; }

// The revision of a key's last writing counts its versions: it rises for the whole domain, so it does not come back
// when the key is removed and made again.
PreferenceVersion PostgreSQLDomainReader::versionIn(int row) const {
  const auto number = [&](int column) { return static_cast<std::uint64_t>(_values.integer(row, column)); };
  return {_store, number(1), {number(5), number(6)}};
}

std::optional<PostgreSQLDomain::SnapshotValue> PostgreSQLDomainReader::valueIn(int row,
                                                                               const SnapshotValue* previous) const {
  const bool wasValue = previous && previous->bytes;
  if (!isNewer(row)) return wasValue ? std::optional(*previous) : std::nullopt;
  const auto stored = _values.bytes(row, 4);
  if (wasValue && std::ranges::equal(*previous->bytes, stored)) return *previous;
  const auto bytes = std::make_shared<const Data>(stored.begin(), stored.end());
  return SnapshotValue{decodeCBOR(*bytes).value_or(Value(*bytes)), bytes, nullptr};
}

std::optional<PostgreSQLDomain::SnapshotValue> PostgreSQLDomainReader::listIn(int row,
                                                                              const SnapshotValue* previous) const {
  const StoredChunks rows{_values.integer(row, 2), _values.integer(row, 3), _values.integer(row, 1)};
  const auto known = previous ? previous->list : nullptr;
  const bool isFollowed = _since != Everything && known && known->rows.list == rows.list;
  if (!isFollowed && !isNewer(row)) return std::nullopt;
  const std::vector<int>* newRows = find(_rowsOfLists, rows.list);
  if (isFollowed && !newRows && known->rows.count == rows.count) return *previous;
  auto list = listOf(chunksWith(newRows, rows, chunksOf(known.get()), isFollowed), rows, _revision);
  if (list) return SnapshotValue{list->value, nullptr, list};
  if (_since != Everything) return std::nullopt;
  return SnapshotValue{Value(bytesOf(newRows)), nullptr, nullptr};
}

Chunks PostgreSQLDomainReader::chunksWith(const std::vector<int>* newRows, const StoredChunks& rows,
                                          const Chunks& known, bool isFollowed) const {
  Chunks chunks = isFollowed ? known : Chunks();
  // No more of them than there can be, whatever the count says.
  if (rows.count < 1 || chunkCount(rows) > chunks.size() + (newRows ? newRows->size() : 0)) return {};
  chunks.resize(chunkCount(rows));
  for (const int row : newRows ? *newRows : std::vector<int>()) {
    const auto number = static_cast<std::size_t>(_chunks.integer(row, 1));
    const auto bytes = _chunks.bytes(row, 2);
    const bool isKnown = number < known.size() && holds(*known[number], bytes);
    if (number < chunks.size()) chunks[number] = isKnown ? known[number] : EncodedChunk::decode(bytes);
  }
  return chunks;
}

Data PostgreSQLDomainReader::bytesOf(const std::vector<int>* rows) const {
  Data all;
  for (const int row : rows ? *rows : std::vector<int>()) {
    const auto bytes = _chunks.bytes(row, 2);
    all.insert(all.end(), bytes.begin(), bytes.end());
  }
  return all;
}

}  // namespace pellor
