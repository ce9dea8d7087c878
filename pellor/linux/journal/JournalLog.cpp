#include "pellor/linux/journal/JournalLog.h"

// The place in the entry is that of the call that logs.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>
#include <string_view>
#include <utility>

#include "pellor/linux/files/internal/PrivateFiles.h"
#include "pellor/linux/text/TerminalText.h"
#include "pellor/runtime/BundleIdentifier.h"

namespace pellor {
namespace {

// Where sd-journal sends its entries.
constexpr const char* Socket = "/run/systemd/journal/socket";

constexpr const char* Info = "6";
constexpr const char* Debug = "7";

bool isThere() { return ::access(Socket, F_OK) == 0; }

/// Absent when somebody listens.
std::optional<std::string> problem() {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::string_view(Socket).copy(address.sun_path, sizeof address.sun_path - 1);
  const FileDescriptor probe(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const bool answers =
      probe && ::connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  return answers ? std::nullopt : std::optional(systemError("nobody listens at", Socket));
}

bool hasPrivate(const LogEntry& entry) { return std::ranges::any_of(entry.message, &LogSegment::isPrivate); }

bool sendFields(std::array<std::string, 7> fields) {
  std::array<iovec, 7> pieces{};
  std::ranges::transform(fields, pieces.begin(), [](std::string& field) { return iovec{field.data(), field.size()}; });
  return sd_journal_sendv(pieces.data(), static_cast<int>(pieces.size())) == 0 && isThere();
}

}  // namespace

JournalLog::JournalLog(Options options, std::shared_ptr<LogSink> fallback)
    : _options(std::move(options)), _fallback(std::move(fallback)) {}

void JournalLog::write(const LogEntry& entry) {
  if (!send(entry, LogEntry::Private::hidden)) return fallBack(entry);
  if (_options.debugging == Debugging::on && hasPrivate(entry)) send(entry, LogEntry::Private::shown);
  if (_isAway.exchange(false)) sayBack();
}

bool JournalLog::send(const LogEntry& entry, LogEntry::Private privacy) const {
  return sendFields({"MESSAGE=" + terminalText(entry.messageText(privacy)),
                     std::string("PRIORITY=") + (privacy == LogEntry::Private::shown ? Debug : Info),
                     "SYSLOG_IDENTIFIER=" + _options.identifier, "CODE_FUNC=" + entry.operation,
                     "CODE_LINE=" + std::to_string(entry.line), "PELLOR_SUBSYSTEM=" + entry.subsystem,
                     "PELLOR_CATEGORY=" + entry.category});
}

void JournalLog::fallBack(const LogEntry& entry) {
  if (!_isAway.exchange(true))
    std::fprintf(stderr, "%s: the journal cannot be reached, the log goes elsewhere: %s\n", _options.identifier.c_str(),
                 problem().value_or("").c_str());
  if (_fallback) _fallback->write(entry);
}

void JournalLog::sayBack() {
  LogEntry entry;
  entry.subsystem = BundleIdentifier;
  entry.category = "journal";
  entry.operation = __func__;
  entry.line = __LINE__;
  entry.message = {{"the journal is there again; lines went elsewhere meanwhile", false}};
  send(entry, LogEntry::Private::hidden);
}

ServiceReport JournalLog::report() {
  const auto found = problem();
  if (found) return ServiceReport::failing(*found, "start systemd-journald, or choose log = none");
  return ServiceReport::working(Socket);
}

}  // namespace pellor
