#include "pellor/runtime/Strand.h"

#include <utility>

#include "pellor/runtime/Scheduler.h"
#include "pellor/runtime/TaskContext.h"

namespace pellor {

Strand::Strand(const Process& owner, std::shared_ptr<Scheduler> scheduler, QualityOfService qualityOfService)
    : _owner(&owner), _scheduler(std::move(scheduler)), _qualityOfService(qualityOfService) {}

Strand::~Strand() = default;

Deadline Strand::setDeadline(std::weak_ptr<TimerState> timer, std::uint64_t generation, double time) {
  if (isClosed()) return {};
  return _scheduler->setDeadline({std::move(timer), generation, _owner}, time);
}

void Strand::clearDeadline(Deadline deadline) { _scheduler->clearDeadline(deadline); }

double Strand::now() const { return _scheduler->now(); }

void Strand::runTask(const Queue& queue, Task&& task) {
  const TaskContext context(queue.process(), &queue, TaskContext::Kind::task);
  task();
  // Inside the context: what the captures do as they are destroyed is still part of the task.
  task = nullptr;
}

}  // namespace pellor
