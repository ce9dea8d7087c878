// Broken contracts end the program, in every build, with one line that says what was expected.
#pragma once

#include <string_view>

namespace pellor {

/// Writes "pellor: fatal: <expected>" to the current process's log (where there is one) and to standard error, then
/// aborts. Any thread.
[[noreturn]] void fatal(std::string_view expected);

/// Ends the program unless `holds`.
inline void require(bool holds, std::string_view expected) {
  if (!holds) fatal(expected);
}

}  // namespace pellor
