#include "cli/StandardInput.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <string_view>

#include "cli/CommandError.h"
#include "pellor/linux/files/FileDescriptor.h"

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

FileInput readInput(const std::string& path, std::size_t limit) {
  const bool isStandardInput = path == "-";
  FileInput input{isStandardInput ? "standard input" : path, {}, {}};
  const FileDescriptor file(isStandardInput ? ::dup(STDIN_FILENO) : ::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  std::vector<char> buffer(std::size_t{1} << 20U);
  while (true) {
    const ssize_t size = file ? ::read(file.get(), buffer.data(), buffer.size()) : -1;
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) input.problem = std::string("it cannot be read: ") + std::strerror(errno);
    if (size <= 0) return input;
    input.bytes.append(buffer.data(), static_cast<std::size_t>(size));
    if (input.bytes.size() > limit) {
      input.problem = "it is too large";
      return input;
    }
  }
}

}  // namespace pellor::cli
