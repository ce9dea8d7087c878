// A way to a server that can be blocked.
#pragma once

#include <poll.h>

#include <filesystem>
#include <list>
#include <thread>
#include <utility>
#include <vector>

#include "linux/PrivateFiles.h"
#include "runtime/ThreadSafety.h"

namespace pellor {

/// Listens on a Unix socket and passes everything on to another one, both ways. While it is blocked nothing passes: who
/// is connected hears nothing, not even that nobody listens.
class Detour {
 public:
  Detour(const std::filesystem::path& from, std::filesystem::path to);
  ~Detour();
  Detour(const Detour&) = delete;
  Detour& operator=(const Detour&) = delete;

  void block(bool isBlocked);

 private:
  using Ends = std::pair<FileDescriptor, FileDescriptor>;

  void serve();
  bool obey() PELLOR_REQUIRES(_role);
  void passOn(const std::vector<pollfd>& ready) PELLOR_REQUIRES(_role);
  void accept() PELLOR_REQUIRES(_role);

  const std::filesystem::path _to;
  FileDescriptor _listener;
  FileDescriptor _commands, _commandsEnd;  ///< a pipe: one byte a command
  ThreadRole _role;
  bool _isBlocked PELLOR_GUARDED_BY(_role) = false;
  std::list<Ends> _connections PELLOR_GUARDED_BY(_role);
  std::thread _thread;
};

}  // namespace pellor
