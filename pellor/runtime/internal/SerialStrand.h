// The serial queue.
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "pellor/runtime/Strand.h"

namespace pellor {

class SerialStrand final : public SerialQueue, public Strand {
 public:
  SerialStrand(Process& process, std::shared_ptr<Scheduler> scheduler, std::string label,
               QualityOfService qualityOfService);

  void async(Task task) override;
  bool isCurrent() const override;
  bool runNext() noexcept override;
  void close(std::vector<Task>& dropped) override;

 private:
  Task takeNext();
  void finish();

  Mutex _mutex;
  std::deque<Task> _tasks PELLOR_GUARDED_BY(_mutex);
  bool _hasTurn PELLOR_GUARDED_BY(_mutex) = false;  // from the submission to the end of the task
};

}  // namespace pellor
