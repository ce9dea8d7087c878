// The log channel: lines with a fixed text, of which some arguments are private.
#pragma once

#include <concepts>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/runtime/SourceLocation.h"
#include "pellor/runtime/Value.h"

namespace pellor {

/// A piece of a message. Private pieces are names, numbers and addresses of people.
struct LogSegment {
  std::string text;
  bool isPrivate = false;
};

/// One line of the log.
struct LogEntry {
  std::string subsystem;
  std::string category;
  std::string operation;   ///< the name of the operation that logs
  std::uint32_t line = 0;  ///< its source line
  std::vector<LogSegment> message;

  enum class Private { shown, hidden };
  /// The message with its arguments filled in; hidden private ones read "<private>".
  std::string messageText(Private privacy = Private::shown) const;
  /// The whole line: `operation (line) "message"`.
  std::string text(Private privacy = Private::shown) const;
};

/// Where lines go. `write` is called from any thread, one call at a time for one sink is not promised. A sink that
/// others than the user can read hides private pieces.
class LogSink {
 public:
  virtual ~LogSink() = default;
  virtual void write(const LogEntry& entry) = 0;
  /// Whether anybody reads the lines that come now; if not, none is put together. Any thread.
  virtual bool isHeard() const { return true; }
};

/// An argument of a log text, formatted at the call. An absent value prints as `(null)`, a set as `{a, b}` in its
/// order.
class LogArgument {
 public:
  LogArgument(std::string_view text) : _segment{std::string(text)} {}
  LogArgument(const std::string& text) : _segment{text} {}
  LogArgument(const char* text) : _segment{text} {}
  LogArgument(const std::optional<std::string>& text) : _segment{text.value_or("(null)")} {}
  LogArgument(const std::set<std::string>& texts);
  LogArgument(const Value& value) : _segment{value.description()} {}
  template <std::integral I>
  LogArgument(I number) : _segment{std::to_string(number)} {}

  /// This argument, hidden in sinks that other users can read.
  LogArgument asPrivate() && {
    _segment.isPrivate = true;
    return std::move(*this);
  }
  const LogSegment& segment() const { return _segment; }

 private:
  LogSegment _segment;
};

/// Marks an argument as private: `log("renamed to [%@]", redactable(name))`.
inline LogArgument redactable(LogArgument argument) { return std::move(argument).asPrivate(); }

/// A fixed text with placeholders (%@, %d, %u, %lu, %tu, each filled by the next argument) and the place of the call.
class LogFormat {
 public:
  template <class Text>
    requires std::convertible_to<Text, std::string_view>
  LogFormat(const Text& text, SourceLocation place = SourceLocation::current()) : _text(text), _place(place) {}
  /// This call, under the name of an operation of which the calling function is one step.
  LogFormat as(std::string_view operation) const {
    LogFormat format = *this;
    format._operation = operation;
    return format;
  }
  std::string_view text() const { return _text; }
  /// The unqualified name of the operation that holds the call; of a lambda, the operation around it.
  std::string operation() const;
  std::uint32_t line() const { return _place.line(); }

 private:
  std::string_view _text;
  SourceLocation _place;
  std::string_view _operation;  // empty: the one at the place
};

/// A channel of the log, named by subsystem and category. Any thread.
class LogHandle {
 public:
  /// `sink` null: lines go nowhere.
  LogHandle(std::string subsystem, std::string category, std::shared_ptr<LogSink> sink);

  /// Writes one line. There are as many arguments as placeholders in the text.
  template <class... Arguments>
  void log(LogFormat format, const Arguments&... arguments) const {
    if (isHeard()) write(format, {LogArgument(arguments)...});
  }
  /// Whether lines go somewhere: what takes long to work out need not be, for a line that nobody reads.
  bool isHeard() const { return _sink && _sink->isHeard(); }

  const std::string& subsystem() const { return _subsystem; }
  const std::string& category() const { return _category; }

 private:
  void write(const LogFormat& format, const std::vector<LogArgument>& arguments) const;

  std::string _subsystem;
  std::string _category;
  std::shared_ptr<LogSink> _sink;
};

}  // namespace pellor
