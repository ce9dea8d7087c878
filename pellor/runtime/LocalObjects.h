// The objects that exist once a process, by type.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>
#include <vector>

#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

/// One object for each key. Finding an object that exists takes no lock.
class LocalObjects {
 public:
  using Make = std::shared_ptr<void> (*)();

  /// A key for one more type, which holds in all processes of the program. Any thread.
  static std::size_t newKey();

  /// The object of a key; null when it was not made. Any thread.
  void* find(std::size_t key) const { return _objects[key].load(std::memory_order_acquire); }
  /// Makes it unless another thread was faster. A constructor may ask for objects of other keys. Any thread.
  void* make(std::size_t key, Make newObject);
  /// Destroys them, last made first, and those that the destructors make on the way.
  void destroyAll();

 private:
  struct Entry {
    std::size_t key;
    std::shared_ptr<void> object;
  };
  static constexpr std::size_t MaximumCount = 256;

  std::array<std::atomic<void*>, MaximumCount> _objects{};  // written with the lock, read on any thread
  RecursiveMutex _making;
  std::vector<std::size_t> _beingMade PELLOR_GUARDED_BY(_making);
  std::vector<Entry> _made PELLOR_GUARDED_BY(_making);
};

}  // namespace pellor
