// The program `pellor`.

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <exception>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "cli/CommandLine.h"
#include "cli/Output.h"
#include "cli/Passwords.h"
#include "cli/Services.h"
#include "pellor/linux/Configuration.h"
#include "pellor/linux/files/UserFolders.h"

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

void tellInText(const CommandError& error) {
  if (!error.choice()) return writeError(error.what());
  writeError(std::string(error.what()) + ": type one of these");
  for (const std::string& line : linesOf(*error.choice())) writeErrorLine(line);
}

// What a script reads says in one object what a person reads in one line.
void tell(const CommandError& error, bool inJson) {
  if (!inJson) return tellInText(error);
  Json object = {{"message", error.what()}, {"exitCode", static_cast<int>(error.exitCode())}};
  if (error.choice()) object.update(jsonOf(*error.choice()));
  writeErrorLine(textOf(Json{{"error", std::move(object)}}));
}

// Arguments that make no sense are told in JSON too where that is asked for among them.
bool wantsJson(std::span<char* const> arguments) {
  return std::ranges::any_of(arguments, [](const char* argument) { return std::string_view(argument) == "--json"; });
}

// By the program that runs the command, so that it is said once.
void warnOfPassword(std::span<char* const> arguments) {
  if (std::ranges::none_of(arguments, holdsPassword)) return;
  writeError("other users can see the password on the command line: put it into " +
             Configuration::fileIn(UserFolders::find().config).string());
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
  tell(*failure, line.options.json);
  return failure->exitCode();
}

ExitCode program(int count, char** arguments) {
  const bool inJson = wantsJson({arguments, static_cast<std::size_t>(count)});
  try {
    const ParsedArguments parsed = parseArguments(count, arguments);
    if (parsed.text) return print(*parsed.text);
    chooseProgram(parsed.line, arguments);
    warnOfPassword({arguments, static_cast<std::size_t>(count)});
    return run(parsed.line);
  } catch (const CommandError& error) {
    tell(error, inJson);
    return error.exitCode();
  } catch (const std::exception& error) {
    tell(CommandError(error.what()), inJson);
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
