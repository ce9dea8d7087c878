#include "cli/Output.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "cli/WrappedText.h"
#include "pellor/linux/text/IcuText.h"
#include "pellor/linux/text/TerminalText.h"

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

std::optional<std::size_t> widthOfTerminal(int descriptor) {
  winsize size{};
  if (::ioctl(descriptor, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return std::nullopt;
  return size.ws_col;
}

std::string forTerminal(int descriptor, std::string text) {
  const auto width = widthOfTerminal(descriptor);
  return width ? wrapped(text, *width) : text;
}

}  // namespace

OutputResult writeOutput(std::string_view text) {
  if (writeAll(STDOUT_FILENO, terminalText(text))) return OutputResult::whole;
  return errno == EPIPE ? OutputResult::readerGone : OutputResult::failed;
}

void writeErrorLine(std::string_view line) {
  // Nobody is left to tell when that does not work.
  static_cast<void>(writeAll(STDERR_FILENO, terminalText(line) + "\n"));
}

void writeErrorText(std::string_view text) { static_cast<void>(writeAll(STDERR_FILENO, text)); }

void writeError(std::string_view text) {
  std::string line(text);
  std::ranges::replace(line, '\n', ' ');
  writeErrorLine(forTerminal(STDERR_FILENO, "pellor: " + line));
}

std::string printable(std::string_view text) { return isolatedText(text); }

std::string inQuotes(std::string_view text) { return "\"" + printable(text) + "\""; }

std::optional<std::size_t> terminalWidth() { return widthOfTerminal(STDOUT_FILENO); }

std::size_t outputWidth() { return terminalWidth().value_or(WidthWithoutTerminal); }

std::size_t errorWidth() { return widthOfTerminal(STDERR_FILENO).value_or(WidthWithoutTerminal); }

std::string readable(std::string text) { return forTerminal(STDOUT_FILENO, std::move(text)); }

std::string fitted(std::string_view text, std::size_t width) {
  const std::size_t whole = displayWidth(text);
  if (whole <= width) return std::string(text) + std::string(width - whole, ' ');
  const std::size_t room = width - std::min(width, displayWidth(Ellipsis));
  std::string cut(prefixOfWidth(withoutIsolation(text), room));
  cut.erase(cut.find_last_not_of(' ') + 1);
  const std::size_t over = room - displayWidth(cut);
  // Within the isolate, so that it stands where the text goes on.
  return printable(cut.append(Ellipsis)).append(over, ' ');
}

ProgressLine::ProgressLine(std::string what) : _what(std::move(what)), _hasTerminal(::isatty(STDERR_FILENO) == 1) {}

ProgressLine::~ProgressLine() { remove(); }

void ProgressLine::show(std::size_t done, std::size_t total) {
  if (!_hasTerminal) return;
  _isShown = true;
  const std::string text = terminalText(_what) + ": " + std::to_string(done) + " of " + std::to_string(total);
  static_cast<void>(writeAll(STDERR_FILENO, std::string(EraseLine) + text));
}

void ProgressLine::remove() {
  if (!std::exchange(_isShown, false)) return;
  static_cast<void>(writeAll(STDERR_FILENO, EraseLine));
}

}  // namespace pellor::cli
