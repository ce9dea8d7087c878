#include "linux/ContactFolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <memory>
#include <system_error>

#include "linux/CardText.h"
#include "linux/PrivateFiles.h"

namespace pellor {

namespace {

// Two changes within one tick of the file system's clock leave the same time behind.
constexpr std::int64_t ClockTick = 50'000'000;

std::string errorText(int error) { return std::generic_category().message(error); }

std::int64_t nanoseconds(const timespec& time) { return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec; }

FileSignature signatureOf(const struct stat& status) {
  return {static_cast<std::int64_t>(status.st_ino), static_cast<std::int64_t>(status.st_size),
          nanoseconds(status.st_mtim), nanoseconds(status.st_ctim)};
}

bool changedJustNow(const FileSignature& signature) {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  const std::int64_t age = nanoseconds(now) - signature.modified;
  return age >= 0 && age < ClockTick;
}

using Directory = std::unique_ptr<DIR, int (*)(DIR*)>;

Directory openFolder(const std::filesystem::path& folder) {
  Directory directory(opendir(folder.c_str()), closedir);
  if (directory) return directory;
  const int error = errno;
  const bool isMissing = error == ENOENT || error == ENOTDIR;
  throw ContactFolderError(isMissing
                               ? "the contacts folder " + folder.string() + " does not exist"
                               : "the contacts folder " + folder.string() + " cannot be read: " + errorText(error),
                           isMissing);
}

ContactFileContent unusable(ContactFileContent content, std::string problem) {
  content.problem = std::move(problem);
  return content;
}

ContactFileContent unreadable(int error) {
  ContactFileContent content;
  content.problem = "it cannot be read: " + errorText(error);
  content.isMissing = error == ENOENT;
  return content;
}

/// How much of `buffer` was filled; negative when reading failed.
ssize_t readFully(int file, std::string& buffer) {
  std::size_t filled = 0;
  while (filled < buffer.size()) {
    const ssize_t size = read(file, buffer.data() + filled, buffer.size() - filled);
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) return size;
    if (size == 0) break;
    filled += static_cast<std::size_t>(size);
  }
  return static_cast<ssize_t>(filled);
}

}  // namespace

std::filesystem::path normalisedFolder(const std::filesystem::path& folder) {
  std::filesystem::path path = std::filesystem::absolute(folder).lexically_normal();
  return path.has_filename() ? path : path.parent_path();
}

bool isContactFileName(std::string_view name) {
  return name.size() > 4 && name.front() != '.' && lowerCased(name.substr(name.size() - 4)) == ".vcf";
}

std::map<std::string, FileSignature> listContactFiles(const std::filesystem::path& folder) {
  const Directory directory = openFolder(folder);
  std::map<std::string, FileSignature> files;
  errno = 0;
  while (const dirent* entry = readdir(directory.get())) {
    if (isContactFileName(entry->d_name)) {
      if (const auto signature = contactFileSignature(folder, entry->d_name)) files.emplace(entry->d_name, *signature);
    }
    errno = 0;
  }
  if (errno == 0) return files;
  // Half a listing would read as contacts that are gone.
  throw ContactFolderError("the contacts folder " + folder.string() + " cannot be read: " + errorText(errno), false);
}

std::optional<FileSignature> contactFileSignature(const std::filesystem::path& folder, const std::string& name) {
  struct stat status {};
  if (stat((folder / name).c_str(), &status) == 0) return signatureOf(status);
  if (errno == ENOENT || errno == ENOTDIR) return std::nullopt;
  return FileSignature();
}

ContactFileContent readContactFile(const std::filesystem::path& folder, const std::string& name) {
  const FileDescriptor file(open((folder / name).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  if (!file || fstat(file.get(), &status) != 0) return unreadable(errno);
  ContactFileContent content;
  content.signature = signatureOf(status);
  if (!S_ISREG(status.st_mode)) return unusable(content, "it is no regular file");
  if (!isUtf8(name)) return unusable(content, "its name is no UTF-8");
  if (status.st_size > ContactFileSizeLimit) return unusable(content, "it is too large for a card");
  std::string text(static_cast<std::size_t>(status.st_size), '\0');
  const ssize_t size = readFully(file.get(), text);
  if (size < 0) return unreadable(errno);
  text.resize(static_cast<std::size_t>(size));
  content.text = std::move(text);
  if (changedJustNow(content.signature)) content.signature = {};
  return content;
}

// FNV-1a with 64 bits.
std::int64_t contentHash(std::string_view text) {
  std::uint64_t hash = 0xcbf29ce484222325U;
  for (const char c : text) {
    hash ^= static_cast<unsigned char>(c);
    hash *= 0x100000001b3U;
  }
  return static_cast<std::int64_t>(hash);
}

}  // namespace pellor
