// How a command is written: its name, its options and its arguments. CLI11 reads them and stays behind this, because
// the compiler takes longer for its headers than for a group of commands.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace pellor::cli {

/// An option of a command, or an argument that goes by its place. A handle: copies stand for the same option, as long
/// as the program's syntax is there.
class OptionSyntax {
 public:
  explicit OptionSyntax(CLI::Option& option) : _option(&option) {}

  /// A command line without it is a wrong use.
  OptionSyntax required() const;
  /// It takes so many values, or any larger number.
  OptionSyntax atLeast(int count) const;
  /// What help calls its value: "FILE".
  OptionSyntax typeName(const std::string& name) const;
  /// It cannot be given together with that one.
  OptionSyntax excludes(OptionSyntax other) const;
  /// It cannot be given without that one.
  OptionSyntax needs(OptionSyntax other) const;

 private:
  CLI::Option* _option;
};

/// A command, or the program itself. A handle as an option's is.
class CommandSyntax {
 public:
  /// `isDry` is set by --dry-run of the commands that offer it, and lives as long as the syntax.
  CommandSyntax(CLI::App& command, bool& isDry) : _command(&command), _isDry(&isDry) {}

  /// Adds a command below this one.
  CommandSyntax command(const std::string& name, const std::string& meaning) const;

  /// Adds an option ("--name") or an argument ("WHO"). `value` gets what is given and has to live until the command
  /// line was read; without the option it stays as it is.
  OptionSyntax option(const std::string& name, std::string& value, const std::string& meaning) const;
  OptionSyntax option(const std::string& name, std::optional<std::string>& value, const std::string& meaning) const;
  OptionSyntax option(const std::string& name, std::vector<std::string>& values, const std::string& meaning) const;
  OptionSyntax option(const std::string& name, std::filesystem::path& value, const std::string& meaning) const;
  /// Adds an option without a value.
  OptionSyntax flag(const std::string& name, bool& isGiven, const std::string& meaning) const;
  /// Adds --dry-run, which every command has that changes something.
  OptionSyntax offersDryRun() const;

  /// One of the commands below it may follow.
  void mayHaveCommand() const;
  /// One of the commands below it has to follow.
  void requireCommand() const;

  /// Called once the command line was read, if the command is on it, after the calls for the commands below it.
  void whenGiven(std::function<void()> call) const;
  /// Whether the command is on the command line that was read.
  bool isGiven() const;

 private:
  CLI::App* _command;
  bool* _isDry;
};

}  // namespace pellor::cli
