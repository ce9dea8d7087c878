#include "bench/ChildProgram.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <string_view>

#include "pellor/runtime/Fatal.h"

namespace pellor::bench {
namespace {

struct Pipe {
  Pipe() {
    std::array<int, 2> ends{};
    require(::pipe2(ends.data(), O_CLOEXEC) == 0, "a pipe");
    readEnd = FileDescriptor(ends[0]);
    writeEnd = FileDescriptor(ends[1]);
  }
  FileDescriptor readEnd, writeEnd;
};

pid_t spawn(std::vector<std::string>& command, int input, int output) {
  std::vector<char*> arguments;
  for (std::string& argument : command) arguments.push_back(argument.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
  ::posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  pid_t id = 0;
  const int error = ::posix_spawn(&id, arguments.front(), &actions, nullptr, arguments.data(), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  require(error == 0, "a program that can be started: " + command.front());
  return id;
}

}  // namespace

std::string benchProgram(std::string_view name) { return (std::filesystem::path(PELLOR_BENCH_FOLDER) / name).string(); }

ChildProgram::ChildProgram(std::vector<std::string> command) {
  Pipe input, output;
  _id = spawn(command, input.readEnd.get(), output.writeEnd.get());
  _input = std::move(input.writeEnd);
  _output = std::move(output.readEnd);
}

ChildProgram::~ChildProgram() {
  _input.close();
  ::waitpid(_id, nullptr, 0);
}

std::string ChildProgram::readLine() {
  std::size_t end = _unread.find('\n');
  while (end == std::string::npos) {
    std::array<char, 4096> buffer;
    const ssize_t count = ::read(_output.get(), buffer.data(), buffer.size());
    require(count > 0, "another line of the program");
    _unread.append(buffer.data(), static_cast<std::size_t>(count));
    end = _unread.find('\n');
  }
  std::string line = _unread.substr(0, end);
  _unread.erase(0, end + 1);
  return line;
}

rusage run(std::vector<std::string> command) {
  const FileDescriptor nothing(::open("/dev/null", O_RDWR | O_CLOEXEC));
  const pid_t id = spawn(command, nothing.get(), nothing.get());
  int status = 0;
  rusage usage{};
  ::wait4(id, &status, 0, &usage);
  require(WIFEXITED(status) && WEXITSTATUS(status) == 0, "a program that succeeds: " + command.front());
  return usage;
}

}  // namespace pellor::bench
