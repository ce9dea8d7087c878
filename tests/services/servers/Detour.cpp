#include "tests/services/servers/Detour.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "tests/services/servers/Server.h"

namespace pellor {
namespace {

constexpr char Block = 'b', Pass = 'p', End = 'e';

FileDescriptor newSocket() { return FileDescriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)); }

std::string received(const FileDescriptor& from, int flags) {
  std::array<char, 65536> bytes{};
  const ssize_t size = ::recv(from.get(), bytes.data(), bytes.size(), flags);
  return {bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
}

bool sendAll(const std::string& bytes, const FileDescriptor& to) {
  return ::send(to.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

/// What has arrived, to the other end. False at the end of the connection.
bool pass(const FileDescriptor& from, const FileDescriptor& to) {
  const std::string bytes = received(from, 0);
  return !bytes.empty() && sendAll(bytes, to);
}

/// Sends it as the last that the server gets, and waits until the server has ended the connection.
void serveAsLast(const std::string& request, const FileDescriptor& server) {
  if (!sendAll(request, server)) return;
  ::shutdown(server.get(), SHUT_WR);
  while (!received(server, 0).empty()) continue;
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

void Detour::stopAt(std::string text, Fate fate) {
  const MutexLock lock(_mutex);
  _stop = {std::move(text), fate};
}

void Detour::serveHeld() {
  std::optional<Request> request;
  {
    const MutexLock lock(_mutex);
    request = std::exchange(_held, std::nullopt);
  }
  if (!request) {
    ADD_FAILURE() << "no request is held";
    return;
  }
  serveAsLast(request->bytes, request->server);
}

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
    const bool isOpen = (!fromClient || passRequest(*connection)) && (!fromServer || pass(server, client));
    connection = isOpen ? std::next(connection) : _connections.erase(connection);
  }
  if (ready[1].revents != 0) accept();
}

std::optional<Detour::Fate> Detour::fateOf(const std::string& request) {
  const MutexLock lock(_mutex);
  if (!_stop || request.find(_stop->text) == std::string::npos) return std::nullopt;
  return std::exchange(_stop, std::nullopt)->fate;
}

/// False at the end of the connection.
bool Detour::passRequest(Ends& ends) {
  const std::string request = received(ends.first, MSG_PEEK);
  const auto fate = fateOf(request);
  return fate ? end(*fate, request, ends) : pass(ends.first, ends.second);
}

bool Detour::end(Fate fate, const std::string& request, Ends& ends) {
  if (fate == Fate::blocked) {
    _isBlocked = true;
    return true;
  }
  if (fate == Fate::served) serveAsLast(request, ends.second);
  if (fate == Fate::held) {
    const MutexLock lock(_mutex);
    _held = Request{request, std::move(ends.second)};
  }
  return false;
}

void Detour::accept() {
  FileDescriptor client(::accept4(_listener.get(), nullptr, nullptr, SOCK_CLOEXEC)), server = newSocket();
  const sockaddr_un address = addressOf(_to);
  if (::connect(server.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    _connections.emplace_back(std::move(client), std::move(server));
  }
}

}  // namespace pellor
