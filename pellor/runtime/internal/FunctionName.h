// Names of operations for the log.
#pragma once

#include <string>
#include <string_view>

namespace pellor {

/// The unqualified name of the function that a compiler describes as `signature` (std::source_location::function_name),
/// without template arguments; of a lambda, that of the function around it. Understands the spellings of GCC, clang and
/// MSVC, and bare names; another spelling it gives whole.
std::string functionName(std::string_view signature);

}  // namespace pellor
