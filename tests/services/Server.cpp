#include "tests/services/Server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <pwd.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <thread>
#include <utility>

#include "linux/PrivateFiles.h"
#include "tests/linux/TemporaryFolder.h"

extern char** environ;

namespace pellor {
namespace {

constexpr auto StartLimit = std::chrono::minutes(1);
constexpr auto PauseBetweenLooks = std::chrono::milliseconds(2);

[[noreturn]] void fail(const std::string& problem) {
  ADD_FAILURE() << problem;
  throw std::runtime_error(problem);
}

std::string nameOf(const std::string& setting) { return setting.substr(0, setting.find('=')); }

std::vector<std::string> mergedEnvironment(const std::vector<std::string>& settings) {
  std::vector<std::string> merged = settings;
  for (char** inherited = environ; *inherited != nullptr; ++inherited) {
    const bool isReplaced = std::any_of(settings.begin(), settings.end(), [&](const std::string& setting) {
      return nameOf(setting) == nameOf(*inherited);
    });
    if (!isReplaced) merged.emplace_back(*inherited);
  }
  return merged;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

struct User {
  uid_t id = 0;
  gid_t group = 0;
};

User userNamed(const std::string& name) {
  const passwd* found = ::getpwnam(name.c_str());
  if (!found) fail("there is no user " + name);
  return {found->pw_uid, found->pw_gid};
}

void takeRightsOf(const User& user) {
  if (::setgroups(0, nullptr) != 0 || ::setgid(user.group) != 0 || ::setuid(user.id) != 0) ::_exit(126);
}

pid_t start(Server::Options& options) {
  const bool changesUser = !options.user.empty() && ::geteuid() == 0;
  const User user = changesUser ? userNamed(options.user) : User{};
  std::vector<std::string> environment = mergedEnvironment(options.environment);
  const std::vector<char*> variables = pointersTo(environment), arguments = pointersTo(options.command);
  const FileDescriptor output(::open(options.output.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
  if (!output) fail("cannot write to " + options.output.string());
  const pid_t id = ::fork();
  if (id != 0) return id;
  ::setpgid(0, 0);
  ::dup2(::open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
  ::dup2(output.get(), STDOUT_FILENO);
  ::dup2(output.get(), STDERR_FILENO);
  if (changesUser) takeRightsOf(user);
  // After the rights, whose change takes it back.
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  ::execvpe(arguments[0], arguments.data(), variables.data());
  ::_exit(127);
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

Server::Server(Options options, const std::function<bool()>& isReady) : _id(start(options)) {
  // The parent says so too: whoever kills the group must find it, also before the child has run.
  ::setpgid(_id, _id);
  const auto limit = std::chrono::steady_clock::now() + StartLimit;
  while (!isReady()) {
    if (!isRunning()) fail(options.command.front() + " ended: " + contentOf(options.output));
    if (std::chrono::steady_clock::now() > limit) {
      kill();
      fail(options.command.front() + " did not become ready: " + contentOf(options.output));
    }
    std::this_thread::sleep_for(PauseBetweenLooks);
  }
}

Server::~Server() { kill(); }

bool Server::isRunning() {
  if (_id > 0 && ::waitpid(_id, nullptr, WNOHANG) == _id) {
    ::kill(-_id, SIGKILL);
    _id = -1;
  }
  return _id > 0;
}

void Server::sendSignal(int signal) const {
  if (_id > 0) ::kill(_id, signal);
}

void Server::kill() { endWith(SIGKILL); }

void Server::stop() { endWith(SIGTERM); }

void Server::endWith(int signal) {
  if (_id <= 0) return;
  ::kill(signal == SIGKILL ? -_id : _id, signal);
  while (::waitpid(_id, nullptr, 0) < 0 && errno == EINTR) continue;
  // What it started and left behind.
  ::kill(-_id, SIGKILL);
  _id = -1;
}

std::string runTool(const Server::Options& options) {
  Server::Options started = options;
  const pid_t id = start(started);
  int status = 0;
  while (::waitpid(id, &status, 0) < 0 && errno == EINTR) continue;
  const std::string output = contentOf(options.output);
  if (status != 0) fail(options.command.front() + " failed: " + output);
  return output;
}

int freePort() {
  const FileDescriptor probe(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address = loopback(0);
  socklen_t length = sizeof address;
  if (::bind(probe.get(), reinterpret_cast<const sockaddr*>(&address), length) != 0 ||
      ::getsockname(probe.get(), reinterpret_cast<sockaddr*>(&address), &length) != 0)
    fail("no free port");
  return ntohs(address.sin_port);
}

bool isListening(int port) { return connects(AF_INET, loopback(port)); }

bool isListening(const std::filesystem::path& socket) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string path = socket.string();
  if (path.size() >= sizeof address.sun_path) fail("the path of the socket is too long: " + path);
  std::memcpy(address.sun_path, path.data(), path.size());
  return connects(AF_UNIX, address);
}

}  // namespace pellor
