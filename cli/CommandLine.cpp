#include "cli/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <memory>

#include "pellor/linux/Configuration.h"
#include "pellor/linux/files/UserFolders.h"

namespace pellor::cli {
namespace {

constexpr const char* Version = "pellor " PELLOR_VERSION;

using Settings = std::vector<std::pair<std::string_view, std::string>>;

std::string flagOf(const ConfigurationKey& key) {
  std::string flag = "--" + std::string(key.name);
  std::ranges::replace(flag, '.', '-');
  return flag;
}

std::string typeNameOf(const ConfigurationKey& key) {
  std::string choices(key.choices);
  std::ranges::replace(choices, ' ', '|');
  switch (key.kind) {
    case ConfigurationKind::choice:
      return choices;
    case ConfigurationKind::path:
      return "PATH";
    case ConfigurationKind::count:
    case ConfigurationKind::seconds:
      return "N";
    case ConfigurationKind::flag:
      return "true|false";
    case ConfigurationKind::region:
      return "XX";
    case ConfigurationKind::text:
      break;
  }
  return "TEXT";
}

std::string meaningOf(const ConfigurationKey& key) {
  std::string meaning(key.meaning);
  meaning.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(meaning.front())));
  if (!key.unset.empty()) meaning += " (default: " + std::string(key.unset) + ")";
  return meaning;
}

// Values are looked at when they are met, so that a wrong one is a wrong argument whatever the file says.
void addConfigurationOption(CLI::App& program, const ConfigurationKey& key, Settings& settings) {
  const auto take = [&key, &settings](const std::string& text) {
    try {
      Configuration().set(key.name, text);
    } catch (const ConfigurationError& error) {
      throw CLI::ValidationError("--" + std::string(error.what()));
    }
    settings.emplace_back(key.name, text);
  };
  program.add_option_function<std::string>(flagOf(key), take, meaningOf(key))
      ->type_name(typeNameOf(key))
      ->group("Configuration");
}

void addCommonOptions(CLI::App& program, CommonOptions& options, Settings& settings, std::string& file) {
  program.set_version_flag("--version", Version, "Print the version");
  program.add_flag("--json", options.json, "Answer in JSON (docs/json.md)");
  program.add_flag("--verbose", options.verbose, "Write the log to standard error, names and numbers included");
  program.add_option("--config", file, "The configuration (default: $XDG_CONFIG_HOME/pellor/config.toml)")
      ->type_name("FILE")
      ->check([](const std::string& path) {
        std::error_code ignored;
        return std::filesystem::exists(path, ignored) ? std::string() : "there is no file " + path;
      });
  for (const ConfigurationKey& key : configurationKeys()) addConfigurationOption(program, key, settings);
}

Configuration configurationOf(const std::string& file, const Settings& settings) {
  const std::filesystem::path path =
      file.empty() ? Configuration::fileIn(UserFolders::find().config) : std::filesystem::path(file);
  try {
    Configuration configuration = Configuration::read(path);
    for (const auto& [name, text] : settings) configuration.set(name, text);
    return configuration;
  } catch (const ConfigurationError& error) {
    throw UsageError(error.what());
  }
}

void addCommands(CLI::App& program, CommandLine& line) {
  Command& chosen = line.command;
  addListCommands(program, chosen, line.options);
  addEditCommands(program, chosen);
  addPageCommands(program, chosen);
  addFriendCommands(program, chosen);
  addContactCommands(program, chosen);
  addFavoritesCommands(program, chosen);
  addSettingsCommands(program, chosen);
  addStatusCommand(program, chosen);
  addWatchCommand(program, chosen);
  addBackupCommands(program, chosen);
  addDeviceCommands(program, line);
  addDoctorCommand(program, line);
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
  std::string file;
  Settings settings;
  addCommonOptions(program, parsed.line.options, settings, file);
  addCommands(program, parsed.line);
  try {
    program.parse(count, arguments);
  } catch (const CLI::ParseError& error) {
    return answered(program, error);
  }
  parsed.line.options.configuration = configurationOf(file, settings);
  if (!parsed.line.command) chooseList(parsed.line.command, parsed.line.options);
  return parsed;
}

}  // namespace pellor::cli
