#include "pellor/runtime/TaskContext.h"

namespace pellor {

bool TaskContext::isInside(const Queue& queue) {
  for (const TaskContext* context = _current; context; context = context->_outer) {
    if (context->_queue == &queue) return true;
  }
  return false;
}

long TaskContext::taskCount(const Process& process) {
  long count = 0;
  for (const TaskContext* context = _current; context; context = context->_outer) {
    if (context->_kind == Kind::task && &context->_process == &process) ++count;
  }
  return count;
}

}  // namespace pellor
