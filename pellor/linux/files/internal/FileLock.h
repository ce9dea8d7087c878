// Locks that programs hold on files and folders, and how long others wait for them.
#pragma once

#include <atomic>
#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "pellor/linux/files/internal/PrivateFiles.h"

namespace pellor {

/// How long a program waits for a lock that others hold for moments. A holder that keeps it longer was stopped or
/// hangs: after a wait in vain the next ones are short for a minute, so that a program waits once, not once an attempt.
/// Any thread.
class LockPatience {
 public:
  explicit LockPatience(std::chrono::milliseconds limit) : _limit(limit) {}

  /// When a wait that begins now has to end.
  std::chrono::steady_clock::time_point endOfWait() const;
  /// A wait was in vain.
  void lose();

 private:
  const std::chrono::milliseconds _limit;
  std::atomic<std::chrono::steady_clock::duration> _lostUntil{};  // written by any thread that waited
};

/// A lock on a file or folder, held until the object goes or the program ends. Another lock of this program waits for
/// it as well.
class FileLock {
 public:
  /// Locks what is open. Absent, with errno set, when it could not be locked; EWOULDBLOCK when others held it for as
  /// long as the patience lasted.
  static std::optional<FileLock> take(FileDescriptor opened, LockPatience& patience);
  /// Locks the file, which is made when it is missing, with its folder. Absent as above.
  static std::optional<FileLock> take(const std::filesystem::path& file, LockPatience& patience);
  /// Absent when it is held by another one.
  static std::optional<FileLock> tryTake(const std::filesystem::path& file);

  int descriptor() const { return _descriptor.get(); }

 private:
  explicit FileLock(FileDescriptor descriptor) : _descriptor(std::move(descriptor)) {}

  FileDescriptor _descriptor;
};

/// Why a lock on the file or folder could not be had, of errno: the program that holds it, as far as the system tells,
/// and what to do.
std::string lockError(const std::filesystem::path& path);
/// Such a text about a lock that is known to be held by another program, on one of these places.
std::string heldError(const std::filesystem::path& path, const std::vector<std::filesystem::path>& places);

}  // namespace pellor
