#include "cli/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>

#include "linux/StoreRegion.h"

namespace pellor::cli {
namespace {

constexpr const char* Version = "pellor " PELLOR_VERSION;

void upperCase(std::string& text) {
  std::ranges::transform(text, text.begin(),
                         [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
}

void addCommonOptions(CLI::App& program, CommonOptions& options) {
  program.set_version_flag("--version", Version, "Print the version");
  const auto path = [&program](const char* name, std::optional<std::filesystem::path>& target, const char* text) {
    program
        .add_option_function<std::string>(
            name, [&target](const std::string& value) { target = value; }, text)
        ->type_name("DIR")
        ->check([](const std::string& value) { return value.empty() ? std::string("is empty") : std::string(); });
  };
  path("--contacts", options.contactsFolder, "The folder of vCard files (default: \"contacts\" in the data folder)");
  path("--data", options.dataFolder, "The data folder (default: $XDG_DATA_HOME/pellor)");
  program.add_option("--domain", options.domain, "The preferences domain of the friend list")->capture_default_str();
  program
      .add_option_function<std::string>(
          "--region",
          [&options](std::string region) {
            upperCase(region);
            if (!isRegion(region)) throw CLI::ValidationError("--region", "\"" + region + "\" is no region such as DE");
            options.region = region;
          },
          "The region of a new store, such as DE, by which numbers are read")
      ->type_name("XX");
  program.add_option("--service", options.service, "The messaging service that tells who is reachable")
      ->type_name("NAME")
      ->check([](const std::string& name) { return name.empty() ? std::string("is empty") : std::string(); });
  program.add_flag("--json", options.json, "Answer in JSON (docs/json.md)");
  program.add_flag("--verbose", options.verbose, "Write the log to standard error, names and numbers included");
}

void addCommands(CLI::App& program, Command& chosen, CommonOptions& options) {
  addListCommands(program, chosen, options);
  addEditCommands(program, chosen);
  addPageCommands(program, chosen);
  addFriendCommands(program, chosen);
  addContactCommands(program, chosen);
  addFavoritesCommands(program, chosen);
  addSettingsCommands(program, chosen);
  addStatusCommand(program, chosen);
  addWatchCommand(program, chosen);
}

std::string firstLine(const std::string& text) { return text.substr(0, text.find('\n')); }

// What CLI11 throws for --help and --version is no error.
ParsedArguments answered(const CLI::App& program, const CLI::ParseError& error) {
  std::ostringstream text;
  std::ostringstream problem;
  const int exitCode = program.exit(error, text, problem);
  if (exitCode != 0) throw UsageError(firstLine(error.what()) + " (see pellor --help)");
  return {text.str(), {}};
}

}  // namespace

ParsedArguments parseArguments(int count, const char* const* arguments) {
  ParsedArguments parsed;
  CLI::App program("Keeps your list of friends: pages of slots, in step with your contacts.", "pellor");
  // Common options may stand behind the command as well.
  program.fallthrough();
  program.require_subcommand(0, 1);
  program.footer(
      "WHO is a name, a number or address in any spelling, a GUID, or PAGE:SLOT. Numbers count from 1.\n"
      "The options that \"pellor --help\" lists go with every command; without one the list is shown.\n"
      "Exit codes: 0 done, 1 failed, 2 wrong usage.");
  addCommonOptions(program, parsed.line.options);
  addCommands(program, parsed.line.command, parsed.line.options);
  try {
    program.parse(count, arguments);
  } catch (const CLI::ParseError& error) {
    return answered(program, error);
  }
  if (!parsed.line.command) chooseList(parsed.line.command, parsed.line.options);
  return parsed;
}

}  // namespace pellor::cli
