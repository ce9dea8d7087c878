// Elements of long arrays, put together to others without being made.
#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

#include "pellor/runtime/LongArray.h"

namespace pellor {

using LongArrayElements = std::vector<ArrayChunk::Element>;

/// The element in its place, less than the array's size.
inline ArrayChunk::Element elementAt(const LongArray& array, std::size_t index) {
  return {array.chunks()[index / LongArray::ChunkSize], index % LongArray::ChunkSize};
}

/// Those from a place on, at most the array's size.
inline LongArrayElements elementsFrom(const LongArray& array, std::size_t first) {
  LongArrayElements elements;
  for (std::size_t index = first; index < array.size(); ++index) elements.push_back(elementAt(array, index));
  return elements;
}

/// The array of these elements.
inline LongArray arrayOf(LongArrayElements elements) {
  std::vector<std::shared_ptr<const ArrayChunk>> chunks;
  for (auto first = elements.begin(); first != elements.end();) {
    const auto end = first + std::min(elements.end() - first, static_cast<std::ptrdiff_t>(LongArray::ChunkSize));
    chunks.push_back(ArrayChunk::make({std::make_move_iterator(first), std::make_move_iterator(end)}));
    first = end;
  }
  return LongArray(std::move(chunks));
}

}  // namespace pellor
