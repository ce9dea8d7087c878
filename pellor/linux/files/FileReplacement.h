// Writes a file of its owner's alone in one step.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace pellor {

/// Replaces the file by one with this content and mode 0600, so that a reader sees the old content or the new one,
/// whole, also after a loss of power: the new one, unless the disk failed to force the name of the file to it. Absent
/// when it is replaced, else the error. Any thread.
std::optional<std::string> replacePrivateFile(const std::filesystem::path& file, std::string_view content);

}  // namespace pellor
