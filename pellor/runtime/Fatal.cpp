#include "pellor/runtime/Fatal.h"

#include <cstdio>
#include <cstdlib>
#include <string>

#include "pellor/runtime/BundleIdentifier.h"
#include "pellor/runtime/Process.h"

namespace pellor {

namespace {

void logFatal(const std::string& line) {
  // A sink that breaks a contract itself must not keep the program from ending.
  static constinit thread_local bool isLogging = false;
  if (isLogging || !Process::hasCurrent()) return;
  isLogging = true;
  if (const auto& sink = Process::current().logSink()) {
    sink->write({.subsystem = BundleIdentifier, .category = "main", .operation = "fatal", .message = {{line}}});
  }
}

}  // namespace

void fatal(std::string_view expected) {
  const std::string line = "pellor: fatal: expected " + std::string(expected);
  std::fputs((line + "\n").c_str(), stderr);
  std::fflush(stderr);
  logFatal(line);
  std::abort();
}

}  // namespace pellor
