// Stands between a program and the system's file calls, preloaded into it (LD_PRELOAD): counts those below one folder,
// and fails one of them, ends the program at one of them, or records all that they change. The environment says what:
//
//   FILE_CALLS_FOLDER  the folder, without links on the way to it; without it all calls pass
//   FILE_CALLS_FAULT   WHAT:N, at call N (1, 2, ...): kill-before, kill-after, an error's name, short (writes write
//   half);
//                      with a + behind N at every call from N on. Errors fall on calls alone that can give them
//   FILE_CALLS_LIST    a file that gets a line a call: its number, what it can be given (see `Faults`), name and path
//   FILE_CALLS_CHANGES a file that gets all changes in their order: a line of operation, number, length of the bytes
//   and
//                      paths, with tabs between them, then the bytes
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <string_view>

namespace {

/// What a call can be given.
using Faults = unsigned;
constexpr Faults Full = 1, Quota = 2, Broken = 4, ReadOnly = 8, TooMany = 16, Short = 32;
constexpr Faults OfOpening = Broken | TooMany, OfReading = Broken, OfWriting = Full | Quota | Broken | Short;
constexpr Faults OfSpace = Full | Quota | Broken, OfResizing = Broken, OfMapping = 0;
constexpr Faults OfNaming = Full | Quota | Broken | ReadOnly, OfRemoving = Broken | ReadOnly;

struct FaultName {
  std::string_view name;
  Faults fault;
  int error;
};
constexpr std::array FaultNames = {
    FaultName{"ENOSPC", Full, ENOSPC},   FaultName{"EDQUOT", Quota, EDQUOT},   FaultName{"EIO", Broken, EIO},
    FaultName{"EROFS", ReadOnly, EROFS}, FaultName{"EMFILE", TooMany, EMFILE}, FaultName{"short", Short, 0},
    FaultName{"kill-before", ~0U, 0},    FaultName{"kill-after", ~0U, 0},
};

/// The system's own function behind the one of that name here.
template <class Function>
Function* original(Function*, const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}
#define ORIGINAL(function) original(&function, #function)

std::string variable(const char* name) {
  const char* value = ::getenv(name);
  return value ? value : "";
}

int openedForAppending(const std::string& path) {
  constexpr int flags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC;
  return path.empty() ? -1 : static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path.c_str(), flags, 0600));
}

void append(int file, std::string_view bytes) {
  if (file >= 0) static_cast<void>(::syscall(SYS_write, file, bytes.data(), bytes.size()));
}

[[noreturn]] void endProgram() {
  ::kill(::getpid(), SIGKILL);
  for (;;) ::pause();
}

/// What the environment says, and how many calls there were. Calls are made one at a time, so that the list and the
/// changes have them in their order.
class Plan {
 public:
  static Plan& get() {
    static Plan& plan = *new Plan;  // calls are made until the very end of the program
    return plan;
  }

  bool isWatched(std::string_view path) const {
    return !_folder.empty() && path.starts_with(_folder) &&
           (path.size() == _folder.size() || path[_folder.size()] == '/');
  }

  /// Makes a call, or what is planned in its place: `call(isShort)`, or `failure` with errno set.
  template <class Result, class Call>
  Result make(const char* name, Faults faults, const std::string& path, Result failure, Call call) {
    const std::lock_guard lock(_calls);
    ++_count;
    append(_list, std::to_string(_count) + " " + std::to_string(faults) + " " + name + " " + path + "\n");
    const bool isMet = _fault && (_isForEver ? _count >= _at : _count == _at) &&
                       (_fault->fault == ~0U || (faults & _fault->fault) != 0);
    if (isMet && _fault->name == "kill-before") endProgram();
    if (isMet && _fault->error != 0) {
      errno = _fault->error;
      return failure;
    }
    const Result result = call(isMet && _fault->fault == Short);
    if (isMet && _fault->name == "kill-after") endProgram();
    return result;
  }

  /// Within a call.
  void record(const char* operation, const std::string& path, off_t number = 0, std::string_view bytes = {},
              const std::string& other = "") const {
    if (_changes < 0) return;
    const int error = errno;
    append(_changes, std::string(operation) + "\t" + std::to_string(number) + "\t" + std::to_string(bytes.size()) +
                         "\t" + path + "\t" + other + "\n");
    append(_changes, bytes);
    errno = error;
  }

