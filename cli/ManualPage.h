// The manual page of the program.
#pragma once

#include <string>

#include "cli/CommandTable.h"

namespace pellor::cli {

/// In the form that `man` reads.
std::string manualPage(const CommandEntry& program, const std::string& version);

}  // namespace pellor::cli
