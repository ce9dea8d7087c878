// A way to a server that can be blocked and cut.
#pragma once

#include <poll.h>

#include <filesystem>
#include <list>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "pellor/linux/files/internal/PrivateFiles.h"
#include "pellor/runtime/ThreadSafety.h"

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

  /// What becomes of a request that is stopped.
  enum class Fate {
    served,   ///< the server does it all, and the client is cut off before the answer
    lost,     ///< the client is cut off, and the server gets nothing of it
    held,     ///< the client is cut off, and the server gets it with `serveHeld`
    blocked,  ///< everything is blocked before it passes
  };
  /// The next request in which there is this text. It has to arrive in one piece.
  void stopAt(std::string text, Fate fate);
  /// Waits until the server has done it or left.
  void serveHeld();

 private:
  using Ends = std::pair<FileDescriptor, FileDescriptor>;
  struct Stop {
    std::string text;
    Fate fate = Fate::served;
  };
  struct Request {
    std::string bytes;
    FileDescriptor server;
  };

  void serve();
  bool obey() PELLOR_REQUIRES(_role);
  void passOn(const std::vector<pollfd>& ready) PELLOR_REQUIRES(_role);
  std::optional<Fate> fateOf(const std::string& request) PELLOR_EXCLUDES(_mutex);
  bool passRequest(Ends& ends) PELLOR_REQUIRES(_role);
  bool end(Fate fate, const std::string& request, Ends& ends) PELLOR_REQUIRES(_role);
  void accept() PELLOR_REQUIRES(_role);

  const std::filesystem::path _to;
  FileDescriptor _listener;
  FileDescriptor _commands, _commandsEnd;  ///< a pipe: one byte a command
  Mutex _mutex;
  std::optional<Stop> _stop PELLOR_GUARDED_BY(_mutex);
  std::optional<Request> _held PELLOR_GUARDED_BY(_mutex);
  ThreadRole _role;
  bool _isBlocked PELLOR_GUARDED_BY(_role) = false;
  std::list<Ends> _connections PELLOR_GUARDED_BY(_role);
  std::thread _thread;
};

}  // namespace pellor
