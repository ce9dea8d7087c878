// A vector that shares its chunks with its copies.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <map>
#include <memory>
#include <utility>
#include <vector>

namespace pellor {

/// A value whose elements are T() until they are set. A copy shares all chunks.
template <class T>
class ChunkedVector {
  static constexpr std::size_t ChunkSize = 64;
  using Chunk = std::array<T, ChunkSize>;

 public:
  const T& operator[](std::size_t index) const {
    static const T unset{};
    const std::size_t number = index / ChunkSize;
    return number < _chunks.size() && _chunks[number] ? (*_chunks[number])[index % ChunkSize] : unset;
  }

  /// The first index from `index` on whose element may be another one than in `other`: shared chunks are passed over.
  std::size_t pastShared(const ChunkedVector& other, std::size_t index) const {
    std::size_t number = index / ChunkSize;
    const std::size_t end = std::min(_chunks.size(), other._chunks.size());
    while (number < end && _chunks[number] == other._chunks[number]) index = ++number * ChunkSize;
    return index;
  }

  /// Changes a copy of a vector; each chunk is copied before its first change.
  class Edit {
   public:
    explicit Edit(const ChunkedVector& vector) : _vector(vector) {}

    const T& operator[](std::size_t index) const { return _vector[index]; }
    void set(std::size_t index, T value) { ownChunk(index / ChunkSize)[index % ChunkSize] = std::move(value); }
    /// The changed vector; nothing is changed any more then.
    ChunkedVector take() { return std::move(_vector); }

   private:
    Chunk& ownChunk(std::size_t number) {
      std::shared_ptr<Chunk>& own = _own[number];
      if (own) return *own;
      if (number >= _vector._chunks.size()) _vector._chunks.resize(number + 1);
      const auto& shared = _vector._chunks[number];
      own = shared ? std::make_shared<Chunk>(*shared) : std::make_shared<Chunk>();
      _vector._chunks[number] = own;
      return *own;
    }

    ChunkedVector _vector;
    std::map<std::size_t, std::shared_ptr<Chunk>> _own;
  };

 private:
  std::vector<std::shared_ptr<const Chunk>> _chunks;
};

}  // namespace pellor
