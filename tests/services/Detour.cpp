#include "tests/services/Detour.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <vector>

namespace pellor {
namespace {

constexpr char Block = 'b', Pass = 'p', End = 'e';

sockaddr_un addressOf(const std::filesystem::path& socket) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string path = socket.string();
  if (path.size() >= sizeof address.sun_path) ADD_FAILURE() << "the path of the socket is too long: " << path;
  std::memcpy(address.sun_path, path.data(), std::min(path.size(), sizeof address.sun_path - 1));
  return address;
}

FileDescriptor newSocket() { return FileDescriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)); }

/// What has arrived, to the other end. False at the end of the connection.
bool pass(const FileDescriptor& from, const FileDescriptor& to) {
  std::array<char, 65536> bytes{};
  const ssize_t size = ::recv(from.get(), bytes.data(), bytes.size(), 0);
  return size > 0 && ::send(to.get(), bytes.data(), static_cast<std::size_t>(size), MSG_NOSIGNAL) == size;
}

}  // namespace

Detour::Detour(const std::filesystem::path& from, std::filesystem::path to)
    : _to(std::move(to)), _listener(newSocket()) {
  const sockaddr_un address = addressOf(from);
  if (::bind(_listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(_listener.get(), 8) != 0)
    ADD_FAILURE() << "cannot listen on " << from;
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) ADD_FAILURE() << "no pipe";
  _commandsEnd = FileDescriptor(ends[0]);
  _commands = FileDescriptor(ends[1]);
  _thread = std::thread([this] { serve(); });
}

Detour::~Detour() {
  EXPECT_EQ(::write(_commands.get(), &End, 1), 1);
  _thread.join();
}

void Detour::block(bool isBlocked) { EXPECT_EQ(::write(_commands.get(), isBlocked ? &Block : &Pass, 1), 1); }

void Detour::serve() {
  _role.isThisThread();
  while (true) {
    std::vector<pollfd> files{{_commandsEnd.get(), POLLIN, 0}};
    if (!_isBlocked) {
      files.push_back({_listener.get(), POLLIN, 0});
      for (const auto& [client, server] : _connections) {
        for (const FileDescriptor* end : {&client, &server}) files.push_back({end->get(), POLLIN, 0});
      }
    }
    ::poll(files.data(), files.size(), -1);
    if (files[0].revents == 0) {
      passOn(files);
    } else if (!obey()) {
      return;
    }
  }
}

/// False when it is to end.
bool Detour::obey() {
  char command = End;
  if (::read(_commandsEnd.get(), &command, 1) != 1) return false;
  _isBlocked = command == Block;
  return command != End;
}

void Detour::passOn(const std::vector<pollfd>& ready) {
  auto file = ready.begin() + 2;
  for (auto connection = _connections.begin(); connection != _connections.end();) {
    const auto& [client, server] = *connection;
    const bool fromClient = (file++)->revents != 0, fromServer = (file++)->revents != 0;
    const bool isOpen = (!fromClient || pass(client, server)) && (!fromServer || pass(server, client));
    connection = isOpen ? std::next(connection) : _connections.erase(connection);
  }
  if (ready[1].revents != 0) accept();
}

void Detour::accept() {
  FileDescriptor client(::accept4(_listener.get(), nullptr, nullptr, SOCK_CLOEXEC)), server = newSocket();
  const sockaddr_un address = addressOf(_to);
  if (::connect(server.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    _connections.emplace_back(std::move(client), std::move(server));
  }
}

}  // namespace pellor
