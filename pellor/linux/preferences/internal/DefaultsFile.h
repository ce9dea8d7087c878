// The user's own settings, a JSON file edited by hand.
#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

#include "pellor/runtime/Log.h"
#include "pellor/runtime/ThreadSafety.h"
#include "pellor/runtime/Value.h"

namespace pellor {

/// A dictionary of domains, each a dictionary of keys:
///
///     {"org.tapnote.TN": {"SomeKey": true, "Another": 12}}
///
/// Read anew when the file has changed. A file that is missing holds nothing; one that cannot be read or is no such
/// JSON neither, and the log says so once for each content. Any thread.
class DefaultsFile {
 public:
  DefaultsFile(std::filesystem::path file, LogHandle log);

  /// Absent when unset or null. Whole numbers beyond 64 signed bits are reals.
  std::optional<Value> value(std::string_view key, std::string_view domain);

 private:
  void readIfChanged() PELLOR_REQUIRES(_mutex);

  /// What tells one content of the file from the next.
  struct Stamp {
    std::filesystem::file_time_type changed;
    std::uintmax_t size = 0;
    friend bool operator==(const Stamp&, const Stamp&) = default;
  };
  std::optional<Stamp> stampOfFile() const;

  const std::filesystem::path _file;
  const LogHandle _log;
  Mutex _mutex;
  std::optional<Stamp> _stamp PELLOR_GUARDED_BY(_mutex);
  Dictionary _domains PELLOR_GUARDED_BY(_mutex);
};

}  // namespace pellor
