// The elements of attached arrays, put together anew without being made.
#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

#include "pellor/runtime/LongArray.h"

namespace pellor {

using AttachedElements = std::vector<ArrayChunk::Element>;

inline ArrayChunk::Element elementAt(const LongArray& array, std::size_t index) {
  return {array.chunks()[index / LongArray::ChunkSize], index % LongArray::ChunkSize};
}

inline AttachedElements elementsFrom(const LongArray& array, std::size_t first) {
  AttachedElements elements;
  for (std::size_t index = first; index < array.size(); ++index) elements.push_back(elementAt(array, index));
  return elements;
}

inline LongArray arrayOf(AttachedElements elements) {
  std::vector<std::shared_ptr<const ArrayChunk>> chunks;
  for (auto first = elements.begin(); first != elements.end();) {
    const auto end = first + std::min(elements.end() - first, static_cast<std::ptrdiff_t>(LongArray::ChunkSize));
    chunks.push_back(ArrayChunk::make({std::make_move_iterator(first), std::make_move_iterator(end)}));
    first = end;
  }
  return LongArray(std::move(chunks));
}

}  // namespace pellor
