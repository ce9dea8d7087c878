// A small simulated world for a target.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "pellor/friends/PLFriendsManager.h"
#include "pellor/list/FriendList.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/Process.h"
#include "pellor/testing/LogCollector.h"
#include "pellor/testing/SimulatedScheduler.h"
#include "pellor/testing/SimulatedWorld.h"

namespace pellor::fuzzing {

/// Pages of four slots, three at most, and a contact for "Ann" and "Bob".
class FuzzedWorld {
 public:
  FuzzedWorld();

  SimulatedWorld& world() { return _world; }
  const std::shared_ptr<SimulatedScheduler>& scheduler() const { return _scheduler; }
  void set(std::string_view key, std::optional<Value> value) {
    _world.preferences().setValue(key, std::move(value), TapnoteDomain);
  }
  /// Runs everything, until nothing is left to do and no timer is set.
  void rest();

 private:
  SimulatedWorld _world;
  const std::shared_ptr<SimulatedScheduler> _scheduler = std::make_shared<SimulatedScheduler>(1);
};

/// A process of that world, with a list once it is opened.
class FuzzedProcess {
 public:
  explicit FuzzedProcess(FuzzedWorld& world);
  ~FuzzedProcess();
  FuzzedProcess(const FuzzedProcess&) = delete;
  FuzzedProcess& operator=(const FuzzedProcess&) = delete;

  template <class Work>
  auto run(Work&& work) {
    const Process::Scope scope(*_process);
    return work();
  }

  void open();
  FriendList& list() { return *_list; }
  PLFriendsManager& manager() { return *_manager; }
  /// All that the process shows: pages, titles, slots, what friends carry, as an exported list in bytes. Friends
  /// without destinations and empty pages behind the last friend are left out: who loads a list passes over such a
  /// friend where the page is not there yet, who has him keeps him.
  Data shown();

 private:
  std::unique_ptr<Process> _process;
  std::shared_ptr<PLFriendsManager> _manager;
  std::unique_ptr<FriendList> _list;
};

/// Fatal unless the process's list is sound.
void requireSound(FuzzedProcess& process);
/// Fatal unless both show the same.
void requireSame(FuzzedProcess& one, FuzzedProcess& other);

}  // namespace pellor::fuzzing
