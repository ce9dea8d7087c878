// A chunk of a long array as the CBOR that the store keeps of it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "pellor/runtime/LongArray.h"

namespace pellor {

/// One CBOR array of at most LongArray::ChunkSize elements. Its bytes were checked when it was made, so that showing an
/// element cannot fail; nothing is decoded before it is asked for, and nothing decoded is kept. Any thread.
class EncodedChunk final : public ArrayChunk {
 public:
  /// Null unless `decodeCBOR` would give an array of one to ChunkSize elements for the bytes.
  static std::shared_ptr<const EncodedChunk> decode(std::span<const std::uint8_t> bytes);
  /// The elements of another chunk. Those that are encoded already are copied as they are. Null unless they are one to
  /// ChunkSize and the array that holds them keeps the limits of `encodeCBOR`.
  static std::shared_ptr<const EncodedChunk> encode(const std::shared_ptr<const ArrayChunk>& chunk);

  std::size_t size() const override { return _size; }
  Value at(std::size_t index) const override;
  bool view(std::size_t index, DictionaryView& view) const override;
  bool isCopyOf(const ArrayChunk& other) const override { return this == &other || _madeOf.lock().get() == &other; }

  std::span<const std::uint8_t> bytes() const { return _bytes; }

 private:
  struct Passkey {};

 public:
  explicit EncodedChunk(Passkey) {}

 private:
  bool findElements();
  bool putInOrder();
  static bool append(const ArrayChunk& chunk, std::size_t index, Data& bytes);
  std::span<const std::uint8_t> element(std::size_t index) const;

  Data _bytes;
  std::weak_ptr<const ArrayChunk> _madeOf;
  std::size_t _size = 0;
  /// Where the elements begin, and where the last one ends.
  std::array<std::uint32_t, LongArray::ChunkSize + 1> _offsets{};
};

}  // namespace pellor
