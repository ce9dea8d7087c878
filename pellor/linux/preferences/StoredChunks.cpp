#include "pellor/linux/preferences/StoredChunks.h"

#include <algorithm>
#include <random>
#include <typeinfo>
#include <utility>

#include "pellor/linux/preferences/internal/EncodedChunk.h"
#include "pellor/platform/PreferencesStore.h"
#include "pellor/runtime/CBOR.h"

namespace pellor {
namespace {

static_assert(DeepestPreference <= CBORMaximumDepth && LongestPreference <= CBORMaximumSize,
              "stores hold what the interface says");

bool isDictionary(const Value& value) { return value.kind() == Value::Kind::dictionary; }

bool isListOfDictionaries(const Value& value) {
  const Array* array = value.array();
  return array && !array->empty() && std::ranges::all_of(*array, isDictionary);
}

}  // namespace

std::optional<EncodedList> EncodedList::encode(const LongArray& array) {
  EncodedList list{array.chunks(), array.size()};
  for (auto& pointer : list.chunks) {
    const ArrayChunk& chunk = *pointer;
    if (typeid(chunk) == typeid(EncodedChunk)) continue;
    pointer = EncodedChunk::encode(pointer);
    if (!pointer) return std::nullopt;
  }
  return list;
}

std::optional<EncodedValue> EncodedValue::encode(const Value& value) {
  EncodedValue encoded{value, std::nullopt, std::nullopt};
  const LongArray* longArray = value.longArray();
  if (longArray && longArray->size() > 0) {
    encoded.list = EncodedList::encode(*longArray);
  } else if (isListOfDictionaries(value)) {
    encoded.list = EncodedList::encode(LongArray(*value.array()));
  } else {
    encoded.bytes = encodeCBOR(value);
  }
  if (encoded.list || encoded.bytes) return encoded;
  return std::nullopt;
}

std::string EncodedValue::errorFor(std::string_view key) {
  return std::string(key) + " is nested too deeply or too long to be stored";
}

std::int64_t newListNumber() {
  std::random_device random;
  return std::uniform_int_distribution<std::int64_t>(1, HighestListNumber)(random);
}

std::span<const std::uint8_t> bytesOf(const ArrayChunk& chunk) {
  return static_cast<const EncodedChunk&>(chunk).bytes();
}

bool holds(const ArrayChunk& chunk, std::span<const std::uint8_t> bytes) {
  return std::ranges::equal(bytesOf(chunk), bytes);
}

bool areSame(const std::shared_ptr<const ArrayChunk>& one, const std::shared_ptr<const ArrayChunk>& other) {
  return one == other || holds(*one, bytesOf(*other));
}

const Chunks& chunksOf(const StoredList* list) {
  static const Chunks none;
  return list ? list->value.longArray()->chunks() : none;
}

std::size_t chunkCount(const StoredChunks& rows) {
  return (static_cast<std::size_t>(rows.count) + LongArray::ChunkSize - 1) / LongArray::ChunkSize;
}

bool areWhole(const Chunks& chunks, const StoredChunks& rows) {
  if (rows.count < 1 || chunks.size() != chunkCount(rows)) return false;
  auto left = static_cast<std::size_t>(rows.count);
  for (const auto& chunk : chunks) {
    if (!chunk || chunk->size() != std::min(left, LongArray::ChunkSize)) return false;
    left -= chunk->size();
  }
  return true;
}

std::shared_ptr<const StoredList> listOf(Chunks chunks, const StoredChunks& rows, std::int64_t revision) {
  if (!areWhole(chunks, rows)) return nullptr;
  return std::make_shared<const StoredList>(StoredList{rows, revision, LongArray(std::move(chunks))});
}

}  // namespace pellor
