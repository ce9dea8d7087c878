#include "pellor/linux/files/internal/FileLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <sstream>
#include <system_error>
#include <thread>

#include "pellor/linux/files/internal/PrivatePlace.h"

namespace pellor {
namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds PauseBetweenAttempts{2};
constexpr std::chrono::milliseconds ShortWait{50};
constexpr std::chrono::minutes TimeOfShortWaits{1};

FileDescriptor openedOrMade(const std::filesystem::path& file) {
  if (PrivateFolder(file.parent_path()).make()) return {};
  OpenedFile opened = PrivateFile(file).open(O_RDWR | O_CREAT);
  // To be refused is another thing than to wait in vain.
  if (!opened.descriptor && errno == EWOULDBLOCK) errno = EPERM;
  return std::move(opened.descriptor);
}

bool isSameFile(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

/// Whether the process has the file open, as far as this program may know.
bool hasOpen(long process, const struct stat& file) {
  std::error_code error;
  const std::filesystem::path folder = "/proc/" + std::to_string(process) + "/fd";
  for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
    struct stat found {};
    if (::stat(entry->path().c_str(), &found) == 0 && isSameFile(found, file)) return true;
  }
  return false;
}

/// The other process that holds a lock on the file; zero when the system does not tell. A line of the system's list:
/// "1: FLOCK  ADVISORY  WRITE 4711 08:01:131 0 EOF", with one more word after the number for one that waits.
long holderOf(const std::filesystem::path& path) {
  struct stat file {};
  if (::stat(path.c_str(), &file) != 0) return 0;
  std::ifstream locks("/proc/locks");
  for (std::string line; std::getline(locks, line);) {
    std::istringstream fields(line);
    std::string number, kind, strictness, access, place;
    long process = 0;
    fields >> number >> kind >> strictness >> access >> process >> place;
    const bool isHeld = fields && access == "WRITE" && place.ends_with(":" + std::to_string(file.st_ino));
    if (isHeld && process > 0 && process != ::getpid() && hasOpen(process, file)) return process;
  }
  return 0;
}

/// A line that the system tells of a process; empty when it is gone.
std::string lineAbout(long process, const char* what) {
  std::string line;
  std::ifstream file("/proc/" + std::to_string(process) + "/" + what);
  std::getline(file, line);
  return line;
}

bool isStopped(long process) {
  // The state follows the program's name, which may hold anything.
  const std::string line = lineAbout(process, "stat");
  const std::size_t end = line.rfind(") ");
  return end != std::string::npos && (line[end + 2] == 'T' || line[end + 2] == 't');
}

std::string nameOf(long process) {
  std::string name = lineAbout(process, "comm");
  std::ranges::replace_if(
      name, [](char character) { return character < ' ' || character > '~'; }, '?');
  return name.empty() ? "program" : name;
}

}  // namespace

steady_clock::time_point LockPatience::endOfWait() const {
  const auto now = steady_clock::now();
  const bool isLost = now.time_since_epoch() < _lostUntil.load();
  return now + (isLost ? std::min(ShortWait, _limit) : _limit);
}

void LockPatience::lose() { _lostUntil = (steady_clock::now() + TimeOfShortWaits).time_since_epoch(); }

std::optional<FileLock> FileLock::take(FileDescriptor opened, LockPatience& patience) {
  if (!opened) return std::nullopt;
  const auto end = patience.endOfWait();
  while (::flock(opened.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) return std::nullopt;
    if (steady_clock::now() >= end) {
      patience.lose();
      errno = EWOULDBLOCK;
      return std::nullopt;
    }
    std::this_thread::sleep_for(PauseBetweenAttempts);
  }
  return FileLock(std::move(opened));
}

std::optional<FileLock> FileLock::take(const std::filesystem::path& file, LockPatience& patience) {
  return take(openedOrMade(file), patience);
}

std::optional<FileLock> FileLock::tryTake(const std::filesystem::path& file) {
  LockPatience none(std::chrono::milliseconds(0));
  return take(file, none);
}

std::string lockError(const std::filesystem::path& path) {
  if (errno == EWOULDBLOCK) return heldError(path, {path});
  const std::string error = systemError("cannot lock", path);
  std::error_code ignored;
  const bool isFolder = std::filesystem::is_directory(std::filesystem::symlink_status(path, ignored));
  return isFolder ? error : PrivateFile(path).problem().value_or(error);
}

std::string heldError(const std::filesystem::path& path, const std::vector<std::filesystem::path>& places) {
  long process = 0;
  for (const std::filesystem::path& place : places) process = process == 0 ? holderOf(place) : process;
  const std::string text = path.string() + " is locked by ";
  if (process == 0) return text + "another program: try again, or end that program";
  const std::string holder = nameOf(process) + " (process " + std::to_string(process) + ")";
  const std::string id = std::to_string(process);
  if (isStopped(process)) return text + holder + ", which is stopped: continue it (kill -CONT " + id + ") or end it";
  return text + holder + ": try again, or end that program";
}

}  // namespace pellor
