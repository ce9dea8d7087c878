// The terminal behind standard input, key by key.
#pragma once

#include <termios.h>

#include <array>
#include <csignal>
#include <optional>

#include "pellor/linux/files/FileDescriptor.h"

namespace pellor::cli {

/// While it is there the terminal shows nothing of what is typed, and no key is a signal or ends a line. What was typed
/// before is dropped, so that nobody chooses what was not shown yet. The terminal is given back as it was: also to a
/// signal that ends the program, which does so after the object. One at a time; main thread.
class Keyboard {
 public:
  Keyboard();
  ~Keyboard();
  Keyboard(const Keyboard&) = delete;
  Keyboard& operator=(const Keyboard&) = delete;

  /// Waits for the next key. Absent at the end of the input, and when a signal came.
  std::optional<char> readKey() const;

 private:
  static constexpr std::array<int, 4> Signals = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};

  const FileDescriptor _wakeUp;  ///< readable when a signal came
  termios _settings{};           ///< as the terminal was
  std::array<struct sigaction, Signals.size()> _actions{};
};

}  // namespace pellor::cli
