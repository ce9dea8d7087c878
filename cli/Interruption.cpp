#include "cli/Interruption.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <utility>

namespace pellor::cli {
namespace {

sigset_t interruptions() {
  sigset_t set;
  ::sigemptyset(&set);
  ::sigaddset(&set, SIGINT);
  ::sigaddset(&set, SIGTERM);
  return set;
}

int signalDescriptor() {
  const sigset_t set = interruptions();
  return ::signalfd(-1, &set, SFD_CLOEXEC);
}

}  // namespace

void Interruption::blockSignals() {
  const sigset_t set = interruptions();
  ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

Interruption::Interruption(std::function<void()> interrupted)
    : _interrupted(std::move(interrupted)),
      _signals(signalDescriptor()),
      _end(::eventfd(0, EFD_CLOEXEC)),
      _thread([this] { run(); }) {}

Interruption::~Interruption() {
  ::eventfd_write(_end.get(), 1);
  _thread.join();
}

void Interruption::run() const {
  // Of standard output only the end of its reader is asked for, which is always reported.
  std::array<pollfd, 3> awaited = {{{_end.get(), POLLIN, 0}, {_signals.get(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}}};
  int count = 0;
  do {
    count = ::poll(awaited.data(), awaited.size(), -1);
  } while (count < 0 && errno == EINTR);
  if (awaited[0].revents == 0) _interrupted();
}

}  // namespace pellor::cli
