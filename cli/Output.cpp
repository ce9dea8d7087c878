#include "cli/Output.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "linux/IcuText.h"

namespace pellor::cli {
namespace {

constexpr std::size_t WidthWithoutTerminal = 80;
constexpr std::string_view Ellipsis = "…";
constexpr std::string_view EraseLine = "\r\x1b[K";

bool writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = ::write(descriptor, text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    text.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

bool continuesCharacter(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

// C0 and DEL; of C1 the second byte of its two in UTF-8, after 0xC2.
bool isControl(std::string_view text, std::size_t index) {
  const auto byte = static_cast<unsigned char>(text[index]);
  if (byte < 0x20 || byte == 0x7F) return true;
  return byte >= 0x80 && byte < 0xA0 && index > 0 && static_cast<unsigned char>(text[index - 1]) == 0xC2;
}

std::string cut(std::string_view text, std::size_t width) {
  while (!text.empty() && displayWidth(text) + displayWidth(Ellipsis) > width) {
    std::size_t last = text.size() - 1;
    while (last > 0 && continuesCharacter(text[last])) --last;
    text = text.substr(0, last);
  }
  return std::string(text).append(Ellipsis);
}

}  // namespace

Written writeOutput(std::string_view text) {
  if (writeAll(STDOUT_FILENO, text)) return Written::whole;
  return errno == EPIPE ? Written::readerGone : Written::failed;
}

void writeError(std::string_view text) {
  // Nobody is left to tell when that does not work.
  static_cast<void>(writeAll(STDERR_FILENO, "pellor: " + printable(text) + "\n"));
}

std::string printable(std::string_view text) {
  std::string result;
  for (std::size_t index = 0; index < text.size(); ++index) {
    if (!isControl(text, index)) {
      result += text[index];
      continue;
    }
    if (static_cast<unsigned char>(text[index]) >= 0x80) result.pop_back();
    result += ' ';
  }
  return result;
}

std::size_t outputWidth() {
  winsize size{};
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return WidthWithoutTerminal;
  return size.ws_col;
}

std::string fitted(std::string_view text, std::size_t width) {
  std::string result(text);
  std::size_t taken = displayWidth(result);
  if (taken > width) {
    result = cut(text, width);
    taken = displayWidth(result);
  }
  if (taken < width) result.append(width - taken, ' ');
  return result;
}

ProgressLine::ProgressLine(std::string what) : _what(std::move(what)), _hasTerminal(::isatty(STDERR_FILENO) == 1) {}

ProgressLine::~ProgressLine() { remove(); }

void ProgressLine::show(std::size_t done, std::size_t total) {
  if (!_hasTerminal) return;
  _isShown = true;
  const std::string text = _what + ": " + std::to_string(done) + " of " + std::to_string(total);
  static_cast<void>(writeAll(STDERR_FILENO, std::string(EraseLine) + text));
}

void ProgressLine::remove() {
  if (!std::exchange(_isShown, false)) return;
  static_cast<void>(writeAll(STDERR_FILENO, EraseLine));
}

}  // namespace pellor::cli
