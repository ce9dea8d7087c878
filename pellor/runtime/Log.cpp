#include "pellor/runtime/Log.h"

#include <array>
#include <cstddef>
#include <utility>

#include "pellor/runtime/Fatal.h"
#include "pellor/runtime/internal/FunctionName.h"

namespace pellor {

namespace {

constexpr std::string_view HiddenText = "<private>";
constexpr std::array<std::string_view, 5> Placeholders{"%@", "%d", "%u", "%lu", "%tu"};

/// The length of the placeholder that `text` begins with; 0 without one.
std::size_t placeholderLength(std::string_view text) {
  for (const std::string_view placeholder : Placeholders) {
    if (text.starts_with(placeholder)) return placeholder.size();
  }
  return 0;
}

/// Fills the placeholders of `text` in order; the fixed text between two of them is a segment of its own.
std::vector<LogSegment> filled(std::string_view text, const std::vector<LogArgument>& arguments) {
  std::vector<LogSegment> segments;
  std::size_t fixedStart = 0;
  auto next = arguments.begin();
  for (std::size_t at = text.find('%'); at != std::string_view::npos; at = text.find('%', at)) {
    const std::size_t length = placeholderLength(text.substr(at));
    if (length == 0) {
      ++at;
      continue;
    }
    if (next == arguments.end()) fatal("an argument for each placeholder of the log text " + std::string(text));
    if (at > fixedStart) segments.push_back({std::string(text.substr(fixedStart, at - fixedStart))});
    segments.push_back((next++)->segment());
    at = fixedStart = at + length;
  }
  if (next != arguments.end()) fatal("a placeholder for each argument of the log text " + std::string(text));
  if (fixedStart < text.size()) segments.push_back({std::string(text.substr(fixedStart))});
  return segments;
}

}  // namespace

std::string LogEntry::messageText(Private privacy) const {
  std::string result;
  for (const LogSegment& segment : message) {
    result += segment.isPrivate && privacy == Private::hidden ? HiddenText : segment.text;
  }
  return result;
}

std::string LogEntry::text(Private privacy) const {
  return operation + " (" + std::to_string(line) + ") \"" + messageText(privacy) + "\"";
}

LogArgument::LogArgument(const std::set<std::string>& texts) {
  std::string_view separator;
  for (const std::string& text : texts) {
    _segment.text.append(separator).append(text);
    separator = ", ";
  }
  _segment.text = "{" + _segment.text + "}";
}

std::string LogFormat::operation() const {
  return _operation.empty() ? functionName(_place.function_name()) : std::string(_operation);
}

LogHandle::LogHandle(std::string subsystem, std::string category, std::shared_ptr<LogSink> sink)
    : _subsystem(std::move(subsystem)), _category(std::move(category)), _sink(std::move(sink)) {}

void LogHandle::write(const LogFormat& format, const std::vector<LogArgument>& arguments) const {
  _sink->write({.subsystem = _subsystem,
                .category = _category,
                .operation = format.operation(),
                .line = format.line(),
                .message = filled(format.text(), arguments)});
}

}  // namespace pellor
