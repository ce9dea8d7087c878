// The metadata of persons: one concurrent queue for all of them, on which reads run side by side and writes alone.
//
// No task of that queue waits for it: a write hands its notification to the main queue, and takes no lock that a thread
// may hold while it waits for a read.
#include <atomic>
#include <utility>

#include "pellor/friends/PLBundle.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/friends/internal/PLMetadataSnapshot.h"
#include "pellor/platform/PreferencesStore.h"
#include "pellor/runtime/LongArray.h"
#include "pellor/runtime/Process.h"

namespace pellor {
namespace {

// Stored, the list, its chunk, the friend and its metadata are around an entry, and all friends of a chunk share its
// row.
constexpr std::size_t DeepestEntry = DeepestPreference - 4;
constexpr std::size_t LongestMetadata = LongestPreference / (2 * LongArray::ChunkSize);
// More than any store puts before a value.
constexpr std::size_t Head = 16;

std::optional<std::size_t> lengthOf(const Dictionary& entries, std::size_t depth);

// How many bytes a store takes for the value at most; absent when it is nested deeper, or longer, than can be stored.
std::optional<std::size_t> lengthOf(const Value& value, std::size_t depth) {
  if (const std::string* text = value.string()) return Head + text->size();
  if (const Data* data = value.data()) return Head + data->size();
  if (const Dictionary* entries = value.dictionary()) return lengthOf(*entries, depth);
  const Array* elements = value.array();
  if (!elements) return Head;
  if (depth == 0) return std::nullopt;
  std::size_t length = Head;
  for (const Value& element : *elements) {
    const auto more = lengthOf(element, depth - 1);
    if (!more || (length += *more) > LongestMetadata) return std::nullopt;
  }
  return length;
}

std::optional<std::size_t> lengthOf(const Dictionary& entries, std::size_t depth) {
  if (depth == 0) return std::nullopt;
  std::size_t length = Head;
  for (const auto& [key, value] : entries) {
    const auto more = lengthOf(value, depth - 1);
    if (!more || (length += Head + key.size() + *more) > LongestMetadata) return std::nullopt;
  }
  return length;
}

bool canBeStored(const Dictionary& metadata) {
  const auto length = lengthOf(metadata, DeepestEntry + 1);
  return length && *length <= LongestMetadata;
}

struct PersonMetadataQueue {
  const std::shared_ptr<ConcurrentQueue> queue = ConcurrentQueue::make(std::string(PLPersonMetadataQueueLabel));
};

}  // namespace

PLMetadataSnapshot::PLMetadataSnapshot(PLPersonChanges& changes) : _changes(changes) {
  static std::atomic<std::uint64_t> last{0};
  PLPerson::sharedMetadataQueue().sync([this] { _changes.metadataSnapshot = ++last; });
}

PLMetadataSnapshot::~PLMetadataSnapshot() {
  PLPerson::sharedMetadataQueue().sync([this] { _changes.metadataSnapshot = 0; });
}

ConcurrentQueue& PLPerson::sharedMetadataQueue() { return *Process::current().local<PersonMetadataQueue>().queue; }

std::optional<Value> PLPerson::metadataValueForKey(const std::string& key) const {
  std::optional<Value> value;
  _metadataQueue.sync([&] {
    _metadataQueue.requireReader();
    if (const Value* found = valueForKey(_metadataDictionary(), key)) value = *found;
  });
  return value;
}

Dictionary PLPerson::metadata() const {
  Dictionary entries;
  _metadataQueue.sync([&] {
    _metadataQueue.requireReader();
    entries = _metadataDictionary();
  });
  return entries;
}

void PLPerson::setMetadataValueForKey(std::optional<Value> value, const std::string& key) {
  if (!value) return;
  _writeMetadata([value = std::move(*value), key](Dictionary& entries) { entries.insert_or_assign(key, value); });
}

void PLPerson::addMetadataEntriesFromDictionary(const Dictionary& dictionary) {
  _writeMetadata([added = dictionary](Dictionary& entries) {
    for (const auto& [key, value] : added) entries.insert_or_assign(key, value);
  });
}

void PLPerson::removeAllMetadataValues() {
  _writeMetadata([](Dictionary& entries) { entries.clear(); });
}

const Dictionary& PLPerson::_metadataDictionary() const {
  static const Dictionary none;
  return _metadata ? *_metadata : none;
}

void PLPerson::_setMetadataDictionary(Dictionary entries) {
  _metadata = entries.empty() ? nullptr : std::make_unique<const Dictionary>(std::move(entries));
  _lastChange.end(_changes);
  _changes.touches.noteElsewhere();
}

void PLPerson::_keepForSnapshot() {
  const std::uint64_t snapshot = _changes.metadataSnapshot.load(std::memory_order_relaxed);
  if (snapshot == 0) {
    _keptMetadata = nullptr;
  } else if (!_metadataInSnapshot()) {
    _keptMetadata = std::make_unique<const MetadataCache>(MetadataCache{snapshot, _metadataDictionary()});
  }
}

const Dictionary* PLPerson::_metadataInSnapshot() const {
  const std::uint64_t snapshot = _changes.metadataSnapshot.load(std::memory_order_relaxed);
  const bool isKept = snapshot != 0 && _keptMetadata && _keptMetadata->snapshot == snapshot;
  return isKept ? &_keptMetadata->entries : nullptr;
}

void PLPerson::_createMetadata(const Dictionary& entries) {
  if (!entries.empty()) _metadata = std::make_unique<const Dictionary>(entries);
}

void PLPerson::_writeMetadata(std::function<void(Dictionary&)> write) {
  _changes.touches.noteElsewhere();
  _lastChange.begin(_changes);
  _metadataQueue.asyncBarrier([weak = weak_from_this(), write = std::move(write)] {
    const auto self = weak.lock();
    if (!self) return;
    self->_metadataQueue.requireCurrent();
    Dictionary entries = self->_metadataDictionary();
    write(entries);
    // Else no save of any friend would succeed any more.
    if (!canBeStored(entries)) {
      self->_lastChange.end(self->_changes);
      _PLGetLogSystem().log(
          LogFormat("metadata is nested too deeply or too long to be stored, and was not set").as("_writeMetadata"));
      return;
    }
    self->_keepForSnapshot();
    self->_setMetadataDictionary(std::move(entries));
    self->setNeedsSave(true);
    self->_postChangeNotification();
  });
}

}  // namespace pellor
