#include "pellor/linux/threads/ServiceThread.h"

#include <pthread.h>

#include <system_error>
#include <utility>

#include "pellor/linux/threads/BlockedSignals.h"

namespace pellor {

ServiceThread::~ServiceThread() { join(); }

std::string ServiceThread::problemText(const std::string& refusal) {
  return std::string(Problem) + " (" + refusal + "); " + Advice;
}

std::optional<std::string> ServiceThread::start(const char* name, std::function<void()> run) {
  const BlockedSignals blocked;
  try {
    _thread = std::thread([name, run = std::move(run)] {
      pthread_setname_np(pthread_self(), name);
      run();
    });
  } catch (const std::system_error& error) {
    return error.code().message();
  }
  return std::nullopt;
}

void ServiceThread::join() {
  if (_thread.joinable()) _thread.join();
}

}  // namespace pellor
