#include "pellor/runtime/Frame.h"

namespace pellor {

bool Frame::isInside(const Queue& queue) {
  for (const Frame* frame = _current; frame; frame = frame->_outer) {
    if (frame->_queue == &queue) return true;
  }
  return false;
}

long Frame::taskCount(const Process& process) {
  long count = 0;
  for (const Frame* frame = _current; frame; frame = frame->_outer) {
    if (frame->_kind == Kind::task && &frame->_process == &process) ++count;
  }
  return count;
}

}  // namespace pellor
