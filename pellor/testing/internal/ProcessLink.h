// The way from a simulated world into a process.
#pragma once

#include <memory>
#include <string_view>

#include "pellor/runtime/Process.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

/// Leads to the main queue of a process, and nowhere once the process has ended: what is shared by several processes
/// may hold one without keeping a process alive.
class ProcessLink {
 public:
  /// The one link of a process. Main queue.
  static std::shared_ptr<ProcessLink> of(Process& process);

  explicit ProcessLink(Process& process) : _process(&process) {}
  ProcessLink(const ProcessLink&) = delete;
  ProcessLink& operator=(const ProcessLink&) = delete;

  /// Queues the task on the process's main queue; drops it when the process has ended. Any thread.
  void async(Task task);
  /// Ends the program unless the process is alive and the caller runs on its main queue.
  void requireMainQueue(std::string_view operation) const;
  /// The process; null once it has ended. Valid on its main queue.
  Process* process() const;
  /// Called when the process ends.
  void end();

 private:
  mutable Mutex _mutex;
  Process* _process PELLOR_GUARDED_BY(_mutex);
};

}  // namespace pellor