 private:
  Plan()
      : _folder(variable("FILE_CALLS_FOLDER")),
        _list(openedForAppending(variable("FILE_CALLS_LIST"))),
        _changes(openedForAppending(variable("FILE_CALLS_CHANGES"))) {
    const std::string text = variable("FILE_CALLS_FAULT");
    const std::size_t colon = std::min(text.find(':'), text.size());
    _at = std::atol(text.c_str() + std::min(colon + 1, text.size()));
    _isForEver = text.ends_with('+');
    for (const FaultName& each : FaultNames)
      if (each.name == std::string_view(text).substr(0, colon)) _fault = &each;
  }

  const std::string _folder;
  const int _list, _changes;
  const FaultName* _fault = nullptr;
  long _at = 0;
  bool _isForEver = false;
  std::mutex _calls;
  long _count = 0;
};

std::string pathOf(int descriptor) {
  std::array<char, PATH_MAX> path;
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  const ssize_t length = descriptor == AT_FDCWD ? ::readlink("/proc/self/cwd", path.data(), path.size())
                                                : ::readlink(link.c_str(), path.data(), path.size());
  return {path.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0))};
}

std::string pathOf(int folder, const char* name) {
  constexpr std::string_view descriptors = "/proc/self/fd/";
  const std::string_view text(name);
  if (text.starts_with(descriptors)) return pathOf(std::atoi(name + descriptors.size()));
  if (text.starts_with('/')) return name;
  return text.empty() || text == "." ? pathOf(folder) : pathOf(folder) + "/" + name;
}

/// A call on a path or a descriptor that answers with -1 where it fails.
template <class Call>
auto make(const char* name, Faults faults, const std::string& path, Call call) -> decltype(call(false)) {
  Plan& plan = Plan::get();
  if (!plan.isWatched(path)) return call(false);
  return plan.make(name, faults, path, static_cast<decltype(call(false))>(-1), call);
}

template <class Open>
int opened(const char* name, const std::string& path, int flags, Open open) {
  Faults faults = OfOpening;
  if ((flags & O_ACCMODE) != O_RDONLY) faults |= ReadOnly;
  if ((flags & O_CREAT) != 0) faults |= ReadOnly | Full | Quota;
  return make(name, faults, path, [&](bool) {
    const bool isNew = (flags & O_CREAT) != 0 && ::access(path.c_str(), F_OK) != 0;
    const int descriptor = open();
    if (descriptor >= 0 && Plan::get().isWatched(path)) {
      if (isNew) Plan::get().record("create", path);
      if (!isNew && (flags & O_TRUNC) != 0) Plan::get().record("resize", path);
    }
    return descriptor;
  });
}

std::size_t lengthOf(std::size_t length, bool isShort) { return isShort ? (length + 1) / 2 : length; }

template <class Write>
ssize_t written(const char* name, int descriptor, const void* bytes, std::size_t length, Write write, off_t offset) {
  const std::string path = pathOf(descriptor);
  return make(name, OfWriting, path, [&](bool isShort) {
    const ssize_t count = write(lengthOf(length, isShort));
    if (count > 0 && Plan::get().isWatched(path)) {
      const off_t place = offset >= 0 ? offset : ::lseek(descriptor, 0, SEEK_CUR) - count;
      Plan::get().record("write", path, place, {static_cast<const char*>(bytes), static_cast<std::size_t>(count)});
    }
    return count;
  });
}

