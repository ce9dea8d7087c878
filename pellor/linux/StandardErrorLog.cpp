#include "pellor/linux/StandardErrorLog.h"

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <string>
#include <string_view>

#include "pellor/linux/text/TerminalText.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {
namespace {

// Of all logs of the program: a pipe takes a long line in several pieces.
constinit Mutex lineMutex;

// "2001-02-03 04:05:06.789" in local time.
std::string localTime() {
  using namespace std::chrono;
  const auto now = time_point_cast<milliseconds>(system_clock::now());
  const auto second = floor<seconds>(now);
  const std::time_t time = system_clock::to_time_t(second);
  std::tm parts{};
  ::localtime_r(&time, &parts);
  char text[64];
  std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
  length += static_cast<std::size_t>(
      std::snprintf(text + length, sizeof text - length, ".%03d", static_cast<int>((now - second).count())));
  return {text, length};
}

// A standard error that is closed or full must not hold the program up: the rest of the line is lost.
void writeLine(std::string_view line) {
  const MutexLock lock(lineMutex);
  while (!line.empty()) {
    const ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    line.remove_prefix(static_cast<std::size_t>(written));
  }
}

// With "?" for control characters, and isolates around what is private: names, numbers and addresses.
LogEntry visible(LogEntry entry) {
  for (LogSegment& segment : entry.message) {
    segment.text = visibleText(segment.text, '?');
    if (segment.isPrivate) segment.text = isolatedText(segment.text);
  }
  return entry;
}

}  // namespace

StandardErrorLog::StandardErrorLog(Verbosity verbosity, LogEntry::Private privacy)
    : _verbosity(verbosity), _privacy(privacy) {}

void StandardErrorLog::setVerbosity(Verbosity verbosity) { _verbosity = verbosity; }

bool StandardErrorLog::isHeard() const { return _verbosity == Verbosity::verbose; }

void StandardErrorLog::write(const LogEntry& entry) {
  if (!isHeard()) return;
  const std::string line = entry.subsystem + ":" + entry.category + " " + visible(entry).text(_privacy);
  writeLine(localTime() + " [info] " + terminalText(line) + "\n");
}

}  // namespace pellor
