// Runs a program of the build in a home folder of the test's own.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "pellor/linux/files/internal/PrivateFiles.h"
#include "tests/linux/TemporaryFolder.h"

namespace pellor {

/// A home folder with the user's folders in it, and nothing else of the user's environment.
class Home {
 public:
  Home();

  std::filesystem::path dataFolder() const { return _folder / "data/pellor"; }
  std::filesystem::path contactsFolder() const { return dataFolder() / "contacts"; }
  std::filesystem::path storeFile() const { return dataFolder() / "preferences.sqlite"; }
  std::filesystem::path operator/(std::string_view name) const { return _folder / name; }

  /// Puts a contact into the folder, as a synchroniser does: whole, in one step. `lines` are further lines of the card.
  void addContact(const std::string& guid, const std::string& name, const std::string& lines) const;

  std::vector<std::string> environment() const;
  /// Adds "NAME=value" to the environment, in place of what it has of that name.
  void setVariable(std::string variable) { _variables.push_back(std::move(variable)); }

 private:
  const TemporaryFolder _folder;
  std::vector<std::string> _variables;
};

/// What a program that has ended left.
struct ProgramResult {
  int exitCode = 0;  ///< below zero: the signal that ended it
  std::string output;
  std::string errors;
};

/// A running program, killed at the end of the object if it still runs.
class Program {
 public:
  /// Descriptors that take the place of the pipes for the standard streams.
  struct Redirection {
    int output = -1;
    int errors = -1;
    int input = -1;
  };

  Program(const Home& home, const std::vector<std::string>& command, Redirection redirection);
  Program(const Home& home, const std::vector<std::string>& command) : Program(home, command, Redirection{}) {}
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  /// The next line, without its end. Fails the test when the program has ended, or says nothing for much too long.
  std::string readLine();
  std::string readErrorLine();
  void write(const std::string& text) const;
  void closeInput() { _input.close(); }
  void closeOutput() { _output.descriptor.close(); }
  void sendSignal(int signal) const;

  /// Waits for the end.
  ProgramResult finish();

 private:
  struct Stream {
    FileDescriptor descriptor;
    std::string unread;
  };
  static bool readMore(Stream& stream);
  static std::string lineOf(Stream& stream);

  pid_t _id = 0;
  FileDescriptor _input;
  Stream _output;
  Stream _errors;
};

/// The command line of `pellor`.
std::vector<std::string> pellorCommand(const std::vector<std::string>& arguments);

/// Runs `pellor` to its end.
ProgramResult pellor(const Home& home, const std::vector<std::string>& arguments);

std::vector<std::string> linesOf(const std::string& text);
std::vector<std::string> wordsOf(const std::string& text);

}  // namespace pellor
