#include "pellor/linux/files/internal/FolderWatch.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <system_error>

#include "pellor/linux/files/internal/PrivateFiles.h"
#include "pellor/linux/threads/ServiceThread.h"
#include "pellor/runtime/BackOff.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

namespace {

constexpr std::uint32_t FolderEvents =
    IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
// IN_ATTRIB: a folder that could not be entered may be opened to us.
constexpr std::uint32_t AncestorEvents =
    IN_CREATE | IN_MOVED_TO | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
constexpr std::uint32_t EndOfWatch = IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_UNMOUNT;

constexpr BackOff::Pauses RetryPauses{.first = 1, .longest = 60};
constexpr int LongestWait = 60'000;
constexpr int PauseWithoutStop = 100;
constexpr int NoTimeout = -1;
constexpr int NoWatch = -1;

// Whatever stands in the way is on the path, where its going can be awaited.
bool meansMissing(int error) { return error == ENOENT || error == ENOTDIR || error == EACCES || error == ELOOP; }

}  // namespace

class FolderWatch::Watcher {
 public:
  Watcher(std::filesystem::path folder, std::function<bool(std::string_view)> concerns, Handler handler)
      : _folder(std::move(folder)),
        _concerns(std::move(concerns)),
        _handler(std::move(handler)),
        _stop(eventfd(0, EFD_CLOEXEC)) {
    watch();
    const auto refusal = _thread.start("pellor-watch", [this] { serve(); });
    if (refusal) _handler({}, ServiceThread::problemText(*refusal));
  }

  ~Watcher() {
    _isStopping = true;
    const std::uint64_t one = 1;
    while (_stop && write(_stop.get(), &one, sizeof one) < 0 && errno == EINTR) {
    }
    _thread.join();
  }

  Watcher(const Watcher&) = delete;
  Watcher& operator=(const Watcher&) = delete;

 private:
  void serve() {
    _role.isThisThread();
    if (!_problem.empty()) _handler({}, _problem);
    while (waitForEvents()) {
      FolderChange change;
      const std::string before = _problem;
      if (_problem.empty()) {
        readEvents(change);
      } else {
        watch();
        change.everything = _problem.empty();
      }
      if (!change.isEmpty() || before != _problem) _handler(change, _problem);
    }
  }

  /// False when the watch is to end.
  bool waitForEvents() PELLOR_REQUIRES(_role) {
    if (!_stop) return waitWithoutStop();
    std::array<pollfd, 2> files{pollfd{_stop.get(), POLLIN, 0}, pollfd{_inotify.get(), POLLIN, 0}};
    const int timeout = _problem.empty() ? NoTimeout : nextPause();
    while (poll(files.data(), files.size(), timeout) < 0 && errno == EINTR) {
    }
    return (files[0].revents & POLLIN) == 0;
  }

  /// Waits likewise where there are too many open files for the one that would end the wait.
  bool waitWithoutStop() PELLOR_REQUIRES(_role) {
    const int timeout = _problem.empty() ? LongestWait : nextPause();
    pollfd file{_inotify.get(), POLLIN, 0};
    for (int waited = 0; !_isStopping && waited < timeout; waited += PauseWithoutStop) {
      if (poll(&file, 1, PauseWithoutStop) > 0) break;
    }
    return !_isStopping;
  }

  /// In milliseconds.
  int nextPause() PELLOR_REQUIRES(_role) { return static_cast<int>(std::lround(_pauses.next() * 1000)); }

  void readEvents(FolderChange& change) PELLOR_REQUIRES(_role) {
    alignas(inotify_event) std::array<char, std::size_t{64} * 1024> buffer;
    const ssize_t size = read(_inotify.get(), buffer.data(), buffer.size());
    bool mustWatchAgain = false;
    std::size_t offset = 0;
    while (size > 0 && offset < static_cast<std::size_t>(size)) {
      inotify_event event{};
      std::memcpy(&event, buffer.data() + offset, sizeof event);
      const char* name = event.len > 0 ? buffer.data() + offset + sizeof event : "";
      mustWatchAgain = take(event, name, change) || mustWatchAgain;
      offset += sizeof event + event.len;
    }
    if (!mustWatchAgain) return;
    const bool wasThere = _folderWatch != NoWatch;
    watch();
    change.everything = change.everything || wasThere || _folderWatch != NoWatch;
  }

