// The library's own folders and files: for their owner alone, and reached through no link.
//
// A private place is the folder in which the library keeps the data, the state or the counters of one user, with all
// that the library puts there. Links on the way to it are the user's to arrange: `placeBehindLinks` follows them once.
// From there on no part of a path is a link, and nothing belongs to another user: what is found otherwise is refused
// with a text that says what to do, and neither it nor what a link leads to is touched. What the user owns and others
// may read or write is closed to them. What the library makes is closed to others whatever the umask says.
//
// Whatever is looked at is what is used: folders are entered by descriptors, one part of the path after another. The
// user's own files (configuration, certificates, contacts) are no part of it, see RegularFile.h. Any thread.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "pellor/linux/files/internal/PrivateFiles.h"
#include "pellor/linux/files/internal/RegularFile.h"

namespace pellor {

/// Where the folder is once all links on the way are followed, its own name included. What is missing stays as it is
/// named.
std::filesystem::path placeBehindLinks(const std::filesystem::path& folder);

/// Why something that `owner` owns is refused to `user`; absent when it is that user's.
std::optional<std::string> problemOfOwner(const std::filesystem::path& path, uid_t owner, uid_t user);

/// A folder of a private place.
class PrivateFolder {
 public:
  /// Touches nothing. `path`: see `placeBehindLinks`.
  explicit PrivateFolder(std::filesystem::path path) : _path(std::move(path)) {}

  /// Makes it with mode 0700, and what is missing above it. Absent when it is there afterwards and may be used.
  std::optional<std::string> make() const;

  /// A folder that is open, or why there is none.
  struct Opened {
    FileDescriptor descriptor;
    std::string problem;           ///< with the path; empty when the folder is open
    bool isMissing = false;        ///< whether the problem is that there is nothing
    bool wasOpenToOthers = false;  ///< others could read or write it until now
  };
  /// For the names in it alone: the descriptor can neither be locked nor read.
  Opened enter() const;
  /// To be locked or synchronised.
  Opened open() const;

 private:
  const std::filesystem::path _path;
};

/// A file in a folder of a private place.
class PrivateFile {
 public:
  /// Touches nothing. `path`: below what `placeBehindLinks` gave.
  explicit PrivateFile(std::filesystem::path path) : _path(std::move(path)) {}

  const std::filesystem::path& path() const { return _path; }

  /// Opens it without waiting. `flags` are those of open(2); with O_CREAT a missing file is made, with mode 0600, in a
  /// folder that is there. A pipe, a device, a socket or a folder in its place is a problem, and is not touched.
  OpenedFile open(int flags) const;
  /// Reads all of it, at most `limit` bytes.
  FileContent read(std::size_t limit = LongestFileContent) const;
  /// Makes one that was not there before. When it is `created` its content is on the disk. Nothing is left behind after
  /// a failure.
  FileCreation create(std::span<const std::uint8_t> content) const;
  /// Replaces it, or makes it, in one step: a reader sees the old content or the new one, whole. Absent on success,
  /// else the error. Survives the end of the process, not of the system.
  std::optional<std::string> replace(std::string_view content) const;
  /// Absent when it is gone; a missing one is.
  std::optional<std::string> remove() const;

  /// Why it cannot be used, for what opens it by its path; absent for a file that can, and where there is nothing.
  std::optional<std::string> problem() const;

 private:
  PrivateFolder::Opened folder() const;

  const std::filesystem::path _path;
};

}  // namespace pellor
