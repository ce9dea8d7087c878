#include "pellor/linux/files/internal/SecretFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "pellor/linux/files/internal/PrivateFiles.h"

namespace pellor {
namespace {

constexpr std::size_t LongestSecret = 8192;

std::string withoutBlanksAtTheEnds(const std::string& line) {
  constexpr const char* blanks = " \t\r";
  const std::size_t first = line.find_first_not_of(blanks);
  return first == std::string::npos ? "" : line.substr(first, line.find_last_not_of(blanks) - first + 1);
}

bool isControl(char character) { return static_cast<unsigned char>(character) < 0x20 || character == 0x7F; }

Secret without(std::string problem) { return {"", std::move(problem), false}; }

}  // namespace

Secret readSecret(const std::filesystem::path& file) {
  // Without waiting: the name may be that of a pipe.
  const FileDescriptor descriptor(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat found {};
  std::array<char, LongestSecret> content{};
  const ssize_t size = descriptor ? ::read(descriptor.get(), content.data(), content.size()) : -1;
  if (size < 0 || ::fstat(descriptor.get(), &found) != 0) return without(systemError("cannot read", file));
  const std::string text(content.data(), static_cast<std::size_t>(size));
  const std::string secret = withoutBlanksAtTheEnds(text.substr(0, text.find('\n')));
  if (secret.empty()) return without("there is nothing in the first line of " + file.string());
  if (std::ranges::any_of(secret, isControl)) return without("what is in " + file.string() + " is no text");
  return {secret, "", (found.st_mode & (S_IRWXG | S_IRWXO)) != 0};
}

}  // namespace pellor
