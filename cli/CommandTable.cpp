#include "cli/CommandTable.h"

#include <CLI/CLI.hpp>
#include <string_view>

#include "cli/Examples.h"

namespace pellor::cli {
namespace {

std::vector<std::string> partsOf(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::size_t first = 0;
  for (std::size_t end = 0; (end = text.find(separator, first)) != std::string::npos; first = end + 1) {
    parts.push_back(text.substr(first, end - first));
  }
  parts.push_back(text.substr(first));
  return parts;
}

OptionEntry entryOf(const CLI::Option& option) {
  OptionEntry entry;
  entry.meaning = option.get_description();
  entry.isRequired = option.get_required();
  if (!option.nonpositional()) {
    entry.names = {option.get_name(true)};
    entry.isRepeated = option.get_items_expected_max() > 1;
    return entry;
  }
  for (const std::string& name : option.get_snames()) entry.names.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) entry.names.push_back("--" + name);
  if (option.get_items_expected_max() == 0) return entry;
  entry.value = option.get_type_name();
  if (entry.value.find('|') != std::string::npos) entry.choices = partsOf(entry.value, '|');
  return entry;
}

CommandEntry entryOf(const CLI::App& command, const std::string& name) {
  CommandEntry entry;
  entry.name = name;
  entry.meaning = command.get_description();
  entry.examples = examplesOf(name);
  for (const CLI::Option* option : command.get_options()) {
    const bool isOfService = option->get_group().empty();
    auto& group = !option->nonpositional() ? entry.arguments : isOfService ? entry.serviceOptions : entry.options;
    group.push_back(entryOf(*option));
  }
  for (const CLI::App* below : command.get_subcommands([](const CLI::App*) { return true; })) {
    entry.commands.push_back(entryOf(*below, name.empty() ? below->get_name() : name + " " + below->get_name()));
  }
  return entry;
}

void collect(const CommandEntry& command, std::vector<const CommandEntry*>& all) {
  for (const CommandEntry& below : command.commands) {
    all.push_back(&below);
    collect(below, all);
  }
}

}  // namespace

CommandEntry commandTable(const CLI::App& program) { return entryOf(program, ""); }

std::string synopsisOf(const CommandEntry& command) {
  std::string text = command.name.empty() ? "pellor [OPTIONS]" : "pellor " + command.name + " [OPTIONS]";
  for (const OptionEntry& argument : command.arguments) {
    const std::string name = argument.names.front() + (argument.isRepeated ? "..." : "");
    text += argument.isRequired ? " " + name : " [" + name + "]";
  }
  return command.commands.empty() ? text : text + " [COMMAND]";
}

std::vector<const CommandEntry*> allCommands(const CommandEntry& program) {
  std::vector<const CommandEntry*> all;
  collect(program, all);
  return all;
}

}  // namespace pellor::cli
