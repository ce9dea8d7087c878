// What is kept of the refreshes against the contacts of one source.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "pellor/platform/RefreshHold.h"
#include "pellor/runtime/Log.h"

namespace pellor {

/// A small file of the data folder, for its owner alone, that is replaced in one step: programs that share the folder
/// share it. One that is missing or damaged says nothing. Main queue.
class RefreshMemory {
 public:
  /// `source` names the contacts: others have another file.
  RefreshMemory(const std::filesystem::path& dataFolder, std::string_view source, LogHandle log);

  /// What was written last, by whichever program; where that failed, what this one was to write.
  std::optional<RefreshHold::Memory> read();
  /// Writes it, unless it is what was read last. A failure is on the log once.
  void write(const std::optional<RefreshHold::Memory>& memory);

 private:
  const std::filesystem::path _file;
  const LogHandle _log;
  std::optional<RefreshHold::Memory> _known;
  std::string _problem;  // why the last write failed; empty when it did not
};

}  // namespace pellor
