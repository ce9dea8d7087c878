#include "pellor/runtime/LocalObjects.h"

#include <algorithm>
#include <utility>

#include "pellor/runtime/Fatal.h"

namespace pellor {

std::size_t LocalObjects::newKey() {
  static std::atomic<std::size_t> count = 0;  // counted by the first use of a type, on any thread
  const std::size_t key = count++;
  require(key < MaximumCount, "no more types of process-local objects than there is room for");
  return key;
}

void* LocalObjects::make(std::size_t key, Make newObject) {
  const MutexLock lock(_making);
  if (void* made = find(key)) return made;
  require(std::ranges::find(_beingMade, key) == _beingMade.end(), "a process-local object that does not need itself");
  _beingMade.push_back(key);
  auto object = newObject();
  _beingMade.pop_back();
  void* pointer = object.get();
  _made.push_back({key, std::move(object)});
  _objects[key].store(pointer, std::memory_order_release);
  return pointer;
}

void LocalObjects::destroyAll() {
  const MutexLock lock(_making);
  while (!_made.empty()) {
    // The object can be found until its destructor has run: what it owns may ask for it.
    Entry last = std::move(_made.back());
    _made.pop_back();
    last.object.reset();
    _objects[last.key].store(nullptr, std::memory_order_release);
  }
}

}  // namespace pellor
