// Opens and reads files of the user in whose place there may be something else. Links are followed.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

#include "pellor/linux/files/internal/PrivateFiles.h"

namespace pellor {

/// A regular file that is open, or why there is none.
struct OpenedFile {
  FileDescriptor descriptor;
  std::string problem;           ///< with the path; empty when the file is open
  bool isMissing = false;        ///< whether the problem is that there is nothing
  bool wasOpenToOthers = false;  ///< of a private file: others could read or write it until now
};

/// Opens a regular file without waiting. A pipe, a device, a socket or a folder in its place is a problem, and is not
/// touched. `flags` are those of open(2); a file that is made is its owner's alone. Any thread.
OpenedFile openRegularFile(const std::filesystem::path& file, int flags);

/// Why the path cannot be that of a regular file; absent for one, and where there is nothing or nothing to be seen.
std::optional<std::string> problemOfFile(const std::filesystem::path& file);

/// What is in a regular file, or why that cannot be told.
struct FileContent {
  std::optional<std::string> text;
  std::string problem;     ///< with the path; empty when there is a text
  bool isMissing = false;  ///< whether the problem is that there is no file
};

/// More than any file of this library holds.
inline constexpr std::size_t LongestFileContent = std::size_t{64} * 1024 * 1024;

/// Reads a whole regular file of at most `limit` bytes without waiting. Any thread.
FileContent readRegularFile(const std::filesystem::path& file, std::size_t limit = LongestFileContent);

/// Reads what was opened at that path.
FileContent readOpenedFile(const OpenedFile& opened, const std::filesystem::path& file, std::size_t limit);

}  // namespace pellor
