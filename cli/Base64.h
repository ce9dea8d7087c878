// Bytes as text.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "pellor/runtime/Value.h"

namespace pellor::cli {

/// With padding, on one line.
std::string base64(const Data& data);

/// The bytes of such a text; absent for any other text.
std::optional<Data> base64Decoded(std::string_view text);

}  // namespace pellor::cli
