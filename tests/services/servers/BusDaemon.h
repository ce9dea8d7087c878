// A session bus of a test's own.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/services/servers/Server.h"

namespace pellor {

/// At a socket in a folder. It starts the services of the folder "services" there.
class BusDaemon {
 public:
  explicit BusDaemon(std::filesystem::path folder) : _folder(std::move(folder)) {
    std::filesystem::create_directory(_folder / "services");
    writeFile(_folder / "bus.conf", "<busconfig><type>session</type><listen>" + address() + "</listen><servicedir>" +
                                        (_folder / "services").string() +
                                        "</servicedir><policy context='default'><allow send_destination='*'/>"
                                        "<allow eavesdrop='true'/><allow own='*'/></policy></busconfig>");
  }

  std::string address() const { return "unix:path=" + (_folder / "bus").string(); }
  void start() {
    std::filesystem::remove(_folder / "bus");
    _server.emplace(std::vector<std::string>{"dbus-daemon", "--nofork", "--nopidfile",
                                             "--config-file=" + (_folder / "bus.conf").string()},
                    [this] { return isListening(_folder / "bus"); });
  }
  void kill() { _server.reset(); }
  void sendSignal(int signal) const { _server->sendSignal(signal); }

 private:
  const std::filesystem::path _folder;
  std::optional<Server> _server;
};

}  // namespace pellor
