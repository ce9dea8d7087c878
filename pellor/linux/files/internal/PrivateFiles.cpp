#include "pellor/linux/files/internal/PrivateFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>
#include <vector>

#include "pellor/linux/files/internal/NettleDigest.h"

namespace pellor {
namespace {

constexpr mode_t OwnerOnlyFolder = 0700, OwnerOnlyFile = 0600;

// The name of a new file is safe only once its folder is.
bool syncFolder(const std::filesystem::path& folder) {
  const FileDescriptor descriptor(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  return descriptor && syncNames(descriptor.get());
}

std::filesystem::path folderOf(const std::filesystem::path& file) {
  return file.has_parent_path() ? file.parent_path() : std::filesystem::path(".");
}

bool isAsciiLetterOrDigit(char character) {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
         (character >= '0' && character <= '9');
}

std::string hexadecimal(std::uint8_t byte) {
  constexpr std::string_view digits = "0123456789abcdef";
  return {digits[byte >> 4], digits[byte & 0x0F]};
}

}  // namespace

bool writeAll(int descriptor, const void* bytes, std::size_t length) {
  const char* next = static_cast<const char*>(bytes);
  while (length > 0) {
    const ssize_t written = ::write(descriptor, next, length);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    next += written;
    length -= static_cast<std::size_t>(written);
  }
  return true;
}

bool syncNames(int folder) {
  const FileDescriptor opened(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return opened && ::fsync(opened.get()) == 0;
}

void reserveBlocks(int descriptor, std::size_t length) {
  static_cast<void>(::posix_fallocate(descriptor, 0, static_cast<off_t>(length)));
}

std::string systemError(std::string_view what, const std::filesystem::path& path) {
  const int code = errno;
  return std::string(what) + " " + path.string() + ": " + std::system_category().message(code);
}

std::optional<std::string> createPrivateFolder(const std::filesystem::path& folder) {
  std::error_code ignored;
  if (folder.empty() || std::filesystem::is_directory(folder, ignored)) return std::nullopt;
  // "a/b/" names the same folder as "a/b", but its parent path would be "a/b" again.
  if (!folder.has_filename()) return createPrivateFolder(folder.parent_path());
  if (auto error = createPrivateFolder(folder.parent_path())) return error;
  if (::mkdir(folder.c_str(), OwnerOnlyFolder) == 0) {
    // Whatever the umask says.
    ::chmod(folder.c_str(), OwnerOnlyFolder);
    return std::nullopt;
  }
  const std::string error = systemError("cannot make the folder", folder);
  // Another process may have been faster.
  if (std::filesystem::is_directory(folder, ignored)) return std::nullopt;
  return error;
}

std::vector<std::string> namesIn(const std::filesystem::path& folder) {
  std::vector<std::string> names;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
    names.push_back(entry->path().filename().string());
  }
  return names;
}

std::optional<std::string> replacePrivateFile(const std::filesystem::path& file, std::string_view content) {
  std::string draft = (file.parent_path() / ("." + file.filename().string() + ".XXXXXX")).string();
  FileDescriptor descriptor(::mkostemp(draft.data(), O_CLOEXEC));
  if (!descriptor) return systemError("cannot write", file);
  static_cast<void>(::fchmod(descriptor.get(), OwnerOnlyFile));
  reserveBlocks(descriptor.get(), content.size());
  const bool isWritten = writeAll(descriptor.get(), content.data(), content.size()) && ::fsync(descriptor.get()) == 0;
  descriptor.close();
  if (isWritten && ::rename(draft.c_str(), file.c_str()) == 0) {
    // Nobody may be told that it was not written.
    static_cast<void>(syncFolder(folderOf(file)));
    return std::nullopt;
  }
  std::string error = systemError("cannot write", file);
  ::unlink(draft.c_str());
  return error;
}

std::string fileNameOf(std::string_view text) {
  // Leaves room in the 255 bytes of a file name for what callers put around it.
  constexpr std::size_t longest = 100;
  std::string name;
  for (const char character : text) {
    const bool isPlain =
        isAsciiLetterOrDigit(character) || character == '-' || character == '_' || (character == '.' && !name.empty());
    name += isPlain ? std::string(1, character) : "%" + hexadecimal(static_cast<std::uint8_t>(character));
  }
  if (name.empty()) return "%";
  if (name.size() <= longest) return name;
  name = name.substr(0, longest / 2) + "%%";
  const std::vector<std::uint8_t> bytes(text.begin(), text.end());
  for (const std::uint8_t byte : NettleDigest().sha1(bytes)) name += hexadecimal(byte);
  return name;
}

FileCreation createPrivateFile(const std::filesystem::path& file, std::span<const std::uint8_t> content) {
  const FileDescriptor descriptor(::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, OwnerOnlyFile));
  if (!descriptor) return errno == EEXIST ? FileCreation::exists : FileCreation::failed;
  static_cast<void>(::fchmod(descriptor.get(), OwnerOnlyFile));
  const bool isSafe = writeAll(descriptor.get(), content.data(), content.size()) && ::fsync(descriptor.get()) == 0 &&
                      syncFolder(file.parent_path());
  if (isSafe) return FileCreation::created;
  ::unlink(file.c_str());
  return FileCreation::failed;
}

}  // namespace pellor
