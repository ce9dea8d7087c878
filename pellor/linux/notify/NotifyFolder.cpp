#include "pellor/linux/notify/NotifyFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <random>
#include <utility>
#include <vector>

#include "pellor/linux/files/internal/FolderWatch.h"
#include "pellor/linux/files/internal/PrivatePlace.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;

constexpr BackOff::Pauses RetryPauses{.first = 0.25, .longest = 60};

// A new counter begins anywhere: if all began at zero, one that was deleted and made again could come to stand where a
// listener saw the old one.
std::uint64_t anyNumber() {
  std::random_device source;
  return (std::uint64_t{source()} << 32) | source();
}

std::optional<std::uint64_t> readCount(int file) {
  std::uint64_t count = 0;
  struct stat found {};
  const bool isWhole = ::fstat(file, &found) == 0 && found.st_size == sizeof count &&
                       ::pread(file, &count, sizeof count, 0) == sizeof count;
  return isWhole ? std::optional(count) : std::nullopt;
}

std::optional<std::uint64_t> readCount(const fs::path& path) {
  const OpenedFile file = PrivateFile(path).open(O_RDONLY);
  return file.descriptor ? readCount(file.descriptor.get()) : std::nullopt;
}

bool writeCount(int file, std::uint64_t count) {
  // In this order a short file is whole at once.
  return ::pwrite(file, &count, sizeof count, 0) == sizeof count && ::ftruncate(file, sizeof count) == 0;
}

bool isDeleted(int file) {
  struct stat found {};
  return ::fstat(file, &found) == 0 && found.st_nlink == 0;
}

/// The lock on a counter's file, or why there is none.
struct LockedCounter {
  std::optional<FileLock> lock;
  std::string problem;
};

LockedCounter lockCounter(const fs::path& path, LockPatience& patience) {
  // A file that was deleted before the lock was granted is nobody's counter any more.
  constexpr int attempts = 100;
  for (int attempt = 0; attempt < attempts; ++attempt) {
    OpenedFile file = PrivateFile(path).open(O_RDWR | O_CREAT);
    if (file.isMissing && !PrivateFolder(path.parent_path()).make()) continue;
    if (!file.descriptor) return {std::nullopt, file.problem};
    auto lock = FileLock::take(std::move(file.descriptor), patience);
    if (!lock) return {std::nullopt, lockError(path)};
    if (!isDeleted(lock->descriptor())) return {std::move(lock), ""};
  }
  return {std::nullopt, path.string() + " is deleted again and again"};
}

}  // namespace

std::shared_ptr<NotifyFolder> NotifyFolder::make(Process& process, fs::path folder, LogHandle log, Hearing hearing,
                                                 std::chrono::milliseconds lockLimit) {
  return std::make_shared<NotifyFolder>(Passkey{}, process, std::move(folder), std::move(log), hearing, lockLimit);
}

std::shared_ptr<NotifyFolder> NotifyFolder::make(Process& process, const UserFolders& folders, LogHandle log,
                                                 Hearing hearing) {
  const fs::path folder = folders.notify();
  if (!folders.runtime) log.log("no private runtime folder (XDG_RUNTIME_DIR), notifications go by %@", folder.string());
  return make(process, folder, std::move(log), hearing);
}

NotifyFolder::NotifyFolder(Passkey, Process& process, fs::path folder, LogHandle log, Hearing hearing,
                           std::chrono::milliseconds lockLimit)
    : _process(process),
      _folder(std::move(folder)),
      _log(std::move(log)),
      _hearing(hearing),
      _patience(lockLimit),
      _retryPauses(RetryPauses) {
  if (_hearing == Hearing::whenSettling) _process.addSettleParticipant(*this);
}

NotifyFolder::~NotifyFolder() {
  if (_hearing == Hearing::whenSettling) _process.removeSettleParticipant(*this);
}

void NotifyFolder::addObserver(const void* observer, std::function<void()> callback, std::string_view name) {
  _process.requireMainQueue("NotifyFolder::addObserver");
  removeObserver(observer, name);
  if (_hearing == Hearing::always) startWatching();
  const auto [seen, isNew] = _seen.try_emplace(std::string(name));
  if (isNew) seen->second = readCount(fileOf(seen->first));
  _observers.add(observer, std::move(callback), name);
}

void NotifyFolder::removeObserver(const void* observer, std::string_view name) {
  _process.requireMainQueue("NotifyFolder::removeObserver");
  _observers.remove(observer, name);
  if (const auto seen = _seen.find(name); seen != _seen.end() && !_observers.isObserved(name)) _seen.erase(seen);
}

void NotifyFolder::post(std::string_view name) {
  _process.requireMainQueue("NotifyFolder::post");
  const std::string posted(name);
  if (!count(posted)) {
    _unposted.insert(posted);
    retryLater();
  }
  if (isObserved(name)) deliverSoon(posted);
}

