// What comes through a pipe or in a file in place of arguments.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace pellor::cli {

/// The arguments, with the lines of standard input in the place of "-": without spaces around them, and without those
/// that are empty. Throws UsageError for a second "-", and where no line comes.
std::vector<std::string> withLinesOfInput(const std::vector<std::string>& arguments);

/// The bytes of a file, or why there are none.
struct FileInput {
  std::string name;
  std::string bytes;
  std::string problem;  ///< empty for none
};

/// Reads a file, also a pipe; "-" is standard input. More than `limit` bytes are a problem.
FileInput readInput(const std::string& path, std::size_t limit);

}  // namespace pellor::cli
