// A program that runs beside the benchmark.
#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

#include "pellor/linux/files/internal/PrivateFiles.h"

namespace pellor::bench {

/// One of the programs in the folder of the benchmarks.
std::string benchProgram(std::string_view name);

/// Runs until its standard input ends, which happens with the object. Its lines can be read.
class ChildProgram {
 public:
  explicit ChildProgram(std::vector<std::string> command);
  ~ChildProgram();
  ChildProgram(const ChildProgram&) = delete;
  ChildProgram& operator=(const ChildProgram&) = delete;

  pid_t id() const { return _id; }
  /// Waits for the next line, and gives it without its end.
  std::string readLine();

 private:
  pid_t _id = 0;
  FileDescriptor _input;
  FileDescriptor _output;
  std::string _unread;
};

/// Runs a program to its end, with its output going nowhere, and gives what it used. It must succeed.
rusage run(std::vector<std::string> command);

}  // namespace pellor::bench
