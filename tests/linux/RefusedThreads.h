// A process to which the system gives no more threads.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <iterator>
#include <string>

#include "pellor/testing/contract/ChildProcess.h"

namespace pellor {

/// As long as it lives, and until it is lifted, no thread can be started: the user has as many tasks as he may. For a
/// child process, whose user it may change, since an administrator has no such limit.
class RefusedThreads {
 public:
  RefusedThreads() {
    constexpr uid_t nobody = 65534;
    if (::geteuid() == 0 && ::setuid(nobody) != 0) ADD_FAILURE() << "cannot become another user";
    ::getrlimit(RLIMIT_NPROC, &_before);
    const rlimit limit{1, _before.rlim_max};
    if (::setrlimit(RLIMIT_NPROC, &limit) != 0) ADD_FAILURE() << "cannot limit the tasks";
  }
  ~RefusedThreads() { lift(); }
  RefusedThreads(const RefusedThreads&) = delete;
  RefusedThreads& operator=(const RefusedThreads&) = delete;

  void lift() const { ::setrlimit(RLIMIT_NPROC, &_before); }

  static constexpr const char* Refusal = "no thread can be started";

 private:
  rlimit _before{};
};

/// How many threads the process has.
inline std::ptrdiff_t threadCount() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/task"), std::filesystem::directory_iterator());
}

/// Runs a test in a process of its own, which an exception ends.
inline void runWithRefusedThreads(const std::function<void(const RefusedThreads&)>& test) {
  ChildProcess child([&](const ChildProcess::Report&) noexcept {
    const RefusedThreads refused;
    test(refused);
    return testing::Test::HasFailure() ? 1 : 0;
  });
  EXPECT_EQ(child.exitCode(), 0) << "what failed stands above";
}

}  // namespace pellor
