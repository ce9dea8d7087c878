// The program `pellor`.

#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <optional>
#include <string>

#include "cli/CommandLine.h"
#include "cli/Output.h"
#include "cli/Services.h"

namespace pellor::cli {
namespace {

ExitCode print(const std::string& text) {
  switch (writeOutput(text)) {
    case OutputResult::whole:
      return ExitCode::success;
    case OutputResult::readerGone:
      return ExitCode::requestFailed;
    case OutputResult::failed:
      break;
  }
  writeError(std::string("the output could not be written: ") + std::strerror(errno));
  return ExitCode::requestFailed;
}

// A command may answer and fail: the answer says no.
ExitCode run(const CommandLine& line) {
  std::string answer;
  std::optional<CommandError> failure;
  {
    Session session(line.options);
    try {
      if (line.opensStore) session.open();
      line.command(session);
    } catch (const CommandError& error) {
      failure = error;
      session.drop();
    }
    answer = session.answer();
  }
  const ExitCode printed = print(answer);
  if (!failure) return printed;
  writeError(failure->what());
  return failure->exitCode();
}

ExitCode program(int count, char** arguments) {
  try {
    const ParsedArguments parsed = parseArguments(count, arguments);
    if (!parsed.text) chooseProgram(parsed.line, arguments);
    return parsed.text ? print(*parsed.text) : run(parsed.line);
  } catch (const CommandError& error) {
    writeError(error.what());
    return error.exitCode();
  } catch (const std::exception& error) {
    writeError(error.what());
    return ExitCode::requestFailed;
  }
}

}  // namespace
}  // namespace pellor::cli

int main(int count, char** arguments) {
  // A reader that goes away is noticed when writing.
  std::signal(SIGPIPE, SIG_IGN);
  return static_cast<int>(pellor::cli::program(count, arguments));
}
