#include "linux/StandardErrorLog.h"

#include <spdlog/logger.h>
#include <spdlog/sinks/stdout_sinks.h>

#include <algorithm>

namespace pellor {
namespace {

std::unique_ptr<spdlog::logger> makeLogger() {
  auto logger = std::make_unique<spdlog::logger>("pellor", std::make_shared<spdlog::sinks::stderr_sink_mt>());
  logger->set_pattern("%Y-%m-%d %H:%M:%S.%e [%l] %v");
  logger->flush_on(spdlog::level::trace);
  return logger;
}

std::string printable(std::string text) {
  std::ranges::replace_if(
      text, [](char character) { return (character >= 0 && character < ' ') || character == '\x7F'; }, '?');
  return text;
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
  _logger->log(spdlog::level::info, printable(entry.subsystem + ":" + entry.category + " " + entry.text(_privacy)));
}

}  // namespace pellor
