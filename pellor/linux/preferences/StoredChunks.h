// Long arrays as a database keeps them, whichever it is: in rows of one chunk each.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/runtime/LongArray.h"
#include "pellor/runtime/Value.h"

namespace pellor {

using Chunks = std::vector<std::shared_ptr<const ArrayChunk>>;

/// Stands in place of a value's bytes where the value is a long array, whose chunks are rows of their own.
struct StoredChunks {
  std::int64_t list = 0;   ///< a number that no list had before, so that the rows of another are not taken for its own
  std::int64_t count = 0;  ///< of elements
  std::int64_t revision = 0;  ///< when `count` changed last; rows may be newer
};

/// The array as it is stored, with what reading it again and writing over it need to know. Each row has the revision of
/// its last change; each write raises the list's revision, so that an index gives others the rows that they have
/// not read. A row's last good copy is written with it.
///
/// A chunk that did not change stays one object from one reading or writing to the next, and so does a list in which
/// nothing changed.
struct StoredList {
  StoredChunks rows;
  std::int64_t revision = 0;  ///< the newest that was read or written
  Value value;                ///< a long array of EncodedChunks
};

/// An array to be written: the chunks of a long array, encoded.
struct EncodedList {
  /// The chunks of `array`, all made EncodedChunks where they are none. Absent when one exceeds a limit of
  /// `encodeCBOR`.
  static std::optional<EncodedList> encode(const LongArray& array);

  std::vector<std::shared_ptr<const ArrayChunk>> chunks;
  std::size_t count = 0;  ///< of elements
};

/// A value to be stored, as a list in rows or as bytes.
struct EncodedValue {
  /// Absent when it exceeds a limit of `encodeCBOR`.
  static std::optional<EncodedValue> encode(const Value& value);
  /// What the user is told then.
  static std::string errorFor(std::string_view key);

  Value value;
  std::optional<EncodedList> list;
  std::optional<Data> bytes;
};

inline constexpr std::int64_t HighestListNumber = (std::int64_t{1} << 38) - 1;
/// Another one for every list, as good as certainly.
std::int64_t newListNumber();

/// None for no list.
const Chunks& chunksOf(const StoredList* list);
/// How many rows hold the elements.
std::size_t chunkCount(const StoredChunks& rows);
/// The bytes of an EncodedChunk.
std::span<const std::uint8_t> bytesOf(const ArrayChunk& chunk);
bool holds(const ArrayChunk& chunk, std::span<const std::uint8_t> bytes);
bool areSame(const std::shared_ptr<const ArrayChunk>& one, const std::shared_ptr<const ArrayChunk>& other);
/// Whether the chunks make an array of that many elements. A chunk is null when its row is damaged.
bool areWhole(const Chunks& chunks, const StoredChunks& rows);
/// Null unless they are whole.
std::shared_ptr<const StoredList> listOf(Chunks chunks, const StoredChunks& rows, std::int64_t revision);

}  // namespace pellor
