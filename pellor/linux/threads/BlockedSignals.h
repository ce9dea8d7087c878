// Signals are the business of the program's own threads.
#pragma once

#include <pthread.h>
#include <signal.h>
#include <time.h>

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

/// While it lives, bytes that are sent to a receiver that has gone raise no signal in the calling thread. For libraries
/// that do not see to that themselves.
class BlockedBrokenPipe {
 public:
  BlockedBrokenPipe() {
    sigset_t pending, previous;
    sigpending(&pending);
    _wasPending = sigismember(&pending, SIGPIPE) == 1;
    const sigset_t set = brokenPipe();
    pthread_sigmask(SIG_BLOCK, &set, &previous);
    _wasBlocked = sigismember(&previous, SIGPIPE) == 1;
  }
  ~BlockedBrokenPipe() {
    const sigset_t set = brokenPipe();
    const timespec atOnce{};
    if (!_wasPending) sigtimedwait(&set, nullptr, &atOnce);
    if (!_wasBlocked) pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
  }
  BlockedBrokenPipe(const BlockedBrokenPipe&) = delete;
  BlockedBrokenPipe& operator=(const BlockedBrokenPipe&) = delete;

 private:
  static sigset_t brokenPipe() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    return set;
  }

  bool _wasPending = false;
  bool _wasBlocked = false;
};

}  // namespace pellor
