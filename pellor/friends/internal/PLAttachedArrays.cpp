#include "pellor/friends/internal/PLAttachedArrays.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>
#include <unordered_map>
#include <utility>

#include "pellor/runtime/LongArrayElements.h"

namespace pellor {
namespace {

// One without an id is known by all that it says.
std::string idOf(const Value& element) {
  const Value* id = element.dictionary() ? valueForKey(*element.dictionary(), "id") : nullptr;
  return id && id->string() ? *id->string() : element.description();
}

std::int64_t numberIn(const Value& element, const std::string& member) {
  const Value* number = element.dictionary() ? valueForKey(*element.dictionary(), member) : nullptr;
  return number ? number->integer().value_or(0) : 0;
}

// What was added beside others gets numbers above theirs, in its own order.
void putBehind(Array& added, const Array& others, const std::string& member) {
  std::int64_t last = 0;
  for (const Value& element : others) last = std::max(last, numberIn(element, member));
  std::ranges::stable_sort(added, {}, [&](const Value& element) { return numberIn(element, member); });
  for (Value& element : added) {
    last = std::max(last + 1, numberIn(element, member));
    if (!element.dictionary() || last == numberIn(element, member)) continue;
    Dictionary renumbered = *element.dictionary();
    renumbered.insert_or_assign(member, Value(last));
    element = std::move(renumbered);
  }
}

class ElementsByID {
 public:
  explicit ElementsByID(const LongArray& array) : _elements(array.elements()) {
    for (std::size_t index = 0; index < _elements.size(); ++index) _indexes.emplace(idOf(_elements[index]), index);
  }
  const Array& elements() const { return _elements; }
  /// Null when there is none.
  const Value* find(const std::string& id) const {
    const auto found = _indexes.find(id);
    return found == _indexes.end() ? nullptr : &_elements[found->second];
  }

