// What the user asked for.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "cli/CommandError.h"
#include "cli/Session.h"

namespace CLI {
class App;
}

namespace pellor::cli {

class CommandSyntax;

/// Does the work of a command. Throws CommandError when that fails.
using Command = std::function<void(Session&)>;

/// Which program a command runs in: `pellor` links the embedded platform alone, `pellor-services` the user's services
/// too.
enum class Services {
  ifChosen,  ///< the one that has what the configuration chooses
  ifThere,   ///< the one with services, where there is one
  needed     ///< the one with services
};

/// A command and the options that it came with.
struct CommandLine {
  CommonOptions options;
  Command command;
  Services services = Services::ifChosen;
  bool opensStore = true;  ///< false: the command looks at the configuration alone
};

/// What the arguments ask for: a command, or a text to print (help, version), after which the program ends with
/// success. Throws UsageError.
struct ParsedArguments {
  std::optional<std::string> text;
  CommandLine line;
};
ParsedArguments parseArguments(int count, const char* const* arguments);

/// help, completion: they answer with what was added before them.
void addHelpCommands(CLI::App& program, ParsedArguments& parsed);

/// Chooses `pellor complete`, which shells ask what the last of these words may become. It is listed nowhere.
void chooseCompletion(const CLI::App& program, CommandLine& line, const std::vector<std::string>& words);

// Each adds a group of commands; the one that is given on the command line becomes `chosen`.
void addListCommands(CommandSyntax program, Command& chosen, CommonOptions& options);  // list, find
void addEditCommands(CommandSyntax program, Command& chosen);                          // add, remove, move
void addPageCommands(CommandSyntax program, Command& chosen);                          // title, purge
void addHistoryCommands(CommandSyntax program, Command& chosen);                       // history, undo, redo
void addForgetCommand(CommandSyntax program, Command& chosen);                         // forget
void addWhyCommand(CommandSyntax program, Command& chosen);                            // why
void addFriendCommands(CommandSyntax program, Command& chosen);                        // number, reply-as, meta
void addContactCommands(CommandSyntax program, Command& chosen);                       // contacts, allow, refresh
void addFavoritesCommands(CommandSyntax program, Command& chosen);                     // favorites
void addSettingsCommands(CommandSyntax program, Command& chosen);                      // settings
void addStatusCommand(CommandSyntax program, Command& chosen);                         // status
void addWatchCommand(CommandSyntax program, Command& chosen);                          // watch
void addExportCommands(CommandSyntax program, Command& chosen);                        // export, import
void addBackupCommands(CommandSyntax program, Command& chosen);                        // backup
void addDeviceCommands(CommandSyntax program, CommandLine& line);                      // device
void addDoctorCommand(CommandSyntax program, CommandLine& line);                       // doctor

/// Chooses the command that is taken when none is given: list.
void chooseList(Command& chosen, CommonOptions& options);

}  // namespace pellor::cli
