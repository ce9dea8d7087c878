#include "pellor/list/internal/DecodedHistory.h"

#include <algorithm>
#include <set>
#include <string_view>
#include <utility>

namespace pellor {

void DecodedHistory::read(const LongArray& stored) {
  const auto& sources = stored.chunks();
  if (std::ranges::equal(sources, _chunks, {}, {}, &Chunk::source)) return;
  std::vector<Chunk> chunks;
  for (std::size_t index = 0; index < sources.size(); ++index) {
    const bool isKnown = index < _chunks.size() && sources[index]->isCopyOf(*_chunks[index].source);
    chunks.push_back(isKnown ? Chunk{sources[index], _chunks[index].elements} : decoded(sources[index]));
  }
  _chunks = std::move(chunks);
  putInOrder();
}

void DecodedHistory::noteOwn(HistoryEntry entry) {
  Dictionary element = elementOf(entry);
  const auto kept = std::make_shared<const HistoryEntry>(std::move(entry));
  _own.insert_or_assign(kept->step.id, Own{kept, std::move(element)});
}

std::size_t DecodedHistory::size() const {
  return _chunks.empty() ? 0 : (_chunks.size() - 1) * LongArray::ChunkSize + _chunks.back().elements.size();
}

const DecodedHistory::Element& DecodedHistory::at(std::size_t index) const {
  return _chunks[index / LongArray::ChunkSize].elements[index % LongArray::ChunkSize];
}

DecodedHistory::Chunk DecodedHistory::decoded(const std::shared_ptr<const ArrayChunk>& source) const {
  Chunk chunk{source, {}};
  for (std::size_t index = 0; index < source->size(); ++index) {
    const Element* element = known(*source, index);
    chunk.elements.push_back(element ? *element : decoded(source->at(index)));
  }
  return chunk;
}

// An element that was taken over from a chunk of before.
const DecodedHistory::Element* DecodedHistory::known(const ArrayChunk& source, std::size_t index) const {
  const ArrayChunk::Origin origin = source.origin(index);
  if (!origin.chunk) return nullptr;
  const auto chunk = std::ranges::find(_chunks, origin.chunk, &Chunk::source);
  return chunk == _chunks.end() ? nullptr : &chunk->elements[origin.index];
}

DecodedHistory::Element DecodedHistory::decoded(const Value& element) const {
  if (Entry own = ownOf(element)) return {own, own->moment};
  auto entry = historyEntryOf(element);
  const std::int64_t moment = momentOf(element);
  return {entry ? std::make_shared<const HistoryEntry>(*std::move(entry)) : nullptr, moment};
}

// Steps of others may have come before it: then it has another moment.
DecodedHistory::Entry DecodedHistory::ownOf(const Value& element) const {
  const auto id = element.dictionary() ? stringForKey(*element.dictionary(), "id") : std::nullopt;
  const auto own = id ? _own.find(*id) : _own.end();
  if (own == _own.end()) return nullptr;
  const std::int64_t moment = momentOf(element);
  Dictionary expected = own->second.element;
  expected.insert_or_assign(HistoryEntry::MomentKey, Value(moment));
  if (expected != *element.dictionary()) return nullptr;
  if (own->second.entry->moment == moment) return own->second.entry;
  HistoryEntry entry = *own->second.entry;
  entry.moment = moment;
  return std::make_shared<const HistoryEntry>(std::move(entry));
}

void DecodedHistory::putInOrder() {
  _entries.clear();
  for (const Chunk& chunk : _chunks)
    for (const Element& element : chunk.elements)
      if (element.entry) _entries.push_back(element.entry);
  std::ranges::stable_sort(_entries, {}, [](const Entry& entry) { return entry->moment; });
  if (_own.size() > 2 * _entries.size()) dropOwnThatLeft();
}

void DecodedHistory::dropOwnThatLeft() {
  std::set<std::string_view> ids;
  for (const Entry& entry : _entries) ids.insert(entry->step.id);
  std::erase_if(_own, [&ids](const auto& own) { return !ids.contains(own.first); });
}

}  // namespace pellor
