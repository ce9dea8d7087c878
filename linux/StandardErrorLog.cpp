#include "linux/StandardErrorLog.h"

#include <spdlog/logger.h>
#include <spdlog/sinks/stdout_sinks.h>

#include "linux/TerminalText.h"

namespace pellor {
namespace {

std::unique_ptr<spdlog::logger> makeLogger() {
  auto logger = std::make_unique<spdlog::logger>("pellor", std::make_shared<spdlog::sinks::stderr_sink_mt>());
  logger->set_pattern("%Y-%m-%d %H:%M:%S.%e [%l] %v");
  logger->flush_on(spdlog::level::trace);
  return logger;
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
    : _logger(makeLogger()), _privacy(privacy) {
  setVerbosity(verbosity);
}

StandardErrorLog::~StandardErrorLog() = default;

void StandardErrorLog::setVerbosity(Verbosity verbosity) {
  _logger->set_level(verbosity == Verbosity::verbose ? spdlog::level::info : spdlog::level::off);
}

bool StandardErrorLog::isHeard() const { return _logger->should_log(spdlog::level::info); }

void StandardErrorLog::write(const LogEntry& entry) {
  if (!isHeard()) return;
  const std::string line = entry.subsystem + ":" + entry.category + " " + visible(entry).text(_privacy);
  _logger->log(spdlog::level::info, terminalText(line));
}

}  // namespace pellor
