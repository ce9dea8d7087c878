#include "linux/mosquitto/FileLock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>

namespace pellor {

std::optional<FileLock> FileLock::take(const std::filesystem::path& file, int operation) {
  createPrivateFolder(file.parent_path());
  FileDescriptor descriptor(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  if (!descriptor) return std::nullopt;
  while (::flock(descriptor.get(), operation) != 0) {
    if (errno != EINTR) return std::nullopt;
  }
  return FileLock(std::move(descriptor));
}

std::optional<FileLock> FileLock::wait(const std::filesystem::path& file) { return take(file, LOCK_EX); }

std::optional<FileLock> FileLock::tryTake(const std::filesystem::path& file) { return take(file, LOCK_EX | LOCK_NB); }

}  // namespace pellor