void NotifyFolder::othersMayHavePosted(std::string_view name) {
  _process.requireMainQueue("NotifyFolder::othersMayHavePosted");
  if (isObserved(name)) deliverSoon(std::string(name));
}

/// Raises the counter of a name; whether that was possible.
bool NotifyFolder::count(const std::string& name) {
  LockedCounter counter = lockCounter(fileOf(name), _patience);
  Count before;
  if (counter.lock) before = readCount(counter.lock->descriptor());
  const std::uint64_t after = before ? *before + 1 : anyNumber();
  const bool isCounted = counter.lock && writeCount(counter.lock->descriptor(), after);
  if (!isCounted && counter.problem.empty()) counter.problem = systemError("cannot count a post in", _folder);
  note(_sending, isCounted ? std::nullopt : std::optional(counter.problem));
  const auto seen = _seen.find(name);
  if (!isCounted || seen == _seen.end()) return isCounted;
  // Posts of others that the watch has not reported yet would be covered by the new count.
  if (std::exchange(seen->second, after) != before) deliverSoon(name);
  return true;
}

void NotifyFolder::retryLater() {
  if (_retryTimer && _retryTimer->isValid()) return;
  _retryTimer = Timer::after(_process.mainQueue(), _retryPauses.next(), [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->retry();
  });
}

void NotifyFolder::retry() {
  if (!isThere()) makeFolder();
  std::erase_if(_unposted, [this](const std::string& name) { return count(name); });
  if (_unposted.empty() && isThere()) {
    _retryPauses.reset();
  } else {
    retryLater();
  }
}

// Asked once a turn while the process settles; the counters are taken note of by a task, like what a watch reports.
bool NotifyFolder::isSettled() const {
  const auto hasMoved = [this](const auto& entry) { return readCount(fileOf(entry.first)) != entry.second; };
  if (std::ranges::none_of(_seen, hasMoved)) return true;
  _process.mainQueue().async([weak = weak_from_this()] {
    if (const auto self = weak.lock()) std::const_pointer_cast<NotifyFolder>(self)->check(Delivery::whenCounted);
  });
  return false;
}

void NotifyFolder::deliverSoon(const std::string& name) {
  _process.mainQueue().async([weak = weak_from_this(), name, endSerial = _observers.nextSerial()] {
    if (const auto self = weak.lock()) self->_observers.deliver(name, endSerial);
  });
}

void NotifyFolder::startWatching() {
  if (_watch) return;
  makeFolder();
  const auto concerns = [](std::string_view) { return true; };
  // The last reference to the bus must not drop on the watching thread: the tasks take one, the watch does not.
  const auto handler = [&queue = _process.mainQueue(), weak = weak_from_this()](const FolderChange& change,
                                                                                const std::string& problem) {
    queue.async([weak, mayHaveMissed = change.everything, problem] {
      if (const auto self = weak.lock()) self->folderChanged(mayHaveMissed, problem);
    });
  };
  _watch = std::make_unique<FolderWatch>(_folder, concerns, handler);
}

void NotifyFolder::folderChanged(bool mayHaveMissed, const std::string& problem) {
  if (!problem.empty()) note(_receiving, problem);
  // Once it is there again the watch reports that posts may have been missed.
  if (mayHaveMissed && !isThere()) return makeFolder();
  if (problem.empty()) note(_receiving, std::nullopt);
  check(mayHaveMissed ? Delivery::always : Delivery::whenCounted);
}

bool NotifyFolder::isThere() const {
  std::error_code ignored;
  return fs::is_directory(_folder, ignored);
}

void NotifyFolder::makeFolder() {
  const std::optional<std::string> error = PrivateFolder(_folder).make();
  note(_receiving, error);
  if (error) retryLater();
}

/// Delivers the names whose counters have moved, or all of them after posts may have been missed.
void NotifyFolder::check(Delivery delivery) {
  std::vector<std::string> posted;
  for (auto& [name, seen] : _seen) {
    const Count count = readCount(fileOf(name));
    if (std::exchange(seen, count) != count || delivery == Delivery::always) posted.push_back(name);
  }
  for (const std::string& name : posted) _observers.deliver(name, _observers.nextSerial());
}

void NotifyFolder::note(Direction& direction, const std::optional<std::string>& error) {
  if (std::exchange(direction.isFaulty, error.has_value()) == error.has_value()) return;
  if (error) {
    _log.log("notifications cannot be %@: %@", direction.operation, *error);
  } else {
    _log.log("notifications can be %@ again", direction.operation);
  }
}

fs::path NotifyFolder::fileOf(const std::string& name) const { return _folder / fileNameOf(name); }

}  // namespace pellor
