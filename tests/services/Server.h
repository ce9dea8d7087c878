// A server that a test starts for itself.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace pellor {

/// A running server, in a process group of its own. It ends, with all that it started, at the end of the object and
/// also when the test's process dies. What it prints goes to a file, which a failure to start shows.
class Server {
 public:
  struct Options {
    std::vector<std::string> command;      ///< found by PATH
    std::vector<std::string> environment;  ///< NAME=VALUE, in place of those of the test's own
    std::filesystem::path output;          ///< the file for what it prints
    std::string user;                      ///< whose rights it has, where the test is root; empty: the test's own
  };

  /// Starts it and returns once `isReady`, which is asked again and again, says so. A server that ends before, or is
  /// not ready after a minute, is a failure of the test and throws std::runtime_error.
  Server(Options options, const std::function<bool()>& isReady);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  pid_t id() const { return _id; }
  bool isRunning();
  void sendSignal(int signal) const;
  /// Ends it as a crash would, and waits for that.
  void kill();
  /// Asks it to end with SIGTERM, and waits for that.
  void stop();

 private:
  void endWith(int signal);

  pid_t _id = -1;
};

/// Runs a command to its end and gives what it printed on both outputs. A failure is one of the test and throws
/// std::runtime_error.
std::string runTool(const Server::Options& options);

/// A TCP port of the loopback address on which nobody listens.
int freePort();
/// Whether somebody listens on it.
bool isListening(int port);
/// Whether somebody listens on a Unix socket.
bool isListening(const std::filesystem::path& socket);

}  // namespace pellor