/// A call that answers with zero where it is done, and changes what is recorded under its name.
template <class Call>
int done(const char* name, Faults faults, const char* operation, const std::string& path, off_t number,
         const std::string& other, Call call) {
  return make(name, faults, path, [&](bool) {
    const int result = call();
    if (result == 0 && Plan::get().isWatched(path)) Plan::get().record(operation, path, number, {}, other);
    return result;
  });
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
  va_list more;
  va_start(more, flags);
  const mode_t mode = va_arg(more, mode_t);
  va_end(more);
  return opened("open", pathOf(AT_FDCWD, path), flags, [&] { return ORIGINAL(open)(path, flags, mode); });
}
int open64(const char* path, int flags, ...) {
  va_list more;
  va_start(more, flags);
  const mode_t mode = va_arg(more, mode_t);
  va_end(more);
  return open(path, flags, mode);
}
int openat(int folder, const char* path, int flags, ...) {
  va_list more;
  va_start(more, flags);
  const mode_t mode = va_arg(more, mode_t);
  va_end(more);
  return opened("openat", pathOf(folder, path), flags, [&] { return ORIGINAL(openat)(folder, path, flags, mode); });
}
// What an inlined check of the flags calls.
int __open_2(const char* path, int flags) { return open(path, flags, 0); }
int __open64_2(const char* path, int flags) { return open(path, flags, 0); }
int __openat_2(int folder, const char* path, int flags) { return openat(folder, path, flags, 0); }
int mkostemp(char* pattern, int flags) {
  return make("mkostemp", OfOpening | OfNaming, pathOf(AT_FDCWD, pattern), [&](bool) {
    const int descriptor = ORIGINAL(mkostemp)(pattern, flags);
    if (descriptor >= 0 && Plan::get().isWatched(pattern)) Plan::get().record("create", pattern);
    return descriptor;
  });
}
FILE* fopen64(const char* path, const char* mode) {
  Plan& plan = Plan::get();
  const std::string place = pathOf(AT_FDCWD, path);
  const auto call = [&](bool) { return ORIGINAL(fopen64)(path, mode); };
  // Of the library's own files none is written by a stream.
  return plan.isWatched(place) ? plan.make("fopen", OfOpening, place, static_cast<FILE*>(nullptr), call) : call(false);
}
FILE* fopen(const char* path, const char* mode) { return fopen64(path, mode); }
DIR* opendir(const char* path) {
  Plan& plan = Plan::get();
  const std::string place = pathOf(AT_FDCWD, path);
  const auto call = [&](bool) { return ORIGINAL(opendir)(path); };
  return plan.isWatched(place) ? plan.make("opendir", OfOpening, place, static_cast<DIR*>(nullptr), call) : call(false);
}
long syscall(long number, ...) noexcept {
  va_list more;
  va_start(more, number);
  std::array<long, 6> values;
  for (long& value : values) value = va_arg(more, long);
  va_end(more);
  const auto call = [&] {
    return ORIGINAL(syscall)(number, values[0], values[1], values[2], values[3], values[4], values[5]);
  };
  if (number != SYS_openat2) return call();
  const auto& how = *reinterpret_cast<const open_how*>(values[2]);
  const std::string path = pathOf(static_cast<int>(values[0]), reinterpret_cast<const char*>(values[1]));
  return opened("openat2", path, static_cast<int>(how.flags), [&] { return static_cast<int>(call()); });
}

ssize_t read(int descriptor, void* bytes, size_t length) {
  return make("read", OfReading, pathOf(descriptor), [&](bool) { return ORIGINAL(read)(descriptor, bytes, length); });
}
ssize_t pread(int descriptor, void* bytes, size_t length, off_t offset) {
  return make("pread", OfReading, pathOf(descriptor),
              [&](bool) { return ORIGINAL(pread)(descriptor, bytes, length, offset); });
}
ssize_t pread64(int descriptor, void* bytes, size_t length, off64_t offset) {
  return pread(descriptor, bytes, length, offset);
}
ssize_t write(int descriptor, const void* bytes, size_t length) {
  return written(
      "write", descriptor, bytes, length, [&](std::size_t count) { return ORIGINAL(write)(descriptor, bytes, count); },
      -1);
}
ssize_t pwrite(int descriptor, const void* bytes, size_t length, off_t offset) {
  return written(
      "pwrite", descriptor, bytes, length,
      [&](std::size_t count) { return ORIGINAL(pwrite)(descriptor, bytes, count, offset); }, offset);
}
ssize_t pwrite64(int descriptor, const void* bytes, size_t length, off64_t offset) {
  return pwrite(descriptor, bytes, length, offset);
}
// To write less than what was given is what it may always do.
ssize_t writev(int descriptor, const iovec* parts, int count) {
  if (!Plan::get().isWatched(pathOf(descriptor)) || count < 1) return ORIGINAL(writev)(descriptor, parts, count);
  return write(descriptor, parts->iov_base, parts->iov_len);
}

