// A terminal of the test's own.
#pragma once

#include <termios.h>

#include <string>

#include "pellor/linux/files/internal/PrivateFiles.h"

namespace pellor {

/// A terminal of a given width, what is typed on it, and what was written to it.
class Terminal {
 public:
  explicit Terminal(unsigned short columns);

  int line() const { return _line.get(); }
  termios settings() const;

  /// Waits until the text was written to it; fails the test when that takes much too long.
  void awaitText(const std::string& text);
  void type(const std::string& keys) const;
  /// Nobody types any more, as when its window is closed.
  void closeScreen() { _screen.close(); }

  /// Everything that was written to it, after the program has ended.
  std::string content();

 private:
  bool readMore();

  FileDescriptor _screen;
  FileDescriptor _line;
  std::string _content;
};

}  // namespace pellor
