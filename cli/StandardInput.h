// What comes through a pipe in place of arguments.
#pragma once

#include <string>
#include <vector>

namespace pellor::cli {

/// The arguments, with the lines of standard input in the place of "-": without spaces around them, and without those
/// that are empty. Throws UsageError for a second "-", and where no line comes.
std::vector<std::string> withLinesOfInput(const std::vector<std::string>& arguments);

}  // namespace pellor::cli