int ftruncate(int descriptor, off_t length) noexcept {
  return done("ftruncate", OfResizing, "resize", pathOf(descriptor), length, "",
              [&] { return ORIGINAL(ftruncate)(descriptor, length); });
}
int ftruncate64(int descriptor, off64_t length) noexcept { return ftruncate(descriptor, length); }
int posix_fallocate(int descriptor, off_t offset, off_t length) {
  int code = 0;
  const int result = done("posix_fallocate", OfSpace, "reserve", pathOf(descriptor), offset + length, "", [&] {
    code = ORIGINAL(posix_fallocate)(descriptor, offset, length);
    return code == 0 ? 0 : -1;
  });
  return result == 0 || code != 0 ? code : errno;
}
int fsync(int descriptor) {
  return done("fsync", OfSpace, "sync", pathOf(descriptor), 0, "", [&] { return ORIGINAL(fsync)(descriptor); });
}
int fdatasync(int descriptor) {
  return done("fdatasync", OfSpace, "sync", pathOf(descriptor), 0, "", [&] { return ORIGINAL(fdatasync)(descriptor); });
}

int rename(const char* path, const char* other) noexcept {
  return done("rename", OfNaming, "rename", pathOf(AT_FDCWD, path), 0, pathOf(AT_FDCWD, other),
              [&] { return ORIGINAL(rename)(path, other); });
}
int renameat2(int folder, const char* path, int otherFolder, const char* other, unsigned flags) noexcept {
  return done("renameat", OfNaming, "rename", pathOf(folder, path), 0, pathOf(otherFolder, other),
              [&] { return ORIGINAL(renameat2)(folder, path, otherFolder, other, flags); });
}
int renameat(int folder, const char* path, int otherFolder, const char* other) noexcept {
  return renameat2(folder, path, otherFolder, other, 0);
}
int link(const char* path, const char* other) noexcept {
  return done("link", OfNaming, "link", pathOf(AT_FDCWD, path), 0, pathOf(AT_FDCWD, other),
              [&] { return ORIGINAL(link)(path, other); });
}
int unlinkat(int folder, const char* path, int flags) noexcept {
  return done("unlinkat", OfRemoving, "unlink", pathOf(folder, path), 0, "",
              [&] { return ORIGINAL(unlinkat)(folder, path, flags); });
}
int unlink(const char* path) noexcept {
  return done("unlink", OfRemoving, "unlink", pathOf(AT_FDCWD, path), 0, "", [&] { return ORIGINAL(unlink)(path); });
}
int remove(const char* path) noexcept {
  return done("remove", OfRemoving, "unlink", pathOf(AT_FDCWD, path), 0, "", [&] { return ORIGINAL(remove)(path); });
}
int mkdirat(int folder, const char* path, mode_t mode) noexcept {
  return done("mkdirat", OfNaming, "mkdir", pathOf(folder, path), 0, "",
              [&] { return ORIGINAL(mkdirat)(folder, path, mode); });
}
int mkdir(const char* path, mode_t mode) noexcept {
  return done("mkdir", OfNaming, "mkdir", pathOf(AT_FDCWD, path), 0, "", [&] { return ORIGINAL(mkdir)(path, mode); });
}
int chmod(const char* path, mode_t mode) noexcept {
  return done("chmod", OfRemoving, "mode", pathOf(AT_FDCWD, path), 0, "", [&] { return ORIGINAL(chmod)(path, mode); });
}
int fchmod(int descriptor, mode_t mode) noexcept {
  return done("fchmod", OfRemoving, "mode", pathOf(descriptor), 0, "",
              [&] { return ORIGINAL(fchmod)(descriptor, mode); });
}

void* mmap(void* place, size_t length, int protection, int flags, int descriptor, off_t offset) noexcept {
  const auto call = [&](bool) { return ORIGINAL(mmap)(place, length, protection, flags, descriptor, offset); };
  if (descriptor < 0) return call(false);
  Plan& plan = Plan::get();
  const std::string path = pathOf(descriptor);
  return plan.isWatched(path) ? plan.make("mmap", OfMapping, path, MAP_FAILED, call) : call(false);
}
void* mmap64(void* place, size_t length, int protection, int flags, int descriptor, off64_t offset) noexcept {
  return mmap(place, length, protection, flags, descriptor, offset);
}

}  // extern "C"
