// A folder of a benchmark's own, on the disk that holds the build.
#pragma once

#include <filesystem>
#include <string_view>

#include "pellor/linux/files/UserFolders.h"

namespace pellor::bench {

/// Removed with everything in it at the end.
class WorkFolder {
 public:
  WorkFolder();
  ~WorkFolder();
  WorkFolder(const WorkFolder&) = delete;
  WorkFolder& operator=(const WorkFolder&) = delete;

  const std::filesystem::path& path() const { return _path; }

 private:
  std::filesystem::path _path;
};

/// The folders of a user whose home is `home`.
UserFolders foldersOf(const std::filesystem::path& home);

/// A folder that outlives the program, for what takes long to make; `make clean` removes it.
std::filesystem::path lastingFolder(std::string_view name);

}  // namespace pellor::bench
