#include "tests/services/servers/Server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace pellor {
namespace {

constexpr auto StartLimit = std::chrono::minutes(1);
constexpr auto PauseBetweenLooks = std::chrono::milliseconds(2);

[[noreturn]] void fail(const std::string& problem) {
  ADD_FAILURE() << problem;
  throw std::runtime_error(problem);
}

pid_t start(std::vector<std::string> command, const std::filesystem::path& output) {
  std::vector<char*> arguments;
  for (std::string& argument : command) arguments.push_back(argument.data());
  arguments.push_back(nullptr);
  const FileDescriptor file(::open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
  const pid_t id = ::fork();
  // Both say so: the server before it starts others, and the test before it ends the group.
  ::setpgid(id, id);
  if (id != 0) return id;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  ::dup2(::open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
  for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) ::dup2(file.get(), stream);
  ::execvp(arguments[0], arguments.data());
  ::_exit(127);
}

int statusAtTheEndOf(pid_t id) {
  int status = 0;
  while (::waitpid(id, &status, 0) < 0 && errno == EINTR) continue;
  return status;
}

template <class Address>
bool connects(int family, const Address& address) {
  const FileDescriptor connection(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0));
  return connection && ::connect(connection.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

sockaddr_in loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  return address;
}

}  // namespace

Server::Server(const std::vector<std::string>& command, const std::function<bool()>& isReady)
    : _id(start(command, _folder / "output")) {
  const auto limit = std::chrono::steady_clock::now() + StartLimit;
  while (!isReady()) {
    const bool hasEnded = ::waitpid(_id, nullptr, WNOHANG) == _id;
    if (hasEnded || std::chrono::steady_clock::now() > limit) {
      ::kill(-_id, SIGKILL);
      fail(testing::PrintToString(command) + " is not ready: " + contentOf(_folder / "output"));
    }
    std::this_thread::sleep_for(PauseBetweenLooks);
  }
}

void Server::end(int signal) {
  if (_id <= 0) return;
  ::kill(signal == SIGKILL ? -_id : _id, signal);
  statusAtTheEndOf(_id);
  // What it started and left behind.
  ::kill(-_id, SIGKILL);
  _id = -1;
}

std::string runTool(const std::vector<std::string>& command) {
  const TemporaryFolder folder;
  const int status = statusAtTheEndOf(start(command, folder / "output"));
  const std::string output = contentOf(folder / "output");
  if (status != 0) fail(testing::PrintToString(command) + " failed: " + output);
  return output;
}

std::vector<std::string> asUser(const std::string& user, std::vector<std::string> command) {
  if (::geteuid() != 0) return command;
  // The change of rights would take back that it ends with the test.
  command.insert(command.begin(),
                 {"setpriv", "--reuid=" + user, "--regid=" + user, "--clear-groups", "--pdeathsig=KILL"});
  return command;
}

std::pair<FileDescriptor, int> listenOnLoopback() {
  FileDescriptor listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address = loopback(0);
  socklen_t length = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (::bind(listener.get(), generic, length) != 0 || ::listen(listener.get(), SOMAXCONN) != 0 ||
      ::getsockname(listener.get(), generic, &length) != 0)
    fail("no free port");
  return {std::move(listener), ntohs(address.sin_port)};
}

bool isListening(int port) { return connects(AF_INET, loopback(port)); }

bool isListening(const std::filesystem::path& socket) { return connects(AF_UNIX, addressOf(socket)); }

sockaddr_un addressOf(const std::filesystem::path& socket) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string path = socket.string();
  if (path.size() >= sizeof address.sun_path) fail("the path of the socket is too long: " + path);
  std::memcpy(address.sun_path, path.data(), path.size());
  return address;
}

}  // namespace pellor
