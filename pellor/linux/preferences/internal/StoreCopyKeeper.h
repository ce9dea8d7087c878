// When copies of the store are made.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "pellor/linux/preferences/SharedPreferences.h"
#include "pellor/runtime/Log.h"
#include "pellor/runtime/Process.h"
#include "pellor/runtime/Queue.h"
#include "pellor/runtime/Timer.h"

namespace pellor {

/// Keeps a copy of the store 2 seconds after the last write of this process, on a queue of its own, and as the keeper
/// ends what is due then. Of a list of more than 1,000 friends a copy is made once a minute at most. What fails is said
/// on the log, and tried again with the next write.
class StoreCopyKeeper {
 public:
  /// In seconds.
  static constexpr double Delay = 2, PauseOfLongLists = 60;
  static constexpr std::uint64_t LongestShortList = 1000;

  /// Begins to follow the writes of the store. `wallClock` gives seconds since 2001. Main queue.
  static std::shared_ptr<StoreCopyKeeper> make(Process& process, std::shared_ptr<SharedPreferences> store,
                                               LogHandle log, std::function<double()> wallClock);
  ~StoreCopyKeeper();
  StoreCopyKeeper(const StoreCopyKeeper&) = delete;
  StoreCopyKeeper& operator=(const StoreCopyKeeper&) = delete;

 private:
  struct Passkey {};
  struct Work;

 public:
  StoreCopyKeeper(Passkey, std::shared_ptr<Work> work) : _work(std::move(work)) {}

 private:
  const std::shared_ptr<Work> _work;
};

}  // namespace pellor
