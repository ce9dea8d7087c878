// A log sink that keeps what it is given.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/runtime/Log.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

/// Keeps every line until it is taken or cleared. Any thread.
class LogCollector : public LogSink {
 public:
  void write(const LogEntry& entry) override;

  /// All lines, oldest first.
  std::vector<LogEntry> entries() const;
  /// The messages of all lines, private arguments shown, oldest first.
  std::vector<std::string> messages() const;
  /// How many messages hold `text`.
  std::size_t count(std::string_view text) const;
  bool contains(std::string_view text) const { return count(text) > 0; }
  /// The oldest line whose message holds `text`; absent when there is none.
  std::optional<LogEntry> find(std::string_view text) const;
  /// The messages of all lines, which are forgotten.
  std::vector<std::string> takeMessages();
  void clear();

 private:
  mutable Mutex _mutex;
  std::vector<LogEntry> _entries PELLOR_GUARDED_BY(_mutex);
};

}  // namespace pellor
