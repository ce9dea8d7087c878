// The serial queue.
#pragma once

#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "runtime/Strand.h"

namespace pellor {

class SerialStrand final : public SerialQueue, public Strand {
 public:
  SerialStrand(Process& process, std::shared_ptr<Scheduler> scheduler, std::string label);

  void async(Task task) override;
  bool isCurrent() const override;
  bool runNext() noexcept override;
  void close(std::vector<Task>& dropped) override;

 private:
  Task takeNext();
  void finish();

  std::mutex _mutex;
  // Guarded by _mutex.
  std::deque<Task> _tasks;
  bool _hasTurn = false;  // from the submission to the end of the task
};

}  // namespace pellor
