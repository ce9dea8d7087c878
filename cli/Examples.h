// What commands look like when they are used.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace pellor::cli {

/// Whole command lines for the command of that name, "favorites add"; for the empty name those of the program.
std::vector<std::string> examplesOf(std::string_view command);

}  // namespace pellor::cli
