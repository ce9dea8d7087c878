// Ids of steps.
#pragma once

#include <cstdint>
#include <string>

#include "pellor/runtime/Value.h"

namespace pellor {

/// An id of two numbers that chance made.
std::string stepIdOf(std::uint64_t first, std::uint64_t second);
/// The id of a step that several processes may make: equal for equal values, and in practice for no others.
std::string stepIdFrom(const Value& what);

}  // namespace pellor
