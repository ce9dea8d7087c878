#include "pellor/linux/preferences/internal/SQLiteDomainReader.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "pellor/linux/preferences/internal/StoredList.h"
#include "pellor/runtime/CBOR.h"

namespace pellor {
namespace {

using Snapshot = PreferencesMemory::Snapshot;
using SnapshotValue = PreferencesMemory::SnapshotValue;

class DomainReader {
 public:
  DomainReader(const PreferencesDatabase& store, std::string_view domain, const Snapshot* previous,
               bool isSameConnection)
      : _store(store), _domain(domain), _previous(previous), _isSameConnection(isSameConnection) {}

  DomainReading read() {
    Snapshot& snapshot = _reading.snapshot;
    _store.visitValues(_domain, [&](const std::string& key, const StoredValue& value) {
      snapshot.insert_or_assign(key, valueOf(key, value));
    });
    // A row that a damaged page no longer shows is told by its copy.
    for (const std::string& key : _store.keysOfGoodCopies(_domain)) {
      if (snapshot.contains(key)) continue;
      if (auto copy = goodCopyOf(key)) snapshot.emplace(key, replace(key, {}, std::move(copy)));
    }
    return std::move(_reading);
  }

 private:
  SnapshotValue valueOf(const std::string& key, const StoredValue& value) {
    if (!value.isWhole) return replace(key, foundBytes(_store, value), goodCopyOf(key));
    auto stored = value.chunks ? listOf(previousOf(key), value) : std::optional(plainValueOf(previousOf(key), value));
    if (!stored) return replace(key, foundBytes(_store, value), std::nullopt);
    // Of a list that lacks nothing any more, with the good copies of some rows.
    if (stored->isGoodCopy) return replace(key, foundBytes(_store, value), std::move(stored));
    return *std::move(stored);
  }

  const SnapshotValue* previousOf(const std::string& key) const {
    if (!_previous) return nullptr;
    const auto found = _previous->find(key);
    return found == _previous->end() ? nullptr : &found->second;
  }

  SnapshotValue replace(const std::string& key, Data found, std::optional<SnapshotValue> copy) {
    _reading.damaged.push_back({key, found, copy.has_value()});
    SnapshotValue stored =
        copy ? *std::move(copy) : SnapshotValue{Value(std::move(found)), nullptr, nullptr, unknownVersion()};
    // Neither is known to be in the file: the next write of the key writes all of it.
    stored.bytes = nullptr;
    stored.list = nullptr;
    stored.isGoodCopy = _reading.damaged.back().hasGoodCopy;
    return stored;
  }

  /// Larger than any that could have been given, so that a write made from it makes a new version.
  PreferenceVersion unknownVersion() const { return {_store.number(), UnknownCount, {}}; }

  std::optional<SnapshotValue> goodCopyOf(const std::string& key) {
    std::optional<SnapshotValue> copy;
    _store.visitValue(RowCopy::lastGood, key, _domain, [&](const StoredValue& value) {
      if (!value.isWhole) return;
      copy = value.chunks ? listOf(nullptr, value) : std::optional(plainValueOf(nullptr, value));
    });
    return copy;
  }

  std::optional<SnapshotValue> listOf(const SnapshotValue* previous, const StoredValue& value) {
    const auto known = previous ? previous->list : nullptr;
    const bool isFollowed = _isSameConnection && known && known->rows.list == value.chunks->list &&
                            previous->version.store == value.version.store;
    if (isFollowed) {
      const ListReading newer = readNewerRows(_store, *value.chunks, value.version, known, previous->version);
      if (newer.list) return SnapshotValue{newer.list->value, nullptr, newer.list, newer.version};
    }
    const ListReading all = readList(_store, *value.chunks, value.version, known.get());
    // All rows were read, and will not be again.
    _store.statements().database().releaseMemory();
    if (all.list) return SnapshotValue{all.list->value, nullptr, all.list, all.version, all.isDamaged};
    if (all.isDamaged) return std::nullopt;
    return SnapshotValue{Value(foundBytes(_store, value)), nullptr, nullptr, all.version};
  }

  static SnapshotValue plainValueOf(const SnapshotValue* previous, const StoredValue& value) {
    if (previous && previous->bytes && std::ranges::equal(*previous->bytes, value.bytes)) {
      return {previous->value, previous->bytes, nullptr, value.version};
    }
    const auto bytes = std::make_shared<const Data>(value.bytes.begin(), value.bytes.end());
    return {decodeCBOR(*bytes).value_or(Value(*bytes)), bytes, nullptr, value.version};
  }

  static constexpr std::uint64_t UnknownCount = std::uint64_t{1} << 62;

  const PreferencesDatabase& _store;
  const std::string_view _domain;
  const Snapshot* const _previous;
  const bool _isSameConnection;
  DomainReading _reading;
};

}  // namespace

DomainReading readDomain(const PreferencesDatabase& store, std::string_view domain, const Snapshot* previous,
                         bool isSameConnection) {
  return DomainReader(store, domain, previous, isSameConnection).read();
}

}  // namespace pellor
