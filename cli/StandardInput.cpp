#include "cli/StandardInput.h"

#include <algorithm>
#include <iostream>
#include <string_view>

#include "cli/CommandError.h"

namespace pellor::cli {
namespace {

constexpr std::string_view Spaces = " \t\r";

std::vector<std::string> linesOfInput() {
  std::vector<std::string> lines;
  for (std::string line; std::getline(std::cin, line);) {
    const std::size_t first = line.find_first_not_of(Spaces);
    if (first == std::string::npos) continue;
    lines.push_back(line.substr(first, line.find_last_not_of(Spaces) + 1 - first));
  }
  if (lines.empty()) throw UsageError("- stands for the lines of standard input, and there are none");
  return lines;
}

}  // namespace

std::vector<std::string> withLinesOfInput(const std::vector<std::string>& arguments) {
  if (std::ranges::count(arguments, "-") > 1) throw UsageError("- stands for all lines of standard input, once");
  std::vector<std::string> all;
  for (const std::string& argument : arguments) {
    const std::vector<std::string> taken = argument == "-" ? linesOfInput() : std::vector{argument};
    all.insert(all.end(), taken.begin(), taken.end());
  }
  return all;
}

}  // namespace pellor::cli
