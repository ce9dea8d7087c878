// A folder for the files of a target.
#pragma once

#include <filesystem>
#include <string_view>

#include "fuzz/FuzzTarget.h"

namespace pellor::fuzzing {

/// Goes with the program.
class WorkFolder {
 public:
  static WorkFolder& ofProgram();

  const std::filesystem::path& path() const { return _path; }
  /// Writes a file of the folder, in place of the one that is there.
  std::filesystem::path write(std::string_view name, Bytes content) const;

 private:
  WorkFolder();
  ~WorkFolder();

  std::filesystem::path _path;
};

}  // namespace pellor::fuzzing
