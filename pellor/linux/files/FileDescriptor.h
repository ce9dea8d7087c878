// A file descriptor that is closed with its owner.
#pragma once

namespace pellor {

/// Closes what it holds. One thread at a time.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  /// Takes over what a system call gave; a negative one is none.
  explicit FileDescriptor(int descriptor) : _descriptor(descriptor) {}
  ~FileDescriptor() { close(); }
  FileDescriptor(FileDescriptor&& other) noexcept : _descriptor(other.release()) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept;
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;

  int get() const { return _descriptor; }
  explicit operator bool() const { return _descriptor >= 0; }
  /// Gives it to the caller, open.
  int release();
  void close();

 private:
  int _descriptor = -1;
};

}  // namespace pellor
