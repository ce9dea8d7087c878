#include "pellor/testing/internal/ProcessLink.h"

#include "pellor/runtime/Fatal.h"

namespace pellor {

namespace {

struct LinkOfProcess {
  std::shared_ptr<ProcessLink> link;
  ~LinkOfProcess() {
    if (link) link->end();
  }
};

}  // namespace

std::shared_ptr<ProcessLink> ProcessLink::of(Process& process) {
  auto& holder = process.local<LinkOfProcess>();
  if (!holder.link) holder.link = std::make_shared<ProcessLink>(process);
  return holder.link;
}

void ProcessLink::async(Task task) {
  // The lock is held so that the process cannot end in between.
  const MutexLock lock(_mutex);
  if (_process) _process->mainQueue().async(std::move(task));
}

void ProcessLink::requireMainQueue(std::string_view operation) const {
  Process* living = process();
  require(living != nullptr, "a platform service whose process is alive");
  living->requireMainQueue(operation);
}

Process* ProcessLink::process() const {
  const MutexLock lock(_mutex);
  return _process;
}

void ProcessLink::end() {
  const MutexLock lock(_mutex);
  _process = nullptr;
}

}  // namespace pellor