 private:
  const Array _elements;
  std::unordered_map<std::string, std::size_t> _indexes;
};

}  // namespace

LongArray newestElements(const LongArray& array, const PLAttachedLimits& limits) {
  if (array.size() <= limits.mostElements) return array;
  if (limits.order.empty()) return arrayOf(elementsFrom(array, array.size() - limits.mostElements));
  Array elements = array.elements();
  std::ranges::stable_sort(elements, {}, [&](const Value& element) { return numberIn(element, limits.order); });
  return LongArray(std::span(elements).last(limits.mostElements));
}

LongArray mergedArrays(const LongArray& base, const LongArray& theirs, const LongArray& ours,
                       const PLAttachedLimits& limits) {
  const ElementsByID known(base), stored(theirs), live(ours);
  Array merged, added;
  for (const Value& element : stored.elements()) {
    const std::string id = idOf(element);
    const Value *before = known.find(id), *own = live.find(id);
    if (before && !own) continue;
    const bool isOurs = own && (!before || *own != *before);
    merged.push_back(isOurs ? *own : element);
  }
  for (const Value& element : live.elements()) {
    const std::string id = idOf(element);
    if (!known.find(id) && !stored.find(id)) added.push_back(element);
  }
  if (!limits.order.empty()) putBehind(added, merged, limits.order);
  merged.insert(merged.end(), added.begin(), added.end());
  return newestElements(LongArray(merged), limits);
}

void PLAttachedArrays::attach(const std::string& key, PLAttachedLimits limits) {
  const bool isHistory = limits.isHistory();
  _live[key].limits = std::move(limits);
  const MutexLock lock(_mutex);
  if (isHistory) _histories.try_emplace(key, false);
}

const LongArray& PLAttachedArrays::at(const std::string& key) const {
  static const LongArray none;
  const auto found = _live.find(key);
  return found == _live.end() ? none : found->second.elements;
}

void PLAttachedArrays::set(const std::string& key, LongArray elements) {
  const auto found = _live.find(key);
  if (found == _live.end()) return;
  found->second.elements = newestElements(elements, found->second.limits);
  mark(key, found->second.elements);
}

void PLAttachedArrays::mark(const std::string& key, const LongArray& elements) {
  const MutexLock lock(_mutex);
  const auto before = _marked.find(key);
  const bool wasMarked = before != _marked.end() && !before->second.waits;
  _marked[key] = {elements, _isSetQuietly && !wasMarked};
  noteMarks();
}

void PLAttachedArrays::noteMarks() {
  _isMarked = std::ranges::any_of(_marked, [](const auto& mark) { return !mark.second.waits; });
}

void PLAttachedArrays::setQuietlyDuring(const std::function<void()>& edits) {
  _isSetQuietly = true;
  edits();
  _isSetQuietly = false;
}

bool PLAttachedArrays::isWaiting() const {
  const MutexLock lock(_mutex);
  return std::ranges::any_of(_marked, [](const auto& mark) { return mark.second.waits; });
}

PLAttachedVersions PLAttachedArrays::known() const {
  const MutexLock lock(_mutex);
  return _known;
}

PLAttachedArray PLAttachedArrays::known(const std::string& key) const {
  const MutexLock lock(_mutex);
  const auto found = _known.find(key);
  return found == _known.end() ? PLAttachedArray() : found->second;
}

bool PLAttachedArrays::areKnown(const PLAttachedVersions& stored) const {
  return std::ranges::all_of(stored, [this](const auto& array) {
    return !_live.contains(array.first) || known(array.first).version == array.second.version;
  });
}

bool PLAttachedArrays::areHistoriesUntouched(const PLAttachedVersions& stored) const {
  const MutexLock lock(_mutex);
  for (const auto& [key, isOfBaseline] : _histories)
    if (!isOfBaseline || stored.at(key).version != _known.at(key).version) return false;
  return !_histories.empty();
}

// An array of another store does not come from the one that is known, unless it is that very array: nothing counts as
// taken out there.
void PLAttachedArrays::takeOver(const PLAttachedVersions& stored, bool isOfBaseline) {
  for (auto& [key, live] : _live) {
    const auto theirs = stored.find(key);
    const PLAttachedArray before = known(key);
    if (theirs == stored.end()) continue;
    const MutexLock lock(_mutex);
    if (const auto history = _histories.find(key); history != _histories.end()) history->second = isOfBaseline;
    const auto own = _marked.find(key);
    if (theirs->second.version != before.version) {
      const bool isOtherStore = theirs->second.version.store != before.version.store;
      const bool isOther = isOtherStore && before.elements != theirs->second.elements;
      const LongArray base = isOther ? LongArray() : before.elements;
      _known[key] = theirs->second;
      live.elements = own == _marked.end()
                          ? theirs->second.elements
                          : mergedArrays(base, theirs->second.elements, own->second.elements, live.limits);
    }
    if (own == _marked.end()) continue;
    own->second.elements = live.elements;
    if (live.elements == theirs->second.elements) _marked.erase(own);
    noteMarks();
  }
}

void PLAttachedArrays::shareStoredChunks() {
  for (auto& [key, live] : _live) {
    const LongArray stored = known(key).elements;
    auto chunks = live.elements.chunks();
    for (std::size_t index = 0; index < std::min(chunks.size(), stored.chunks().size()); ++index) {
      if (stored.chunks()[index]->isCopyOf(*chunks[index])) chunks[index] = stored.chunks()[index];
    }
    live.elements = LongArray(std::move(chunks));
  }
}

PLAttachedArrays::Changes PLAttachedArrays::take() {
  if (!_isMarked) return {};
  const MutexLock lock(_mutex);
  Changes changes;
  for (auto& [key, mark] : _marked)
    if (!mark.waits) changes[key] = {std::move(mark.elements), _known[key].version};
  std::erase_if(_marked, [](const auto& mark) { return !mark.second.waits; });
  _isMarked = false;
  return changes;
}

// One that was not read yet has no version: the write is overtaken by what is stored.
void PLAttachedArrays::takeAlong(Changes& changes, bool changesList) {
  const MutexLock lock(_mutex);
  for (auto& [key, mark] : _marked)
    if (mark.waits) changes[key] = {std::move(mark.elements), _known[key].version};
  std::erase_if(_marked, [](const auto& mark) { return mark.second.waits; });
  if (!changesList) return;
  for (const auto& [key, isOfBaseline] : _histories) changes.try_emplace(key, _known[key]);
}

void PLAttachedArrays::giveBack(const Changes& changes) {
  if (changes.empty()) return;
  const MutexLock lock(_mutex);
  for (const auto& [key, change] : changes) _marked.try_emplace(key, Mark{change.elements, false});
  noteMarks();
}

void PLAttachedArrays::noteWritten(const Changes& changes, const VersionedPreferences& written) {
  if (changes.empty()) return;
  const MutexLock lock(_mutex);
  for (const auto& [key, change] : changes) {
    const auto stored = written.find(key);
    if (stored == written.end()) continue;
    const LongArray* array = stored->second.value ? stored->second.value->longArray() : nullptr;
    _known[key] = {array ? *array : change.elements, stored->second.version};
  }
}

}  // namespace pellor
