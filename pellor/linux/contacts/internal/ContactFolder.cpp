#include "pellor/linux/contacts/internal/ContactFolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <memory>
#include <system_error>
#include <utility>

#include "pellor/linux/files/internal/FolderWatch.h"
#include "pellor/linux/files/internal/PrivateFiles.h"
#include "pellor/linux/text/CardText.h"

namespace pellor {

namespace {

// Two changes within one tick of the file system's clock leave one time behind.
constexpr std::int64_t ClockTick = 50'000'000;

std::string errorText(int error) { return std::generic_category().message(error); }

std::int64_t nanoseconds(const timespec& time) { return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec; }

CardSignature signatureOf(const struct stat& status) {
  return {{static_cast<std::int64_t>(status.st_ino), static_cast<std::int64_t>(status.st_size),
           nanoseconds(status.st_mtim), nanoseconds(status.st_ctim)}};
}

bool changedJustNow(const struct stat& status) {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  const std::int64_t age = nanoseconds(now) - nanoseconds(status.st_mtim);
  return age >= 0 && age < ClockTick;
}

CardSourceError unreadableFolder(const std::filesystem::path& folder) {
  return {"the contacts folder " + folder.string() + " cannot be read: " + errorText(errno),
          CardSourceError::Remedy::tryAgain};
}

// Of a path that begins at an open folder.
std::optional<CardSignature> signatureAt(int folder, const char* path) {
  struct stat status {};
  if (::fstatat(folder, path, &status, 0) == 0) return signatureOf(status);
  if (errno == ENOENT || errno == ENOTDIR) return std::nullopt;
  return CardSignature();
}

using Directory = std::unique_ptr<DIR, int (*)(DIR*)>;

Directory openFolder(const std::filesystem::path& folder) {
  Directory directory(opendir(folder.c_str()), closedir);
  if (directory) return directory;
  if (errno == ENOENT || errno == ENOTDIR)
    throw CardSourceError("the contacts folder " + folder.string() + " does not exist",
                          CardSourceError::Remedy::toldOf);
  throw unreadableFolder(folder);
}

CardContent unusable(CardContent content, std::string problem) {
  content.problem = std::move(problem);
  return content;
}

CardContent unreadable(int error) {
  CardContent content;
  content.problem = "it cannot be read: " + errorText(error);
  content.isMissing = error == ENOENT;
  content.isForNow = error == EMFILE || error == ENFILE || error == ENOMEM;
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

std::map<std::string, CardSignature> ContactFolder::list() {
  const Directory directory = openFolder(_path);
  std::map<std::string, CardSignature> files;
  errno = 0;
  while (const dirent* entry = readdir(directory.get())) {
    if (isContactFileName(entry->d_name)) {
      const auto known = signatureAt(::dirfd(directory.get()), entry->d_name);
      if (known) files.emplace(entry->d_name, *known);
    }
    errno = 0;
  }
  if (errno == 0) return files;
  // Half a listing would read as contacts that are gone.
  throw unreadableFolder(_path);
}

std::optional<CardSignature> ContactFolder::signature(const std::string& card) {
  return signatureAt(AT_FDCWD, (_path / card).c_str());
}

CardContent ContactFolder::read(const std::string& card) {
  const FileDescriptor file(open((_path / card).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  if (!file || fstat(file.get(), &status) != 0) return unreadable(errno);
  CardContent content;
  content.signature = signatureOf(status);
  if (!S_ISREG(status.st_mode)) return unusable(content, "it is no regular file");
  if (!isUtf8(card)) return unusable(content, "its name is no UTF-8");
  if (status.st_size > ContactFileSizeLimit) return unusable(content, "it is too large");
  std::string text(static_cast<std::size_t>(status.st_size), '\0');
  const ssize_t size = readFully(file.get(), text);
  if (size < 0) return unreadable(errno);
  text.resize(static_cast<std::size_t>(size));
  content.text = std::move(text);
  if (changedJustNow(status)) content.signature = {};
  return content;
}

namespace {

bool concernsContacts(std::string_view name) { return isContactFileName(name) || name == FavoritesFileName; }

class ContactFolderWatch final : public CardWatch {
 public:
  ContactFolderWatch(const std::filesystem::path& folder, std::function<void(const CardNews&)> handler)
      : _watch(folder, concernsContacts,
               [handler = std::move(handler)](const FolderChange& change, const std::string& problem) {
                 CardNews news{change, false, problem};
                 news.favoritesChanged = news.change.names.erase(std::string(FavoritesFileName)) > 0;
                 handler(news);
               }) {}

 private:
  FolderWatch _watch;
};

}  // namespace

std::unique_ptr<CardWatch> ContactFolder::watch(std::function<void(const CardNews&)> handler) {
  return std::make_unique<ContactFolderWatch>(_path, std::move(handler));
}

}  // namespace pellor
