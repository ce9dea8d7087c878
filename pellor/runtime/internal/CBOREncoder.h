// Writes CBOR behind other CBOR.
#pragma once

#include <cstddef>

#include "pellor/runtime/Value.h"

namespace pellor {

/// Appends the value as `encodeCBOR` gives it to `bytes`, for a value with `depth` arrays and dictionaries around it.
/// False when a limit is exceeded.
bool appendCBOR(const Value& value, std::size_t depth, Data& bytes);

}  // namespace pellor
