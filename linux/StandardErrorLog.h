// The log on standard error, by spdlog.
#pragma once

#include <memory>

#include "runtime/Log.h"

namespace spdlog {
class logger;
}

namespace pellor {

/// One line an entry: local time, level, subsystem and category, then the entry's text. Control characters are written
/// as "?" and the rest as `terminalText` has it, since names come from other people's cards and the log goes to a
/// terminal. Any thread.
class StandardErrorLog final : public LogSink {
 public:
  enum class Verbosity { silent, verbose };

  /// Private arguments read "<private>" unless `privacy` says that they are shown.
  explicit StandardErrorLog(Verbosity verbosity, LogEntry::Private privacy = LogEntry::Private::hidden);
  ~StandardErrorLog() override;

  /// Any thread; entries that are being written at that moment go either way.
  void setVerbosity(Verbosity verbosity);
  void write(const LogEntry& entry) override;
  bool isHeard() const override;

 private:
  const std::unique_ptr<spdlog::logger> _logger;
  const LogEntry::Private _privacy;
};

}  // namespace pellor
