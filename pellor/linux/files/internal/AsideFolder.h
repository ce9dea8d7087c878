// Damaged values and databases are put aside under dated names.
#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

#include "pellor/runtime/Value.h"

namespace pellor {

/// Of the data folder.
inline constexpr const char* AsideFolderName = "aside";

/// Keeps the bytes of a value as `folder`/<key>-<domain>-<UTC time>.cbor, on the disk when this returns; equal bytes
/// once. False when no copy could be made. Any thread.
bool keepAside(const std::filesystem::path& folder, std::string_view key, std::string_view domain, const Data& bytes);

/// Moves a database with its logs to `place`-<UTC time>, with a number behind it where something is there. The folder
/// of `place` has to be there. The database's new path; absent when nothing could be moved. Any thread.
std::optional<std::filesystem::path> moveDatabaseAside(const std::filesystem::path& database,
                                                       const std::filesystem::path& place);

/// Moves a database with its logs to `folder`/<its name>-<UTC time>. False when that failed. Any thread.
bool moveAside(const std::filesystem::path& folder, const std::filesystem::path& database);

}  // namespace pellor
