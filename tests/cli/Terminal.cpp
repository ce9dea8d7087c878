#include "tests/cli/Terminal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>

namespace pellor {
namespace {

// After which a program that shows nothing hangs, in milliseconds.
constexpr int HangsAfter = 60'000;

}  // namespace

Terminal::Terminal(unsigned short columns) : _screen(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
  ::grantpt(_screen.get());
  ::unlockpt(_screen.get());
  _line = FileDescriptor(::open(::ptsname(_screen.get()), O_RDWR | O_NOCTTY | O_CLOEXEC));
  const winsize size{24, columns, 0, 0};
  ::ioctl(_line.get(), TIOCSWINSZ, &size);
  termios changed = settings();
  changed.c_oflag &= ~static_cast<tcflag_t>(OPOST);
  ::tcsetattr(_line.get(), TCSANOW, &changed);
}

termios Terminal::settings() const {
  termios settings{};
  ::tcgetattr(_line.get(), &settings);
  return settings;
}

void Terminal::awaitText(const std::string& text) {
  while (_content.find(text) == std::string::npos) {
    pollfd awaited{_screen.get(), POLLIN, 0};
    if (::poll(&awaited, 1, HangsAfter) == 1 && readMore()) continue;
    ADD_FAILURE() << "the program does not show " << text << " but " << _content;
    return;
  }
}

void Terminal::type(const std::string& keys) const {
  EXPECT_EQ(::write(_screen.get(), keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
}

std::string Terminal::content() {
  _line.close();
  while (readMore()) {
  }
  return _content;
}

bool Terminal::readMore() {
  std::array<char, 4096> buffer;
  const ssize_t count = ::read(_screen.get(), buffer.data(), buffer.size());
  if (count > 0) _content.append(buffer.data(), static_cast<std::size_t>(count));
  return count > 0;
}

}  // namespace pellor
