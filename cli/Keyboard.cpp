#include "cli/Keyboard.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>

namespace pellor::cli {
namespace {

// A handler is given nothing but the signal: set by the one Keyboard, which is made and goes on the main thread.
std::atomic<int> signalDescriptor = -1;
std::atomic<int> caughtSignal = 0;

void noteSignal(int signal) {
  const int error = errno;
  caughtSignal = signal;
  ::eventfd_write(signalDescriptor, 1);
  errno = error;
}

// Enter still ends a line with '\n'.
termios keyByKey(termios settings) {
  settings.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ISIG | IEXTEN);
  settings.c_iflag &= ~static_cast<tcflag_t>(IXON);
  settings.c_cc[VMIN] = 1;
  settings.c_cc[VTIME] = 0;
  return settings;
}

}  // namespace

Keyboard::Keyboard() : _wakeUp(::eventfd(0, EFD_CLOEXEC)) {
  signalDescriptor = _wakeUp.get();
  struct sigaction noting {};
  noting.sa_handler = noteSignal;
  for (std::size_t index = 0; index < Signals.size(); ++index) {
    ::sigaction(Signals[index], nullptr, &_actions[index]);
    if (_actions[index].sa_handler != SIG_IGN) ::sigaction(Signals[index], &noting, nullptr);
  }
  ::tcgetattr(STDIN_FILENO, &_settings);
  const termios settings = keyByKey(_settings);
  ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &settings);
}

Keyboard::~Keyboard() {
  // The rest of a key that is more than one byte goes too.
  ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &_settings);
  for (std::size_t index = 0; index < Signals.size(); ++index) ::sigaction(Signals[index], &_actions[index], nullptr);
  signalDescriptor = -1;
  if (const int signal = caughtSignal.exchange(0)) ::raise(signal);
}

std::optional<char> Keyboard::readKey() const {
  std::array<pollfd, 2> awaited = {{{STDIN_FILENO, POLLIN, 0}, {_wakeUp.get(), POLLIN, 0}}};
  int count = 0;
  do {
    count = ::poll(awaited.data(), awaited.size(), -1);
  } while (count < 0 && errno == EINTR);
  if (count < 0 || awaited[1].revents != 0) return std::nullopt;
  char key = 0;
  return ::read(STDIN_FILENO, &key, 1) == 1 ? std::optional(key) : std::nullopt;
}

}  // namespace pellor::cli
