#include "pellor/linux/preferences/internal/StoreCopyKeeper.h"

#include <string>
#include <utility>

#include "pellor/runtime/BundleIdentifier.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

/// Shared with the observer of the store, which may outlive the keeper.
struct StoreCopyKeeper::Work : std::enable_shared_from_this<Work> {
  Work(Process& ofProcess, std::shared_ptr<SharedPreferences> ofStore, LogHandle toLog,
       std::function<double()> ofWallClock)
      : process(ofProcess), store(std::move(ofStore)), log(std::move(toLog)), wallClock(std::move(ofWallClock)) {}

  /// On the thread of the write.
  void noteWrite() {
    lastWrite = process.now();
    if (isDue.exchange(true)) return;
    queue->async([self = weak_from_this()] {
      if (const auto work = self.lock()) work->wait(work->lastWrite + Delay);
    });
  }

  void wait(double end) {
    timer = Timer::make(*queue, [self = weak_from_this()] {
      if (const auto work = self.lock()) work->timeIsUp();
    });
    timer->fireAt(end);
  }

  void timeIsUp() {
    const double end = lastWrite + Delay;
    if (end > process.now()) return wait(end);
    if (const double pause = keep(); pause > 0) wait(process.now() + pause);
  }

  /// For how long a copy has to wait still; 0 when there is nothing to wait for.
  double keep() {
    const MutexLock lock(mutex);
    if (!isDue.exchange(false)) return 0;
    const double now = wallClock();
    const auto copy = store->copyOfStore(now);
    if (!copy) return 0;
    if (copy->friends > LongestShortList) {
      if (!lastKept) lastKept = store->copies().dateOfNewest();
      const double age = lastKept ? now - *lastKept : PauseOfLongLists;
      if (age >= 0 && age < PauseOfLongLists) {
        isDue = true;
        return PauseOfLongLists - age;
      }
    }
    report(store->copies().keep(*copy));
    lastKept = now;
    return 0;
  }

  void report(const std::optional<std::string>& error) {
    if (error && !hasFailed) log.log("no copy of the store can be kept: %@", *error);
    if (!error && hasFailed) log.log("copies of the store can be kept again");
    hasFailed = error.has_value();
  }

  Process& process;
  const std::shared_ptr<SharedPreferences> store;
  const LogHandle log;
  const std::function<double()> wallClock;
  const std::shared_ptr<SerialQueue> queue = SerialQueue::make(std::string(BundleIdentifier) + ".copies");
  std::shared_ptr<Timer> timer;       // the queue's
  std::atomic<bool> isDue = false;    // writers of the store set it, the copy clears it
  std::atomic<double> lastWrite = 0;  // steady time; writers of the store
  Mutex mutex;
  std::optional<double> lastKept;  // guarded by the mutex
  bool hasFailed = false;          // guarded by the mutex
};

std::shared_ptr<StoreCopyKeeper> StoreCopyKeeper::make(Process& process, std::shared_ptr<SharedPreferences> store,
                                                       LogHandle log, std::function<double()> wallClock) {
  const Process::Scope scope(process);
  auto work = std::make_shared<Work>(process, store, std::move(log), std::move(wallClock));
  store->setWriteObserver([work = std::weak_ptr(work)] {
    if (const auto alive = work.lock()) alive->noteWrite();
  });
  return std::make_shared<StoreCopyKeeper>(Passkey{}, std::move(work));
}

StoreCopyKeeper::~StoreCopyKeeper() {
  _work->store->setWriteObserver(nullptr);
  _work->keep();
}

}  // namespace pellor
