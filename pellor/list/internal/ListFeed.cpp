#include "pellor/list/internal/ListFeed.h"

#include <algorithm>
#include <utility>

#include "pellor/runtime/NotificationCenter.h"

namespace pellor {

/// An observer and what it was told last.
struct ListFeed::Listener {
  ListObserver observer;
  std::uint64_t toldOf;  ///< number of a batch
  std::weak_ptr<const void> life;
  bool knowsOfLoad = false;
  std::optional<StoreTrouble> knownTrouble = {};
};

namespace {

/// Ends a registration with its last handle, on the main queue's thread.
template <class Listener>
class Registration final : public Observation {
 public:
  explicit Registration(std::shared_ptr<Listener> listener) : _listener(std::move(listener)) {}

 private:
  const std::shared_ptr<Listener> _listener;
};

}  // namespace

ListFeed::ListFeed(Process& process, ListMirror& mirror, std::function<bool()> isLoaded)
    : _process(process), _mirror(mirror), _isLoaded(std::move(isLoaded)) {}

const Snapshot& ListFeed::note(ChangeOrigin origin, const ListDraft* step) {
  const Snapshot& now = _mirror.update(step);
  if (now == _last) return now;
  const bool goesOn = !_batches.empty() && !_isSealed && _batches.back().origin == origin;
  if (goesOn) {
    _batches.back().after = now;
  } else {
    _batches.push_back({++_lastNumber, _last, now, origin});
    _isSealed = false;
  }
  _last = now;
  tellSoon();
  return now;
}

// Persons and the manager report changes in tasks of their own, which the end of a load or refresh queues: the
// observers are told after these.
void ListFeed::noteWithReports(ChangeOrigin origin) {
  note(origin);
  _originOfRest = origin;
  _awaitsReports = true;
  tellSoon();
}

std::shared_ptr<Observation> ListFeed::observe(ListObserver observer, const std::shared_ptr<const void>& life) {
  noteRest();
  _isSealed = true;
  const auto listener = std::make_shared<Listener>(Listener{std::move(observer), _lastNumber, life});
  _listeners.push_back(listener);
  tellSoon();
  return std::make_shared<Registration<Listener>>(listener);
}

void ListFeed::tellSoon() {
  if (std::exchange(_isTellingSoon, true)) return;
  _process.mainQueue().async([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->tell();
  });
}

void ListFeed::tell() {
  if (std::exchange(_awaitsReports, false)) {
    _isTellingSoon = false;
    return tellSoon();
  }
  noteRest();
  _isTellingSoon = false;
  _originOfRest = ChangeOrigin::thisProgram;
  // Observers may come and go, and edit, while they are told.
  const auto listeners = _listeners;
  for (const auto& listener : listeners) tellTrouble(listener);
  if (!_isLoaded()) return;
  const auto batches = std::exchange(_batches, {});
  for (const auto& listener : listeners) tell(listener, batches);
  std::erase_if(_listeners, [](const auto& listener) { return listener.expired(); });
}

void ListFeed::noteTrouble(std::optional<StoreTrouble> trouble) {
  _trouble = std::move(trouble);
  tellSoon();
}

std::shared_ptr<ListFeed::Listener> ListFeed::living(const std::weak_ptr<Listener>& listener) {
  const auto held = listener.lock();
  return held && !held->life.expired() ? held : nullptr;
}

// Of an observer that came before the list was read; others begin with the list of now.
const ListFeed::Batch* ListFeed::loadIn(const std::vector<Batch>& batches, std::uint64_t toldOf) {
  const auto isLoad = [&](const Batch& batch) { return batch.origin == ChangeOrigin::load && batch.number > toldOf; };
  const auto found = std::ranges::find_if(batches, isLoad);
  return found == batches.end() ? nullptr : &*found;
}

void ListFeed::tellTrouble(const std::weak_ptr<Listener>& listener) {
  const auto held = living(listener);
  const auto trouble = _trouble;
  if (!held || std::exchange(held->knownTrouble, trouble) == trouble) return;
  if (held->observer.trouble) held->observer.trouble(trouble);
}

// A listener that ends, by its own hand too, hears nothing any more, also of these batches.
void ListFeed::tell(const std::weak_ptr<Listener>& listener, const std::vector<Batch>& batches) {
  if (const auto held = living(listener); held && !std::exchange(held->knowsOfLoad, true)) {
    const Batch* load = loadIn(batches, held->toldOf);
    held->toldOf = load ? load->number : batches.empty() ? held->toldOf : batches.back().number;
    if (held->observer.loaded) held->observer.loaded(load ? load->after : _last);
  }
  for (const Batch& batch : batches) {
    const auto held = living(listener);
    if (!held || held->toldOf >= batch.number) continue;
    held->toldOf = batch.number;
    ListChange change = changeBetween(batch.before, batch.after);
    change.origin = batch.origin;
    if (!change.isEmpty() && held->observer.changed) held->observer.changed(change);
  }
}

}  // namespace pellor
