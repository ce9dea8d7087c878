#include "runtime/Frame.h"

namespace pellor {

namespace {
constinit thread_local const Frame* currentFrame = nullptr;
}

Frame::Frame(Process& process, const Queue* queue, Kind kind)
    : _process(process), _queue(queue), _kind(kind), _outer(currentFrame) {
  currentFrame = this;
}

Frame::~Frame() { currentFrame = _outer; }

const Frame* Frame::innermost() { return currentFrame; }

const Queue* Frame::innermostQueue() {
  const Frame* frame = currentFrame;
  while (frame && frame->_kind == Kind::scope) frame = frame->_outer;
  return frame ? frame->_queue : nullptr;
}

bool Frame::isInside(const Queue& queue) {
  for (const Frame* frame = currentFrame; frame; frame = frame->_outer) {
    if (frame->_queue == &queue) return true;
  }
  return false;
}

long Frame::taskCount(const Process& process) {
  long count = 0;
  for (const Frame* frame = currentFrame; frame; frame = frame->_outer) {
    if (frame->_kind == Kind::task && &frame->_process == &process) ++count;
  }
  return count;
}

}  // namespace pellor
