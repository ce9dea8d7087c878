#include "pellor/linux/files/FileDescriptor.h"

#include <unistd.h>

#include <utility>

namespace pellor {

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
  if (this == &other) return *this;
  close();
  _descriptor = other.release();
  return *this;
}

int FileDescriptor::release() { return std::exchange(_descriptor, -1); }

void FileDescriptor::close() {
  if (_descriptor >= 0) ::close(release());
}

}  // namespace pellor
