#include "pellor/linux/files/internal/RegularFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace pellor {
namespace {

std::string notRegular(const std::filesystem::path& file) { return file.string() + " is no regular file"; }

FileContent unreadable(const std::filesystem::path& file) {
  return {std::nullopt, systemError("cannot read", file), false};
}

}  // namespace

std::optional<std::string> problemOfFile(const std::filesystem::path& file) {
  struct stat found {};
  if (::stat(file.c_str(), &found) != 0 || S_ISREG(found.st_mode)) return std::nullopt;
  return notRegular(file);
}

OpenedFile openRegularFile(const std::filesystem::path& file, int flags) {
  // Looked at before, because to open a device may do something to it.
  if (auto problem = problemOfFile(file)) return {{}, *std::move(problem), false, false};
  FileDescriptor descriptor(::open(file.c_str(), flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, S_IRUSR | S_IWUSR));
  if (!descriptor) {
    const bool isMissing = errno == ENOENT || errno == ENOTDIR;
    return {{}, systemError("cannot open", file), isMissing, false};
  }
  struct stat found {};
  if (::fstat(descriptor.get(), &found) != 0 || !S_ISREG(found.st_mode)) return {{}, notRegular(file), false, false};
  return {std::move(descriptor), "", false, false};
}

FileContent readRegularFile(const std::filesystem::path& file, std::size_t limit) {
  return readOpenedFile(openRegularFile(file, O_RDONLY), file, limit);
}

FileContent readOpenedFile(const OpenedFile& opened, const std::filesystem::path& file, std::size_t limit) {
  if (!opened.descriptor) return {std::nullopt, opened.problem, opened.isMissing};
  struct stat found {};
  if (::fstat(opened.descriptor.get(), &found) != 0) return unreadable(file);
  if (static_cast<std::size_t>(found.st_size) > limit) return {std::nullopt, file.string() + " is too large", false};
  // One more byte than it had: a file that grows is read to its new end.
  std::string text(static_cast<std::size_t>(found.st_size) + 1, '\0');
  std::size_t filled = 0;
  while (filled <= limit) {
    if (filled == text.size()) text.resize(2 * text.size());
    const ssize_t count = ::read(opened.descriptor.get(), text.data() + filled, text.size() - filled);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return unreadable(file);
    if (count == 0) break;
    filled += static_cast<std::size_t>(count);
  }
  text.resize(filled);
  return {std::move(text), "", false};
}

}  // namespace pellor
