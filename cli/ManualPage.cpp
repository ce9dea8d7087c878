#include "cli/ManualPage.h"

#include <sstream>
#include <string_view>

#include "cli/HelpTopics.h"

namespace pellor::cli {
namespace {

// A backslash begins an escape, a hyphen may be set as a dash that no search finds, and a dot or an apostrophe at the
// head of a line begins a request.
std::string escaped(std::string_view text) {
  std::string result = text.starts_with('.') || text.starts_with('\'') ? "\\&" : "";
  for (const char character : text) {
    if (character == '\\') {
      result += "\\e";
    } else if (character == '-') {
      result += "\\-";
    } else {
      result += character == '\n' ? ' ' : character;
    }
  }
  return result;
}

// An empty line would be a request to some readers.
std::string escapedLines(const std::string& text) {
  std::string result;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) result += (line.empty() ? ".sp" : escaped(line)) + "\n";
  return result;
}

std::string section(std::string_view title) { return ".SH " + std::string(title) + "\n"; }

std::string entryText(const OptionEntry& option) {
  std::string names;
  for (const std::string& name : option.names) names += (names.empty() ? "" : ", ") + escaped(name);
  const std::string value = option.value.empty() ? "" : " \\fI" + escaped(option.value) + "\\fR";
  return ".TP\n\\fB" + names + "\\fR" + value + "\n" + escaped(option.meaning) + "\n";
}

std::string entriesText(const std::vector<OptionEntry>& options) {
  std::string text;
  for (const OptionEntry& option : options) text += entryText(option);
  return text;
}

bool isHelp(const OptionEntry& option) { return option.names.back() == "--help"; }

std::string commandText(const CommandEntry& command) {
  std::string text = ".SS \"" + escaped(synopsisOf(command)) + "\"\n" + escaped(command.meaning) + ".\n";
  text += entriesText(command.arguments);
  for (const OptionEntry& option : command.options) {
    if (!isHelp(option)) text += entryText(option);
  }
  if (command.examples.empty()) return text;
  text += ".PP\n.nf\n";
  for (const std::string& example : command.examples) text += "  " + escaped(example) + "\n";
  return text + ".fi\n";
}

}  // namespace

std::string manualPage(const CommandEntry& program, const std::string& version) {
  std::string text = ".TH PELLOR 1 \"\" \"" + escaped(version) + "\" \"User Commands\"\n";
  text += section("NAME") + "pellor \\- keeps your list of friends\n";
  text += section("SYNOPSIS") + ".B pellor\n[\\fIOPTIONS\\fR] [\\fICOMMAND\\fR]\n";
  text += section("DESCRIPTION") + escaped(program.meaning) + "\n.PP\n.nf\n" + escapedLines(HelpOnWho) + ".fi\n";
  text += section("COMMANDS");
  for (const CommandEntry* command : allCommands(program)) text += commandText(*command);
  text += section("OPTIONS") + "They go with every command.\n" + entriesText(program.options);
  text += section("OPTIONS OF SERVICES") + entriesText(program.serviceOptions);
  text += section("EXIT STATUS") + "0: done. 1: failed. 2: wrong usage.\n";
  text += section("FILES") +
          ".TP\n\\fI$XDG_CONFIG_HOME/pellor/config.toml\\fR\nThe configuration: each option above, a dash before the "
          "service's name as a section.\n.TP\n\\fI$XDG_DATA_HOME/pellor\\fR\nThe list, its copies, and the folder of "
          "contacts.\n";
  return text;
}

}  // namespace pellor::cli
