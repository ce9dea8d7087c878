// The thread of a service.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <thread>

namespace pellor {

/// One thread, which may be refused: where the system has none left, its service is one that does not answer, and
/// nothing is thrown. Its owner's business: to call it from one thread at a time, and to end what runs before `join`.
class ServiceThread {
 public:
  ServiceThread() = default;
  /// Joins.
  ~ServiceThread();
  ServiceThread(const ServiceThread&) = delete;
  ServiceThread& operator=(const ServiceThread&) = delete;

  /// For the log and the user, of a thread that was refused.
  static constexpr const char* Problem = "no thread can be started";
  static constexpr const char* Advice = "end other programs, or raise the limit of tasks (ulimit -u)";
  /// Both in one line, with what the system said.
  static std::string problemText(const std::string& refusal);

  /// Runs `run` on a new thread, which takes no signals and which the system shows under `name`, at most 15 characters
  /// long. Gives what the system said where it refused; then it may be tried again. Not while it is started.
  [[nodiscard]] std::optional<std::string> start(const char* name, std::function<void()> run);
  /// Whether there is something to join.
  bool isStarted() const { return _thread.joinable(); }
  /// Waits for its end, if it was started.
  void join();

 private:
  std::thread _thread;
};

}  // namespace pellor
