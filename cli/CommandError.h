// Why a command did not do what it was asked.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "cli/Choice.h"

namespace pellor::cli {

/// The exit codes of the program.
enum class ExitCode : int { success = 0, requestFailed = 1, wrongUsage = 2 };

/// Ends a command. The text is one line for the user, without the program's name.
class CommandError : public std::runtime_error {
 public:
  explicit CommandError(const std::string& text, ExitCode exitCode = ExitCode::requestFailed)
      : std::runtime_error(text), _exitCode(exitCode) {}
  ExitCode exitCode() const { return _exitCode; }
  /// Those of whom one was meant, where that is what went wrong.
  const std::optional<Choice>& choice() const { return _choice; }

 protected:
  CommandError(const std::string& text, Choice choice)
      : std::runtime_error(text), _exitCode(ExitCode::requestFailed), _choice(std::move(choice)) {}

 private:
  ExitCode _exitCode;
  std::optional<Choice> _choice;
};

/// The arguments do not make sense, whatever is in the list.
class UsageError : public CommandError {
 public:
  explicit UsageError(const std::string& text) : CommandError(text, ExitCode::wrongUsage) {}
};

/// Several persons fit.
class AmbiguousError : public CommandError {
 public:
  explicit AmbiguousError(const Choice& choice) : CommandError(textOf(choice), choice) {}
};

}  // namespace pellor::cli
