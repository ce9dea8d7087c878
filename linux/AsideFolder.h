// The folder in which dated copies of damaged values are kept.
#pragma once

#include <filesystem>
#include <string_view>

#include "runtime/Value.h"

namespace pellor {

/// Keeps the bytes of a value as `folder`/<key>-<domain>-<UTC time>.cbor, on the disk when this returns; the same bytes
/// once. False when no copy could be made. Any thread.
bool keepAside(const std::filesystem::path& folder, std::string_view key, std::string_view domain, const Data& bytes);

}  // namespace pellor
