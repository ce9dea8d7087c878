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

/// The array with another element in that place, less than its size. The other chunks stay.
inline LongArray withElement(const LongArray& array, std::size_t index, Value element) {
  auto chunks = array.chunks();
  auto& chunk = chunks[index / LongArray::ChunkSize];
  LongArrayElements elements;
  for (std::size_t each = 0; each < chunk->size(); ++each) elements.emplace_back(chunk, each);
  elements[index % LongArray::ChunkSize] = std::move(element);
  chunk = ArrayChunk::make(std::move(elements));
  return LongArray(std::move(chunks));
}

/// The array with one more element, behind the last. All chunks but this one's stay.
inline LongArray withAppended(const LongArray& array, Value element) {
  auto chunks = array.chunks();
  LongArrayElements elements;
  if (array.size() % LongArray::ChunkSize != 0) {
    for (std::size_t each = 0; each < chunks.back()->size(); ++each) elements.emplace_back(chunks.back(), each);
    chunks.pop_back();
  }
  elements.emplace_back(std::move(element));
  chunks.push_back(ArrayChunk::make(std::move(elements)));
  return LongArray(std::move(chunks));
}

}  // namespace pellor
