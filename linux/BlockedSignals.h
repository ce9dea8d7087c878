// Signals are the business of the program's own threads.
#pragma once

#include <pthread.h>
#include <signal.h>

namespace pellor {

/// While it lives the calling thread takes no signals; a thread that it starts meanwhile never does.
class BlockedSignals {
 public:
  BlockedSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &_previous);
  }
  ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &_previous, nullptr); }
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;

 private:
  sigset_t _previous{};
};

}  // namespace pellor
