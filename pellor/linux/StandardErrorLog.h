// The log on standard error.
#pragma once

#include <atomic>

#include "pellor/runtime/Log.h"

namespace pellor {

/// One line an entry: local time, level, subsystem and category, then the entry's text. Control characters are written
/// as "?" and the rest as `terminalText` has it, since names come from other people's cards and the log goes to a
/// terminal. Lines are whole, also between several of these logs; what standard error does not take is lost. Any
/// thread; waits for a reader that is slow.
class StandardErrorLog final : public LogSink {
 public:
  enum class Verbosity { silent, verbose };

  /// Private arguments read "<private>" unless `privacy` says that they are shown.
  explicit StandardErrorLog(Verbosity verbosity, LogEntry::Private privacy = LogEntry::Private::hidden);

  /// Any thread; entries that are being written at that moment go either way.
  void setVerbosity(Verbosity verbosity);
  void write(const LogEntry& entry) override;
  bool isHeard() const override;

 private:
  std::atomic<Verbosity> _verbosity;  ///< written by `setVerbosity`, on any thread
  const LogEntry::Private _privacy;
};

}  // namespace pellor
