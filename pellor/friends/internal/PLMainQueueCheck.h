// The check of debug builds that an object is used on the main queue.
#pragma once

#include <string_view>

#include "pellor/runtime/Process.h"

namespace pellor {

/// Ends the program, in debug builds, unless the caller runs on the main queue of `process`.
inline void checkMainQueue([[maybe_unused]] const Process& process, [[maybe_unused]] std::string_view operation) {
#ifndef NDEBUG
  process.requireMainQueue(operation);
#endif
}

}  // namespace pellor
