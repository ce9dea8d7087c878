// Why a command did not do what it was asked.
#pragma once

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace pellor::cli {

/// The exit codes of the program.
enum class ExitCode : int { success = 0, requestFailed = 1, wrongUsage = 2 };

/// Ends a command. The text is one line for the user, without the program's name.
class CommandError : public std::runtime_error {
 public:
  explicit CommandError(const std::string& text, ExitCode exitCode = ExitCode::requestFailed)
      : std::runtime_error(text), _exitCode(exitCode) {}
  ExitCode exitCode() const { return _exitCode; }
  /// Those of whom one may have been meant.
  const std::vector<std::string>& candidates() const { return _candidates; }

 protected:
  CommandError(const std::string& text, std::vector<std::string> candidates)
      : std::runtime_error(text), _exitCode(ExitCode::requestFailed), _candidates(std::move(candidates)) {}

 private:
  ExitCode _exitCode;
  std::vector<std::string> _candidates;
};

/// The arguments do not make sense, whatever is in the list.
class UsageError : public CommandError {
 public:
  explicit UsageError(const std::string& text) : CommandError(text, ExitCode::wrongUsage) {}
};

/// Several persons fit. The candidates are named in the text.
class AmbiguousError : public CommandError {
 public:
  AmbiguousError(const std::string& who, const std::vector<std::string>& candidates);
};

}  // namespace pellor::cli
