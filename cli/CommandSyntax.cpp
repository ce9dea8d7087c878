#include "cli/CommandSyntax.h"

#include <CLI/CLI.hpp>
#include <utility>

namespace pellor::cli {
namespace {

// Of an argument the line of usage tells how often it is given, and whether it has to be.
CLI::Option& withoutType(CLI::Option* option) {
  if (option->get_positional()) option->option_text(" ");
  return *option;
}

}  // namespace

OptionSyntax OptionSyntax::required() const { return OptionSyntax(*_option->required()); }

OptionSyntax OptionSyntax::atLeast(int count) const { return OptionSyntax(*_option->expected(count, -1)); }

OptionSyntax OptionSyntax::typeName(const std::string& name) const { return OptionSyntax(*_option->type_name(name)); }

OptionSyntax OptionSyntax::excludes(OptionSyntax other) const {
  return OptionSyntax(*_option->excludes(other._option));
}

OptionSyntax OptionSyntax::needs(OptionSyntax other) const { return OptionSyntax(*_option->needs(other._option)); }

CommandSyntax CommandSyntax::command(const std::string& name, const std::string& meaning) const {
  return CommandSyntax(*_command->add_subcommand(name, meaning), *_isDry);
}

OptionSyntax CommandSyntax::option(const std::string& name, std::string& value, const std::string& meaning) const {
  return OptionSyntax(withoutType(_command->add_option(name, value, meaning)));
}

OptionSyntax CommandSyntax::option(const std::string& name, std::optional<std::string>& value,
                                   const std::string& meaning) const {
  return OptionSyntax(withoutType(_command->add_option(name, value, meaning)));
}

OptionSyntax CommandSyntax::option(const std::string& name, std::vector<std::string>& values,
                                   const std::string& meaning) const {
  return OptionSyntax(withoutType(_command->add_option(name, values, meaning)));
}

OptionSyntax CommandSyntax::option(const std::string& name, std::filesystem::path& value,
                                   const std::string& meaning) const {
  return OptionSyntax(withoutType(_command->add_option(name, value, meaning)));
}

OptionSyntax CommandSyntax::flag(const std::string& name, bool& isGiven, const std::string& meaning) const {
  return OptionSyntax(*_command->add_flag(name, isGiven, meaning));
}

OptionSyntax CommandSyntax::offersDryRun() const { return flag("--dry-run", *_isDry, "Only tell what would be done"); }

void CommandSyntax::mayHaveCommand() const { _command->require_subcommand(0, 1); }

void CommandSyntax::requireCommand() const { _command->require_subcommand(1); }

void CommandSyntax::whenGiven(std::function<void()> call) const { _command->callback(std::move(call)); }

bool CommandSyntax::isGiven() const { return _command->parsed(); }

}  // namespace pellor::cli
