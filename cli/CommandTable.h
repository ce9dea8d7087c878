// The commands with their options, of which the manual page and the completions are made.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace pellor::cli {

/// An option, or an argument that goes by its place.
struct OptionEntry {
  std::vector<std::string> names;    ///< "-h", "--help"; of an argument its one name
  std::string value;                 ///< what follows an option, "PATH"; empty for a flag and for an argument
  std::vector<std::string> choices;  ///< of the value, where only these make sense
  std::string meaning;
  bool isRequired = false;
  bool isRepeated = false;  ///< an argument of which there may be several
};

struct CommandEntry {
  std::string name;  ///< "favorites add"; of the program itself empty
  std::string meaning;
  std::vector<std::string> examples;  ///< whole command lines
  std::vector<OptionEntry> arguments;
  std::vector<OptionEntry> options;
  std::vector<OptionEntry> serviceOptions;  ///< of the program: those of the user's own services
  std::vector<CommandEntry> commands;
};

/// All that was added to the program. Options without a group are those of services.
CommandEntry commandTable(const CLI::App& program);

/// How a command is called: "pellor move [OPTIONS] WHO PAGE:SLOT".
std::string synopsisOf(const CommandEntry& command);

/// Every command below that one, in order, a command before its own.
std::vector<const CommandEntry*> allCommands(const CommandEntry& program);

}  // namespace pellor::cli
