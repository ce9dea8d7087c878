#include "pellor/runtime/LongArray.h"

#include <algorithm>
#include <utility>

#include "pellor/runtime/Fatal.h"

namespace pellor {
namespace {

class PlainChunk final : public ArrayChunk {
 public:
  explicit PlainChunk(std::vector<Element> elements) : _elements(std::move(elements)) {}

  std::size_t size() const override { return _elements.size(); }

  Value at(std::size_t index) const override {
    const Element& element = _elements[index];
    return element.value ? *element.value : element.origin.chunk->at(element.origin.index);
  }

  bool view(std::size_t index, DictionaryView& view) const override {
    const Element& element = _elements[index];
    if (!element.value) return element.origin.chunk->view(element.origin.index, view);
    view.clear();
    const Dictionary* dictionary = element.value->dictionary();
    if (dictionary) view.assign(*dictionary);
    return dictionary != nullptr;
  }

  Origin origin(std::size_t index) const override {
    const Element& element = _elements[index];
    return element.value ? Origin{nullptr, index} : element.origin;
  }

 private:
  const std::vector<Element> _elements;
};

bool areEqual(const ArrayChunk& left, const ArrayChunk& right) {
  if (left.size() != right.size()) return false;
  for (std::size_t index = 0; index < left.size(); ++index) {
    if (left.at(index) != right.at(index)) return false;
  }
  return true;
}

}  // namespace

// An element of an element is taken from its first home, so that versions do not hang on to one another.
std::shared_ptr<const ArrayChunk> ArrayChunk::make(std::vector<Element> elements) {
  for (Element& element : elements) {
    if (element.value) continue;
    Origin home = element.origin.chunk->origin(element.origin.index);
    if (home.chunk) {
      element.origin = std::move(home);
    } else if (dynamic_cast<const PlainChunk*>(element.origin.chunk.get())) {
      element = Element(element.origin.chunk->at(element.origin.index));
    }
  }
  return std::make_shared<const PlainChunk>(std::move(elements));
}

LongArray::LongArray(std::span<const Value> elements) : _size(elements.size()) {
  for (std::size_t first = 0; first < elements.size(); first += ChunkSize) {
    const auto part = elements.subspan(first, std::min(ChunkSize, elements.size() - first));
    _chunks.push_back(ArrayChunk::make({part.begin(), part.end()}));
  }
}

LongArray::LongArray(std::vector<std::shared_ptr<const ArrayChunk>> chunks) : _chunks(std::move(chunks)) {
  for (std::size_t index = 0; index < _chunks.size(); ++index) {
    require(index + 1 == _chunks.size() || _chunks[index]->size() == ChunkSize, "full runs before the last");
    _size += _chunks[index]->size();
  }
}

Array LongArray::elements() const {
  Array elements;
  elements.reserve(_size);
  for (const auto& chunk : _chunks) {
    for (std::size_t index = 0; index < chunk->size(); ++index) elements.push_back(chunk->at(index));
  }
  return elements;
}

LongArray LongArray::sharingChunksOf(const LongArray& earlier) const {
  LongArray shared = *this;
  for (std::size_t index = 0; index < std::min(_chunks.size(), earlier._chunks.size()); ++index) {
    if (areEqual(*_chunks[index], *earlier._chunks[index])) shared._chunks[index] = earlier._chunks[index];
  }
  return shared;
}

bool operator==(const LongArray& left, const LongArray& right) {
  return left._size == right._size &&
         std::ranges::equal(left._chunks, right._chunks,
                            [](const auto& one, const auto& two) { return one == two || areEqual(*one, *two); });
}

}  // namespace pellor
