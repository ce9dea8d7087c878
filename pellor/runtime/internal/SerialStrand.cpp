#include "pellor/runtime/internal/SerialStrand.h"

#include <iterator>
#include <utility>

#include "pellor/runtime/Fatal.h"
#include "pellor/runtime/Process.h"
#include "pellor/runtime/Scheduler.h"
#include "pellor/runtime/TaskContext.h"

namespace pellor {

SerialStrand::SerialStrand(Process& process, std::shared_ptr<Scheduler> scheduler, std::string label,
                           QualityOfService qualityOfService)
    : SerialQueue(process, std::move(label)), Strand(process, std::move(scheduler), qualityOfService) {}

void SerialStrand::async(Task task) {
  require(task != nullptr, "a task to queue");
  {
    const MutexLock lock(_mutex);
    if (isClosed()) return;
    process().taskQueued();
    _tasks.push_back(std::move(task));
    if (std::exchange(_hasTurn, true)) return;
  }
  scheduler().submit(asStrand(*this));
}

bool SerialStrand::isCurrent() const { return TaskContext::innermostQueue() == this; }

bool SerialStrand::runNext() noexcept {
  Task task = takeNext();
  if (!task) return false;
  runTask(*this, std::move(task));
  finish();
  process().taskEnded();
  return true;
}

Task SerialStrand::takeNext() {
  const MutexLock lock(_mutex);
  // Closing may have emptied the queue after the turn was asked for.
  if (_tasks.empty()) return nullptr;
  Task task = std::move(_tasks.front());
  _tasks.pop_front();
  return task;
}

void SerialStrand::finish() {
  {
    const MutexLock lock(_mutex);
    _hasTurn = !_tasks.empty();
    if (!_hasTurn) return;
  }
  scheduler().submitAgain(asStrand(*this));
}

void SerialStrand::close(std::vector<Task>& dropped) {
  const MutexLock lock(_mutex);
  markClosed();
  dropped.insert(dropped.end(), std::move_iterator(_tasks.begin()), std::move_iterator(_tasks.end()));
  _tasks.clear();
}

}  // namespace pellor
