// An array too long to be copied, of which versions share what they have in common.
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "pellor/runtime/DictionaryView.h"
#include "pellor/runtime/Value.h"

namespace pellor {

/// Some neighbouring elements of a long array, immutable. The subclass decides how they are kept: as values, or encoded
/// as they came from a store. Any thread.
class ArrayChunk {
 public:
  virtual ~ArrayChunk() = default;
  ArrayChunk(const ArrayChunk&) = delete;
  ArrayChunk& operator=(const ArrayChunk&) = delete;

  virtual std::size_t size() const = 0;
  /// The element, which may have to be made for the caller.
  virtual Value at(std::size_t index) const = 0;
  /// Lets `view` be of the entries of an element that is a dictionary, for as long as the chunk lives. False for an
  /// element of another kind, and `view` is empty then.
  virtual bool view(std::size_t index, DictionaryView& view) const = 0;

  /// Where an element comes from: itself, or the chunk of an earlier version that it was taken over from.
  struct Origin {
    std::shared_ptr<const ArrayChunk> chunk;  ///< null: the element is a value of this chunk's own
    std::size_t index = 0;
  };
  virtual Origin origin(std::size_t index) const { return {nullptr, index}; }

  /// Whether this chunk is `other`, or was made of it by a store that keeps it, so that its elements are equal. False
  /// does not mean that it has not.
  virtual bool isCopyOf(const ArrayChunk& other) const { return this == &other; }

  /// One element of a new chunk: a value, or an element of another chunk, which is neither made nor copied.
  struct Element {
    Element(Value made) : value(std::move(made)) {}
    Element(std::shared_ptr<const ArrayChunk> chunk, std::size_t index) : origin{std::move(chunk), index} {}
    std::optional<Value> value;
    Origin origin;
  };
  static std::shared_ptr<const ArrayChunk> make(std::vector<Element> elements);

 protected:
  ArrayChunk() = default;
};

/// The elements are in chunks of ChunkSize, of which the last may be shorter. Equal chunks that are one object are
/// equal without looking. Copying and replacing a chunk costs no element.
class LongArray {
 public:
  static constexpr std::size_t ChunkSize = 32;

  LongArray() = default;
  explicit LongArray(std::span<const Value> elements);
  /// Every chunk but the last has ChunkSize elements.
  explicit LongArray(std::vector<std::shared_ptr<const ArrayChunk>> chunks);

  std::size_t size() const { return _size; }
  const std::vector<std::shared_ptr<const ArrayChunk>>& chunks() const { return _chunks; }
  Value at(std::size_t index) const { return _chunks[index / ChunkSize]->at(index % ChunkSize); }
  /// All elements, made for the caller.
  Array elements() const;
  /// Its elements, in the chunk objects of `earlier` wherever those are equal: what a store gives that reads an
  /// array as a whole, and is to give the chunks that did not change again.
  LongArray sharingChunksOf(const LongArray& earlier) const;

  friend bool operator==(const LongArray& left, const LongArray& right);

 private:
  std::vector<std::shared_ptr<const ArrayChunk>> _chunks;
  std::size_t _size = 0;
};

}  // namespace pellor
