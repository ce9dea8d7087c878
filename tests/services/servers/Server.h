// A server that a test starts for itself.
#pragma once

#include <signal.h>
#include <sys/types.h>
#include <sys/un.h>

#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "pellor/linux/files/internal/PrivateFiles.h"
#include "tests/linux/TemporaryFolder.h"

namespace pellor {

/// A running server, in a process group of its own. It ends, with all that it started, at the end of the object and
/// also when the test's process dies. A failure to start shows what it printed.
class Server {
 public:
  /// Starts it, found by PATH, and returns once `isReady`, which is asked again and again, says so. A server that ends
  /// before, or is not ready after a minute, is a failure of the test and throws std::runtime_error.
  Server(const std::vector<std::string>& command, const std::function<bool()>& isReady);
  ~Server() { end(SIGKILL); }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  pid_t id() const { return _id; }
  void sendSignal(int signal) const { ::kill(_id, signal); }
  /// Sends it a signal to end, and waits for that.
  void end(int signal);

 private:
  const TemporaryFolder _folder;
  pid_t _id = -1;
};

/// Runs a command to its end and gives what it printed on both outputs. A failure is one of the test and throws
/// std::runtime_error.
std::string runTool(const std::vector<std::string>& command);
/// A certificate of a server at 127.0.0.1, signed by nobody but itself.
struct Certificate {
  Certificate() {
    runTool({"sh", "-c",
             "cd $0 && openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj /CN=localhost "
             "-addext subjectAltName=IP:127.0.0.1 -days 2 -keyout key.pem -out certificate.pem",
             folder.path()});
  }

  const TemporaryFolder folder;
  const std::filesystem::path file = folder / "certificate.pem", key = folder / "key.pem";
};

/// The command with the rights of a user, where the test is root.
std::vector<std::string> asUser(const std::string& user, std::vector<std::string> command);

/// A socket that listens on a free TCP port of the loopback address, and the port.
std::pair<FileDescriptor, int> listenOnLoopback();
/// A TCP port of the loopback address on which nobody listens.
inline int freePort() { return listenOnLoopback().second; }
/// Whether somebody listens on it.
bool isListening(int port);
/// Whether somebody listens on a Unix socket.
bool isListening(const std::filesystem::path& socket);
sockaddr_un addressOf(const std::filesystem::path& socket);

}  // namespace pellor
