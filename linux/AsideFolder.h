// The folder in which dated copies of damaged values are kept.
#pragma once

#include <filesystem>
#include <string_view>

#include "runtime/Value.h"

namespace pellor {

/// Of the data folder.
inline constexpr const char* AsideFolderName = "aside";

/// Keeps the bytes of a value as `folder`/<key>-<domain>-<UTC time>.cbor, on the disk when this returns; the same bytes
/// once. False when no copy could be made. Any thread.
bool keepAside(const std::filesystem::path& folder, std::string_view key, std::string_view domain, const Data& bytes);

/// Moves a database with its logs to `folder`/<its name>-<UTC time>. False when that failed. Any thread.
bool moveAside(const std::filesystem::path& folder, const std::filesystem::path& database);

}  // namespace pellor
