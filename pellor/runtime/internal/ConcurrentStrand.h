// The concurrent queue.
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "pellor/runtime/Strand.h"

namespace pellor {

/// First in, first out: only the first waiting entry may start, and it hands the turn on before it runs, so that
/// adjacent reads get several workers.
class ConcurrentStrand final : public ConcurrentQueue, public Strand {
 public:
  ConcurrentStrand(Process& process, std::shared_ptr<Scheduler> scheduler, std::string label,
                   QualityOfService qualityOfService);

  void async(Task task) override;
  void asyncBarrier(Task task) override;
  bool isCurrent() const override;
  bool runNext() noexcept override;
  void close(std::vector<Task>& dropped) override;

 private:
  struct Entry {
    Task task;  ///< null: the place of a synchronous read, which its own thread takes
    bool isBarrier = false;
    const void* waiter = nullptr;
  };
  /// The follow-up of a change that lets entries start, to be done without the lock.
  struct HandOn {
    bool wakesWaiters = false;
    bool asksForTurn = false;
  };

  /// Where the next turn is taken: by the worker whose turn ends with the call, or by another one.
  enum class TurnAfter { inThisThread, askedFor };

  void syncRead(const std::function<void()>& read) override;
  bool isCurrentAlone() const override PELLOR_UNCHECKED;
  void append(Entry entry);
  bool canStartFirst() const PELLOR_REQUIRES(_mutex);
  bool needsTurn() const PELLOR_REQUIRES(_mutex);
  Entry startFirst() PELLOR_REQUIRES(_mutex);
  HandOn takeHandOn() PELLOR_REQUIRES(_mutex);
  void enterInTurn(const void* waiter) PELLOR_EXCLUDES(_mutex);
  void waitForPlace(const void* waiter) PELLOR_REQUIRES(_mutex);
  void handOn(HandOn handOn, TurnAfter turn = TurnAfter::askedFor) PELLOR_EXCLUDES(_mutex);
  void run(Entry entry, HandOn before, TurnAfter turn) PELLOR_EXCLUDES(_mutex);
  void finish(bool isBarrier, TurnAfter turn) PELLOR_EXCLUDES(_mutex);

  Mutex _mutex;
  Condition _changed;
  std::deque<Entry> _entries PELLOR_GUARDED_BY(_mutex);  // entries that have not started
  std::size_t _readers PELLOR_GUARDED_BY(_mutex) = 0;    // reads that are running
  bool _isBarrierRunning PELLOR_GUARDED_BY(_mutex) = false;
  bool _hasTurn PELLOR_GUARDED_BY(_mutex) = false;
  std::size_t _waiters PELLOR_GUARDED_BY(_mutex) = 0;  // threads in `sync` that look at the entries
};

}  // namespace pellor
