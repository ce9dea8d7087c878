#include "pellor/linux/files/internal/PrivatePlace.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <random>
#include <system_error>
#include <utility>

namespace pellor {
namespace {

namespace fs = std::filesystem;
using OpenedFolder = PrivateFolder::Opened;

constexpr mode_t Others = S_IRWXG | S_IRWXO;
constexpr int WithoutWaiting = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
constexpr int ToEnter = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

std::string linkProblem(const fs::path& path) {
  return path.string() + " is a link, and none is followed there: remove it, or put what it leads to in its place";
}

bool isAbsence(int error) { return error == ENOENT || error == ENOTDIR; }

/// Takes from others what they may do. By an inode that nothing opens: to open a database that this process has open,
/// and to close it, would end its locks.
bool closeToOthers(int inode, mode_t mode) {
  const std::string path = "/proc/self/fd/" + std::to_string(inode);
  return ::chmod(path.c_str(), mode & ~Others & 07777) == 0;
}

// On a disk that is read-only, where others write nothing either.
bool mayStayOpen() { return errno == EROFS; }

std::optional<std::string> ownedProblem(const fs::path& path, const struct stat& found) {
  return problemOfOwner(path, found.st_uid, ::geteuid());
}

std::string openProblem(const fs::path& path) {
  return path.string() +
         " is open to other users, and cannot be closed to them (chmod go=): " + std::system_category().message(errno);
}

/// What the path leads to is a folder, of the user's alone from then on.
void examine(OpenedFolder& opened, const fs::path& path) {
  struct stat found {};
  if (::fstat(opened.descriptor.get(), &found) != 0) {
    opened.problem = systemError("cannot look at", path);
  } else if (auto problem = ownedProblem(path, found)) {
    opened.problem = *std::move(problem);
  } else if ((found.st_mode & S_ISVTX) != 0) {
    opened.problem = path.string() + " is shared by all users: name a folder of your own";
  } else if ((found.st_mode & Others) != 0) {
    opened.wasOpenToOthers = closeToOthers(opened.descriptor.get(), found.st_mode);
    if (!opened.wasOpenToOthers && !mayStayOpen()) opened.problem = openProblem(path);
  }
  if (!opened.problem.empty()) opened.descriptor.close();
}

bool isLink(int folder, const char* name) {
  struct stat found {};
  return ::fstatat(folder, name, &found, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(found.st_mode);
}

OpenedFolder notEntered(int folder, const char* name, const fs::path& path) {
  const int error = errno;
  if (isLink(folder, name)) return {{}, linkProblem(path), false, false};
  errno = error;
  return {{}, systemError("cannot open the folder", path), error == ENOENT, false};
}

FileDescriptor beginOf(const fs::path& path) { return FileDescriptor(::open(path.is_absolute() ? "/" : ".", ToEnter)); }

enum class Missing { stays, isMade };

/// Makes it for the owner alone, whatever the umask says. An error is one of entering it.
FileDescriptor entered(int folder, const char* name, Missing missing) {
  FileDescriptor next(::openat(folder, name, ToEnter));
  if (next || errno != ENOENT || missing == Missing::stays) return next;
  const bool isMade = ::mkdirat(folder, name, S_IRWXU) == 0;
  // Another process may have been faster.
  if (!isMade && errno != EEXIST) return next;
  next = FileDescriptor(::openat(folder, name, ToEnter));
  if (isMade && next) static_cast<void>(::chmod(("/proc/self/fd/" + std::to_string(next.get())).c_str(), S_IRWXU));
  // What is stored in it is safe only once its name is. A folder that may not be read cannot be waited for.
  if (isMade && next) static_cast<void>(syncNames(folder));
  return next;
}

/// All parts at once, none of which is a link. None where the system cannot, and where a part is missing or refused:
/// who enters them one by one finds out which.
FileDescriptor enteredAtOnce(const fs::path& path) {
  open_how how{};
  how.flags = ToEnter;
  how.resolve = RESOLVE_NO_SYMLINKS;
  return FileDescriptor(static_cast<int>(::syscall(SYS_openat2, AT_FDCWD, path.c_str(), &how, sizeof how)));
}

OpenedFolder enterEach(const fs::path& path, Missing missing) {
  if (OpenedFolder opened{enteredAtOnce(path), "", false, false}; opened.descriptor) {
    examine(opened, path);
    return opened;
  }
  OpenedFolder opened{beginOf(path), "", false, false};
  if (!opened.descriptor) return notEntered(AT_FDCWD, ".", path);
  fs::path reached = path.root_path();
  for (const fs::path& part : path.relative_path()) {
    // "a/b/" names the same folder as "a/b".
    if (part.empty()) continue;
    reached /= part;
    FileDescriptor next = entered(opened.descriptor.get(), part.c_str(), missing);
    if (!next) return notEntered(opened.descriptor.get(), part.c_str(), reached);
    opened.descriptor = std::move(next);
  }
  examine(opened, path);
  return opened;
}

OpenedFile unopened(std::string problem, bool isMissing = false) { return {{}, std::move(problem), isMissing, false}; }

std::optional<std::string> kindProblem(const fs::path& path, const struct stat& found) {
  if (S_ISLNK(found.st_mode)) return linkProblem(path);
  if (!S_ISREG(found.st_mode)) return path.string() + " is no regular file";
  return ownedProblem(path, found);
}

struct Look {
  std::optional<std::string> problem;
  bool wasOpenToOthers = false;
};

/// Looks without opening it: to open a device may do something to it. No problem either where there is nothing.
Look lookAt(int folder, const fs::path& path) {
  struct stat found {};
  const std::string name = path.filename().string();
  if (::fstatat(folder, name.c_str(), &found, AT_SYMLINK_NOFOLLOW) != 0) return {};
  if (auto problem = kindProblem(path, found)) return {std::move(problem), false};
  if ((found.st_mode & Others) == 0) return {};
  const FileDescriptor inode(::openat(folder, name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  const bool isClosed = inode && ::fstat(inode.get(), &found) == 0 && S_ISREG(found.st_mode) &&
                        (closeToOthers(inode.get(), found.st_mode) || mayStayOpen());
  return {isClosed ? std::nullopt : std::optional(openProblem(path)), true};
}

/// A new file, with that mode whatever the umask says.
FileDescriptor made(int folder, const char* name, int flags) {
  FileDescriptor file(::openat(folder, name, flags | O_CREAT | O_EXCL | WithoutWaiting, S_IRUSR | S_IWUSR));
  if (file) static_cast<void>(::fchmod(file.get(), S_IRUSR | S_IWUSR));
  return file;
}

FileDescriptor openedOrNew(int folder, const char* name, int flags) {
  FileDescriptor file(::openat(folder, name, (flags & ~O_CREAT) | WithoutWaiting));
  if (file || errno != ENOENT || (flags & O_CREAT) == 0) return file;
  file = made(folder, name, flags);
  // Another process may have been faster.
  return file || errno != EEXIST ? std::move(file)
                                 : FileDescriptor(::openat(folder, name, (flags & ~O_CREAT) | WithoutWaiting));
}

/// A name for what is renamed once it is whole.
std::string draftNameFor(const fs::path& file) {
  constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
  constexpr int length = 8;
  std::random_device random;
  std::string name = "." + file.filename().string() + ".";
  for (int index = 0; index < length; ++index) name += letters[random() % letters.size()];
  return name;
}

}  // namespace

fs::path placeBehindLinks(const fs::path& folder) {
  std::error_code error;
  fs::path place = fs::weakly_canonical(folder, error);
  return error || place.empty() ? folder : place;
}

std::optional<std::string> problemOfOwner(const fs::path& path, uid_t owner, uid_t user) {
  if (owner == user) return std::nullopt;
  return path.string() + " belongs to another user (" + std::to_string(owner) +
         "): run this as that user, or take it over (chown)";
}

// PrivateFolder

std::optional<std::string> PrivateFolder::make() const {
  OpenedFolder opened = enterEach(_path, Missing::isMade);
  return opened.problem.empty() ? std::nullopt : std::optional(std::move(opened.problem));
}

OpenedFolder PrivateFolder::enter() const { return enterEach(_path, Missing::stays); }

OpenedFolder PrivateFolder::open() const {
  OpenedFolder opened = enter();
  if (!opened.descriptor) return opened;
  opened.descriptor = FileDescriptor(::openat(opened.descriptor.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!opened.descriptor) opened.problem = systemError("cannot open the folder", _path);
  return opened;
}

// PrivateFile

OpenedFolder PrivateFile::folder() const { return PrivateFolder(_path.parent_path()).enter(); }

OpenedFile PrivateFile::open(int flags) const {
  const OpenedFolder in = folder();
  if (!in.descriptor) return unopened(in.problem, in.isMissing);
  Look look = lookAt(in.descriptor.get(), _path);
  if (look.problem) return unopened(*std::move(look.problem));
  FileDescriptor file = openedOrNew(in.descriptor.get(), _path.filename().c_str(), flags);
  if (!file) {
    const bool isMissing = isAbsence(errno);
    return unopened(systemError("cannot open", _path), isMissing);
  }
  struct stat found {};
  if (::fstat(file.get(), &found) != 0) return unopened(systemError("cannot open", _path));
  if (auto problem = kindProblem(_path, found)) return unopened(*std::move(problem));
  return {std::move(file), "", false, look.wasOpenToOthers};
}

FileContent PrivateFile::read(std::size_t limit) const { return readOpenedFile(open(O_RDONLY), _path, limit); }

FileCreation PrivateFile::create(std::span<const std::uint8_t> content) const {
  const OpenedFolder in = PrivateFolder(_path.parent_path()).open();
  if (!in.descriptor) return FileCreation::failed;
  const std::string name = _path.filename().string();
  const FileDescriptor file = made(in.descriptor.get(), name.c_str(), O_WRONLY);
  if (!file) return errno == EEXIST ? FileCreation::exists : FileCreation::failed;
  // The name of a new file is safe only once its folder is.
  const bool isSafe = writeAll(file.get(), content.data(), content.size()) && ::fsync(file.get()) == 0 &&
                      ::fsync(in.descriptor.get()) == 0;
  if (isSafe) return FileCreation::created;
  ::unlinkat(in.descriptor.get(), name.c_str(), 0);
  return FileCreation::failed;
}

std::optional<std::string> PrivateFile::replace(std::string_view content) const {
  const OpenedFolder in = folder();
  if (!in.descriptor) return in.problem;
  if (auto problem = lookAt(in.descriptor.get(), _path).problem) return problem;
  const std::string draft = draftNameFor(_path);
  FileDescriptor file = made(in.descriptor.get(), draft.c_str(), O_WRONLY);
  if (!file) return systemError("cannot write", _path);
  reserveBlocks(file.get(), content.size());
  const bool isWritten = writeAll(file.get(), content.data(), content.size());
  file.close();
  const int folder = in.descriptor.get();
  if (isWritten && ::renameat(folder, draft.c_str(), folder, _path.filename().c_str()) == 0) return std::nullopt;
  std::string error = systemError("cannot write", _path);
  ::unlinkat(folder, draft.c_str(), 0);
  return error;
}

std::optional<std::string> PrivateFile::remove() const {
  const OpenedFolder in = folder();
  if (in.isMissing) return std::nullopt;
  if (!in.descriptor) return in.problem;
  const bool isGone = ::unlinkat(in.descriptor.get(), _path.filename().c_str(), 0) == 0 || errno == ENOENT;
  return isGone ? std::nullopt : std::optional(systemError("cannot remove", _path));
}

std::optional<std::string> PrivateFile::problem() const {
  const OpenedFolder in = folder();
  if (!in.descriptor) return in.isMissing ? std::nullopt : std::optional(in.problem);
  return lookAt(in.descriptor.get(), _path).problem;
}

}  // namespace pellor
