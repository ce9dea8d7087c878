// A forked process, for tests in which several processes meet. Needs GoogleTest and a system with fork.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <functional>
#include <optional>

namespace pellor {

/// Runs `work` in a child, which ends with what it returns as its exit code. Make it before threads and connections.
class ChildProcess {
 public:
  /// Numbers that the child sends to its parent.
  class Report {
   public:
    explicit Report(int descriptor) : _descriptor(descriptor) {}
    void send(std::int64_t number) const {
      if (::write(_descriptor, &number, sizeof number) != sizeof number) ::_exit(99);
    }

   private:
    int _descriptor;
  };

  explicit ChildProcess(const std::function<int(const Report&)>& work) {
    if (::pipe(_pipe.data()) != 0) ADD_FAILURE() << "no pipe";
    _id = ::fork();
    if (_id == 0) {
      ::close(_pipe[0]);
      ::_exit(work(Report(_pipe[1])));
    }
    ::close(_pipe[1]);
  }
  ~ChildProcess() {
    if (_id > 0) kill();
    ::close(_pipe[0]);
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  /// Waits for the next number; absent when the child has ended.
  std::optional<std::int64_t> receive() const {
    std::int64_t number = 0;
    if (::read(_pipe[0], &number, sizeof number) != sizeof number) return std::nullopt;
    return number;
  }

  void kill() {
    ::kill(_id, SIGKILL);
    exitCode();
  }

  /// Waits for the end; below zero when a signal ended it.
  int exitCode() {
    int status = 0;
    ::waitpid(_id, &status, 0);
    _id = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }

 private:
  std::array<int, 2> _pipe{};
  pid_t _id = 0;
};

}  // namespace pellor
