// Tells when files of a folder change, by inotify.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "pellor/linux/files/FolderChange.h"

namespace pellor {

/// Watches one folder from a thread of its own, which sleeps until something happens. A folder that is missing, or is
/// removed or renamed later, is waited for and watched anew when it is there again. Where the system has no watches
/// left the watch tries again by itself, with a growing pause; where it refuses the thread the handler is told so at
/// once, on the caller's thread, and of nothing else.
class FolderWatch {
 public:
  /// What the owner is told. `problem` says why nothing can be noticed at present; empty when all is well.
  using Handler = std::function<void(const FolderChange& change, const std::string& problem)>;

  /// Notices every change of a file with a name that `concerns` accepts from the moment on when this returns: written
  /// and closed, moved in or out, removed. `handler` is called on the watch's thread; with `everything` after anything
  /// that may have hidden changes. It must not destroy the watch.
  FolderWatch(std::filesystem::path folder, std::function<bool(std::string_view)> concerns, Handler handler);
  /// Waits for a call of the handler that is under way; there is none afterwards.
  ~FolderWatch();
  FolderWatch(const FolderWatch&) = delete;
  FolderWatch& operator=(const FolderWatch&) = delete;

 private:
  class Watcher;
  std::unique_ptr<Watcher> _watcher;
};

}  // namespace pellor
