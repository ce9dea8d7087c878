// How the program looks on a terminal and in a pipe.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <sstream>
#include <string>
#include <vector>

#include "linux/IcuText.h"
#include "tests/cli/Program.h"

namespace pellor {
namespace {

/// A terminal of a given width, and what was written to it.
class Terminal {
 public:
  explicit Terminal(unsigned short columns) : _screen(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    ::grantpt(_screen.get());
    ::unlockpt(_screen.get());
    _line = FileDescriptor(::open(::ptsname(_screen.get()), O_RDWR | O_NOCTTY | O_CLOEXEC));
    const winsize size{24, columns, 0, 0};
    ::ioctl(_line.get(), TIOCSWINSZ, &size);
    termios settings{};
    ::tcgetattr(_line.get(), &settings);
    settings.c_oflag &= ~static_cast<tcflag_t>(OPOST);
    ::tcsetattr(_line.get(), TCSANOW, &settings);
  }

  int line() const { return _line.get(); }

  /// Everything, after the program has ended.
  std::string content() {
    _line.close();
    std::string text;
    std::array<char, 4096> buffer;
    for (ssize_t count = 1; count > 0;) {
      count = ::read(_screen.get(), buffer.data(), buffer.size());
      if (count > 0) text.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return text;
  }

 private:
  FileDescriptor _screen;
  FileDescriptor _line;
};

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

std::size_t widestLine(const std::string& text) {
  std::size_t widest = 0;
  for (const std::string& line : linesOf(text)) widest = std::max(widest, displayWidth(line));
  return widest;
}

std::size_t columnOf(const std::string& line, const std::string& text) {
  const auto place = line.find(text);
  EXPECT_NE(place, std::string::npos) << text << " in " << line;
  return displayWidth(line.substr(0, place));
}

std::string onTerminal(const Home& home, unsigned short columns) {
  Terminal terminal(columns);
  EXPECT_EQ(Program(home, pellorCommand({"list"}), {.output = terminal.line()}).finish().exitCode, 0);
  return terminal.content();
}

TEST(Terminal, PagesFitItsWidth) {
  const Home home;
  home.addContact("long", "Bartholomew James Quillfeather of the Outer Islands", "TEL:+12125550151\n");
  home.addContact("wide", "林云雀 かざみ 🌻", "EMAIL:lin@example.org\n");
  home.addContact("ann", "Ann", "EMAIL:ann@example.org\n");
  ASSERT_EQ(pellor(home, {"add", "long", "wide", "ann"}).errors, "");
  EXPECT_LE(widestLine(onTerminal(home, 40)), 40U);
  EXPECT_LE(widestLine(onTerminal(home, 9)), 9U);
  const std::string piped = pellor(home, {"list"}).output;
  EXPECT_LE(widestLine(piped), 80U);
  const auto lines = linesOf(piped);
  EXPECT_THAT(lines[1], testing::HasSubstr("…"));
  EXPECT_EQ(columnOf(lines[1], "3 "), columnOf(lines[3], "6 ")) << "wide letters shift the column";
}

TEST(Terminal, ControlCharactersOfAStoredNameStayOut) {
  const Home home;
  pellor(home, {"add", "0301112233"});
  pellor(home, {"title", "1", "Fam\x1B[2Jily\x07\xC2\x9B"});
  EXPECT_THAT(pellor(home, {"list"}).output, testing::HasSubstr("Page 1: Fam [2Jily  \n"));
}

TEST(Terminal, ALongReadingShowsItsProgressThere) {
  const Home home, other;
  for (int number = 0; number < 250; ++number) {
    for (const Home* each : {&home, &other}) each->addContact(std::to_string(number), "Person", "TEL:+49301234567\n");
  }
  Terminal terminal(80);
  Program(home, pellorCommand({"list"}), {.errors = terminal.line()}).finish();
  const std::string screen = terminal.content();
  EXPECT_THAT(screen, testing::HasSubstr("reading contacts: 100 of 250"));
  EXPECT_TRUE(screen.ends_with("\r\x1B[K")) << "the line is still there";
  EXPECT_EQ(pellor(other, {"list"}).errors, "") << "shown where there is no terminal";
}

}  // namespace
}  // namespace pellor
