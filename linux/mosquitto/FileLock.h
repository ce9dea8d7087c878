// A lock that the user's processes share.
#pragma once

#include <filesystem>
#include <optional>

#include "linux/PrivateFiles.h"

namespace pellor {

/// Holds a lock while it lives; the system gives it back when the process dies. The file stays. Any thread.
class FileLock {
 public:
  /// Waits for it. Absent when the file cannot be made.
  static std::optional<FileLock> wait(const std::filesystem::path& file);
  /// Absent also while another object holds it, of this process or of another.
  static std::optional<FileLock> tryTake(const std::filesystem::path& file);

 private:
  explicit FileLock(FileDescriptor descriptor) : _descriptor(std::move(descriptor)) {}
  static std::optional<FileLock> take(const std::filesystem::path& file, int operation);

  FileDescriptor _descriptor;
};

}  // namespace pellor
