#include "pellor/runtime/Queue.h"

#include <utility>

#include "pellor/runtime/Fatal.h"
#include "pellor/runtime/Process.h"
#include "pellor/runtime/Scheduler.h"
#include "pellor/runtime/internal/ConcurrentStrand.h"
#include "pellor/runtime/internal/FunctionName.h"
#include "pellor/runtime/internal/SerialStrand.h"

namespace pellor {

namespace {

template <class ConcreteQueue>
std::shared_ptr<ConcreteQueue> makeQueue(std::string label, QualityOfService qualityOfService) {
  Process& process = Process::current();
  auto queue = std::make_shared<ConcreteQueue>(process, process.scheduler().shared_from_this(), std::move(label),
                                               qualityOfService);
  process.queueMade(queue);
  return queue;
}

[[noreturn]] void fatalElsewhere(const SourceLocation& caller, const Queue& queue) {
  fatal(functionName(caller.function_name()) + " to be called on queue " + queue.label());
}

}  // namespace

Queue::Queue(Process& process, std::string label) : _process(process), _label(std::move(label)) {}

void Queue::requireCurrent(SourceLocation caller) const {
  if (!isCurrentAlone()) fatalElsewhere(caller, *this);
}

void ConcurrentQueue::requireReader(SourceLocation caller) const {
  if (!isCurrent()) fatalElsewhere(caller, *this);
}

std::shared_ptr<SerialQueue> SerialQueue::make(std::string label, QualityOfService qualityOfService) {
  return makeQueue<SerialStrand>(std::move(label), qualityOfService);
}

std::shared_ptr<ConcurrentQueue> ConcurrentQueue::make(std::string label, QualityOfService qualityOfService) {
  return makeQueue<ConcurrentStrand>(std::move(label), qualityOfService);
}

}  // namespace pellor
