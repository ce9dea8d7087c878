#include "cli/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <memory>

#include "cli/CommandSyntax.h"
#include "cli/Examples.h"
#include "cli/Output.h"
#include "cli/Suggestion.h"
#include "pellor/linux/Configuration.h"
#include "pellor/linux/files/UserFolders.h"

namespace pellor::cli {
namespace {

constexpr std::string_view CompleteCommand = "complete";
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

// The keys of a section are a service's. They have their own topic of help, which is the longer one.
bool isOfService(const ConfigurationKey& key) { return key.name.find('.') != std::string_view::npos; }

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
      ->group(isOfService(key) ? "" : "Configuration");
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
  const CommandSyntax commands(program, line.options.isDry);
  Command& chosen = line.command;
  addListCommands(commands, chosen, line.options);
  addEditCommands(commands, chosen);
  addPageCommands(commands, chosen);
  addHistoryCommands(commands, chosen);
  addForgetCommand(commands, chosen);
  addWhyCommand(commands, chosen);
  addFriendCommands(commands, chosen);
  addContactCommands(commands, chosen);
  addFavoritesCommands(commands, chosen);
  addSettingsCommands(commands, chosen);
  addStatusCommand(commands, chosen);
  addWatchCommand(commands, chosen);
  addExportCommands(commands, chosen);
  addBackupCommands(commands, chosen);
  addDeviceCommands(commands, line);
  addDoctorCommand(commands, line);
}

std::string firstLine(const std::string& text) { return text.substr(0, text.find('\n')); }

/// The last command on the command line; the program where none is.
const CLI::App& givenCommand(const CLI::App& program) {
  const CLI::App* command = &program;
  while (!command->get_subcommands().empty()) command = command->get_subcommands().front();
  return *command;
}

std::vector<std::string> namesBelow(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::App* below : command.get_subcommands([](const CLI::App* each) { return !each->get_group().empty(); }))
    names.push_back(below->get_name());
  return names;
}

std::vector<std::string> optionNames(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::Option* option : command.get_options()) {
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  }
  return names;
}

// The command as it is typed behind the program's name, with a blank before it.
std::string pathOf(const CLI::App& command) {
  std::string path;
  for (const CLI::App* each = &command; each->get_parent() != nullptr; each = each->get_parent()) {
    path = " " + each->get_name() + path;
  }
  return path;
}

// An argument is missing, or the command below another one.
UsageError incomplete(const CLI::App& command, const CLI::ParseError& error) {
  const bool needsCommand = command.get_require_subcommand_min() > 0 && command.get_subcommands().empty();
  const std::string problem = needsCommand ? "a command is required" : firstLine(error.what());
  return UsageError(problem + " (see pellor help" + pathOf(command) + ")");
}

// An argument that nothing takes: a command or an option that was mistyped, or one too many.
UsageError unexpected(const CLI::App& program, const std::string& argument) {
  const CLI::App& command = givenCommand(program);
  const bool isOption = argument.starts_with('-');
  std::vector<std::string> known = isOption ? optionNames(command) : namesBelow(command);
  if (isOption && &command != &program) {
    const auto common = optionNames(program);
    known.insert(known.end(), common.begin(), common.end());
  }
  const std::string path = pathOf(command);
  const std::string what = isOption ? "no option " : known.empty() ? "no use for " : "no command ";
  return UsageError("pellor" + path + " has " + what + printable(argument) +
                    didYouMean(argument, known, " (see pellor help" + path + ")"));
}

// The first word that is no option and no option's value is to be a command.
void requireCommand(const CLI::App& program, const std::vector<std::string>& words) {
  for (auto word = words.begin(); word != words.end(); ++word) {
    const bool isOption = word->starts_with('-');
    const CLI::Option* option = isOption ? program.get_option_no_throw(*word) : nullptr;
    if (isOption && !option) return;
    if (option && option->get_items_expected_max() > 0 && word + 1 != words.end()) ++word;
    if (isOption) continue;
    const std::vector<std::string> known = namesBelow(program);
    if (std::ranges::find(known, *word) != known.end()) return;
    throw UsageError("pellor has no command " + printable(*word) + didYouMean(*word, known, " (see pellor help)"));
  }
}

// What CLI11 throws for --help and --version is no error.
ParsedArguments answered(const CLI::App& program, const CLI::ParseError& error, const std::vector<std::string>& words) {
  std::ostringstream text;
  std::ostringstream problem;
  const int exitCode = program.exit(error, text, problem);
  if (exitCode == 0) return {readable(text.str()), {}};
  requireCommand(program, words);
  const std::vector<std::string> extras = program.remaining(true);
  if (dynamic_cast<const CLI::ExtrasError*>(&error) && !extras.empty()) throw unexpected(program, extras.front());
  const bool isIncomplete = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr;
  if (isIncomplete) throw incomplete(givenCommand(program), error);
  throw UsageError(firstLine(error.what()) + " (see pellor help)");
}

// Each command says what it looks like when it is used, and what holds for all of them.
void addExamples(CLI::App& command, const std::string& name, const std::string& footer) {
  std::string examples;
  for (const std::string& line : examplesOf(name)) examples += "  " + line + "\n";
  command.footer((examples.empty() ? "" : "Examples:\n" + examples + "\n") + footer);
  for (CLI::App* below : command.get_subcommands([](CLI::App*) { return true; })) {
    addExamples(*below, name.empty() ? below->get_name() : name + " " + below->get_name(), footer);
  }
}

}  // namespace

ParsedArguments parseArguments(int count, const char* const* arguments) {
  ParsedArguments parsed;
  CLI::App program("Keeps your list of friends: pages of slots, in step with your contacts.", "pellor");
  // Common options may stand behind the command as well.
  program.fallthrough();
  program.require_subcommand(0, 1);
  program.get_formatter()->label("Positionals", "Arguments");
  constexpr const char* footer =
      "WHO is a name, a number or address in any spelling, a GUID, or PAGE:SLOT (see pellor help who).\n"
      "The options of \"pellor help\" and \"pellor help services\" go with every command; without one the list is "
      "shown.\n"
      "Exit codes: 0 done, 1 failed, 2 wrong usage.";
  std::string file;
  Settings settings;
  addCommonOptions(program, parsed.line.options, settings, file);
  addCommands(program, parsed.line);
  addHelpCommands(program, parsed);
  addExamples(program, "", footer);
  const std::vector<std::string> words(arguments + 1, arguments + count);
  if (!words.empty() && words.front() == CompleteCommand) {
    parsed.line.options.configuration = configurationOf(file, settings);
    // Its words are a command line that is not finished: behind "--" they are no options of this one.
    chooseCompletion(program, parsed.line, {words.begin() + (words.size() > 1 ? 2 : 1), words.end()});
    return parsed;
  }
  try {
    program.parse(count, arguments);
  } catch (const CLI::ParseError& error) {
    return answered(program, error, words);
  }
  if (parsed.text) return parsed;
  parsed.line.options.configuration = configurationOf(file, settings);
  if (!parsed.line.command) chooseList(parsed.line.command, parsed.line.options);
  return parsed;
}

}  // namespace pellor::cli
