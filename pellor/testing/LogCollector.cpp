#include "pellor/testing/LogCollector.h"

#include <algorithm>
#include <utility>

namespace pellor {

namespace {

std::vector<std::string> messagesOf(const std::vector<LogEntry>& entries) {
  std::vector<std::string> messages;
  messages.reserve(entries.size());
  for (const LogEntry& entry : entries) messages.push_back(entry.messageText());
  return messages;
}

bool holds(const LogEntry& entry, std::string_view text) { return entry.messageText().find(text) != std::string::npos; }

}  // namespace

void LogCollector::write(const LogEntry& entry) {
  const MutexLock lock(_mutex);
  _entries.push_back(entry);
}

std::vector<LogEntry> LogCollector::entries() const {
  const MutexLock lock(_mutex);
  return _entries;
}

std::vector<std::string> LogCollector::messages() const { return messagesOf(entries()); }

std::size_t LogCollector::count(std::string_view text) const {
  const MutexLock lock(_mutex);
  return static_cast<std::size_t>(
      std::count_if(_entries.begin(), _entries.end(), [&](const LogEntry& entry) { return holds(entry, text); }));
}

std::optional<LogEntry> LogCollector::find(std::string_view text) const {
  const MutexLock lock(_mutex);
  const auto found =
      std::find_if(_entries.begin(), _entries.end(), [&](const LogEntry& entry) { return holds(entry, text); });
  if (found == _entries.end()) return std::nullopt;
  return *found;
}

std::vector<std::string> LogCollector::takeMessages() {
  MutexLock lock(_mutex);
  const std::vector<LogEntry> taken = std::exchange(_entries, {});
  lock.unlock();
  return messagesOf(taken);
}

void LogCollector::clear() {
  const MutexLock lock(_mutex);
  _entries.clear();
}

}  // namespace pellor
