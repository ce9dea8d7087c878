// The contract's factories of services that ask a directory.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "pellor/linux/reachability/DirectoryReachability.h"
#include "pellor/linux/reachability/IdentityService.h"
#include "pellor/runtime/Process.h"
#include "pellor/testing/contract/ReachabilityServiceContract.h"
#include "tests/linux/ServedProcesses.h"

namespace pellor {

inline std::shared_ptr<ReachabilityService> conversionsIn(const std::string& region) {
  return std::make_shared<IdentityService>([region]() -> const std::string& { return region; });
}

/// `World` is a server with what gives a directory that asks it.
template <class World>
struct DirectoryConversions {
  static std::vector<std::string> regions() { return {"DE"}; }
  std::shared_ptr<ReachabilityService> make(const std::string& region) {
    const LogHandle log("test", "reach", nullptr);
    return std::make_shared<DirectoryReachability>(process, conversionsIn(region), world.directory(), log);
  }
  Process process;
  World world;
};

template <class World>
class DirectoryQueries {
 public:
  Process& process() { return _processes.at(0); }
  ReachabilityService& service() { return _service; }
  template <class Condition>
  bool runUntil(Condition condition) {
    return _processes.runUntil(condition);
  }

 private:
  ServedProcesses _processes;
  World _world;
  DirectoryReachability _service{process(), conversionsIn("DE"), _world.directory(),
                                 LogHandle("test", "reach", nullptr)};
};

}  // namespace pellor