  /// Whether the watches have to be set again.
  bool take(const inotify_event& event, const char* name, FolderChange& change) PELLOR_REQUIRES(_role) {
    if (event.mask & IN_Q_OVERFLOW) {
      change.everything = true;
      return true;
    }
    if (event.wd == _folderWatch) {
      if (event.mask & EndOfWatch) return true;
      if (_concerns(name)) change.names.insert(name);
      return false;
    }
    return event.wd == _ancestorWatch && ((event.mask & EndOfWatch) != 0 || _awaited == name);
  }

  /// Sets the watches for what is there now: the folder, or the nearest folder above it in which the next one of its
  /// path is awaited.
  void watch() PELLOR_REQUIRES(_role) {
    dropWatches();
    _problem.clear();
    if (!_inotify) _inotify = FileDescriptor(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (!_inotify) return fail();
    // Whatever appears between the look at the folder and the watch above it is found by looking again.
    int previous = NoWatch;
    do {
      previous = _ancestorWatch;
      if (watchFolder() || !watchAncestor()) return;
    } while (previous != _ancestorWatch);
  }

  /// True when there is nothing more to do: the folder is watched, or watching is impossible.
  bool watchFolder() PELLOR_REQUIRES(_role) {
    _folderWatch = inotify_add_watch(_inotify.get(), _folder.c_str(), FolderEvents);
    if (_folderWatch == NoWatch) {
      if (meansMissing(errno)) return false;
      fail();
      return true;
    }
    if (_ancestorWatch != NoWatch) inotify_rm_watch(_inotify.get(), _ancestorWatch);
    _ancestorWatch = NoWatch;
    _pauses.reset();
    return true;
  }

  bool watchAncestor() PELLOR_REQUIRES(_role) {
    const int former = _ancestorWatch;
    std::filesystem::path path = _folder;
    do {
      _awaited = path.filename().string();
      path = path.parent_path();
      _ancestorWatch = inotify_add_watch(_inotify.get(), path.c_str(), AncestorEvents);
    } while (_ancestorWatch == NoWatch && meansMissing(errno) && path.has_relative_path());
    if (_ancestorWatch == NoWatch) {
      fail();
      return false;
    }
    if (former != NoWatch && former != _ancestorWatch) inotify_rm_watch(_inotify.get(), former);
    _pauses.reset();
    return true;
  }

  void dropWatches() PELLOR_REQUIRES(_role) {
    for (int* watch : {&_folderWatch, &_ancestorWatch}) {
      // Fails where the system dropped it already.
      if (*watch != NoWatch) inotify_rm_watch(_inotify.get(), *watch);
      *watch = NoWatch;
    }
  }

  void fail() PELLOR_REQUIRES(_role) { _problem = std::system_category().message(errno); }

  const std::filesystem::path _folder;
  const std::function<bool(std::string_view)> _concerns;
  const Handler _handler;
  const FileDescriptor _stop;
  std::atomic<bool> _isStopping = false;  // set by the end of the watch, read by its thread
  ThreadRole _role;
  FileDescriptor _inotify PELLOR_GUARDED_BY(_role);
  int _folderWatch PELLOR_GUARDED_BY(_role) = NoWatch;
  int _ancestorWatch PELLOR_GUARDED_BY(_role) = NoWatch;
  std::string _awaited PELLOR_GUARDED_BY(_role);
  std::string _problem PELLOR_GUARDED_BY(_role);
  BackOff _pauses PELLOR_GUARDED_BY(_role){RetryPauses};
  ServiceThread _thread;
};

FolderWatch::FolderWatch(std::filesystem::path folder, std::function<bool(std::string_view)> concerns, Handler handler)
    : _watcher(std::make_unique<Watcher>(std::move(folder), std::move(concerns), std::move(handler))) {}

FolderWatch::~FolderWatch() = default;

}  // namespace pellor
