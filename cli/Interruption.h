// Ends a program that runs until it is interrupted.
#pragma once

#include <functional>
#include <thread>

#include "pellor/linux/files/FileDescriptor.h"

namespace pellor::cli {

/// Calls a function once when the user interrupts the program (SIGINT, SIGTERM) or nobody reads standard output any
/// more.
class Interruption {
 public:
  /// Keeps both signals from ending the program. To be called before any thread is started.
  static void blockSignals();

  /// `interrupted` is called on a thread of the object's own.
  explicit Interruption(std::function<void()> interrupted);
  ~Interruption();
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;

 private:
  void run() const;

  const std::function<void()> _interrupted;
  const FileDescriptor _signals;
  const FileDescriptor _end;  ///< readable when the object goes
  std::thread _thread;
};

}  // namespace pellor::cli
