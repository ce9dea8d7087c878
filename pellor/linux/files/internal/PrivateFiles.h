// Files and folders of the user, made for their owner alone; links are followed. The library's own: PrivatePlace.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/linux/files/FileDescriptor.h"
#include "pellor/linux/files/FileReplacement.h"

namespace pellor {

/// "<what> <path>: <the system's text for errno>".
std::string systemError(std::string_view what, const std::filesystem::path& path);

/// Makes the folder and the missing ones above it with mode 0700; those that are there keep theirs. Absent when the
/// folder is there afterwards, else the error. Any thread.
std::optional<std::string> createPrivateFolder(const std::filesystem::path& folder);

/// The names of all entries of the folder, in any order: none, or those up to there, where it cannot be read. Any
/// thread.
std::vector<std::string> namesIn(const std::filesystem::path& folder);

/// A file name made of the text, another one for every text: what is no letter, digit, ".", "-" or "_" of ASCII becomes
/// "%" and two digits, and a name that would be too long ends in a digest. Never empty, never beginning with a dot.
std::string fileNameOf(std::string_view text);

/// What became of an attempt to make a new file.
enum class FileCreation { created, exists, failed };

/// Makes a file of mode 0600 that was not there before. When it is `created` its content is on the disk. Nothing is
/// left behind after a failure. Any thread.
FileCreation createPrivateFile(const std::filesystem::path& file, std::span<const std::uint8_t> content);

/// Writes all bytes to an open file. False, with errno set, when that failed.
bool writeAll(int descriptor, const void* bytes, std::size_t length);

/// Makes the names in an open folder safe from a loss of power; what is open may be there for the names alone (O_PATH).
/// False, with errno set, when that failed.
bool syncNames(int folder);

/// Gives an open file its blocks before it is written: a rename then need not wait until the content has found some,
/// which takes a disk write. A file system that cannot do that loses the time alone.
void reserveBlocks(int descriptor, std::size_t length);

}  // namespace pellor
