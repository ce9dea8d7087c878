// The concurrent queue.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "runtime/Strand.h"

namespace pellor {

/// First in, first out: only the first waiting entry may start, and it hands the turn on before it runs, so that
/// adjacent reads get several workers.
class ConcurrentStrand final : public ConcurrentQueue, public Strand {
 public:
  ConcurrentStrand(Process& process, std::shared_ptr<Scheduler> scheduler, std::string label);

  void async(Task task) override;
  void asyncBarrier(Task task) override;
  void sync(const std::function<void()>& read) override;
  bool isCurrent() const override;
  bool runNext() noexcept override;
  void close(std::vector<Task>& dropped) override;

 private:
  struct Entry {
    Task task;  ///< null: the place of a synchronous read, which its own thread takes
    bool isBarrier = false;
    const void* waiter = nullptr;
  };
  using Lock = std::unique_lock<std::mutex>;

  void append(Entry entry);
  bool canStartFirst() const;
  bool needsTurn();
  Entry startFirst();
  void run(Entry entry, Lock& lock);
  void handOn(Lock& lock);
  void finish(bool isBarrier, Lock& lock);
  void waitForPlace(const void* waiter, Lock& lock);

  std::mutex _mutex;
  std::condition_variable _changed;
  // Guarded by _mutex.
  std::deque<Entry> _entries;  // what has not started
  std::size_t _readers = 0;    // what is running
  bool _isBarrierRunning = false;
  bool _hasTurn = false;
  std::size_t _waiters = 0;  // threads in `sync` that look at the entries
};

}  // namespace pellor
