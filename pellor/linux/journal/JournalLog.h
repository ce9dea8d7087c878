// The log in the system's journal, by sd-journal.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "pellor/linux/ServiceReport.h"
#include "pellor/runtime/Log.h"

namespace pellor {

/// An entry of the journal for each line, of the fields
///
///   MESSAGE            the text, private arguments as "<private>"
///   PRIORITY           6 (info)
///   SYSLOG_IDENTIFIER  of the program
///   CODE_FUNC          the operation that logs
///   CODE_LINE          its source line
///   PELLOR_SUBSYSTEM, PELLOR_CATEGORY   the channel
///
/// Administrators can read a user's journal. So names, numbers and addresses get there only where the user turned
/// debugging on, in a second entry of 7 (debug), which has them in its text: what is read at info is whole without it.
///
/// The journal gives no sign when it takes no entries because it is not there. So each entry is followed by a look at
/// its socket. While that is missing or refuses, lines go to another sink, and standard error says so once; the first
/// entry afterwards says that the journal is there again. A journal that is there and does not read holds writers up,
/// as it does all programs of the system. Any thread.
class JournalLog final : public LogSink {
 public:
  enum class Debugging { off, on };
  struct Options {
    std::string identifier = "pellor";
    Debugging debugging = Debugging::off;
  };

  /// `fallback` may be null: what the journal does not take is lost then.
  JournalLog(Options options, std::shared_ptr<LogSink> fallback);

  void write(const LogEntry& entry) override;

  /// Whether the journal is there. Any thread.
  static ServiceReport report();

 private:
  bool send(const LogEntry& entry, LogEntry::Private privacy) const;
  void fallBack(const LogEntry& entry);
  void sayBack();

  const Options _options;
  const std::shared_ptr<LogSink> _fallback;
  std::atomic<bool> _isAway = false;
};

}  // namespace pellor
