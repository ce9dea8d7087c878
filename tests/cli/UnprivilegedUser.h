// Somebody who is no administrator, so that permissions count.
#pragma once

#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/cli/Program.h"

namespace pellor {

/// Runs `pellor` as the owner of a home folder whose permissions are changed as chmod takes them: for everybody to read
/// and for nobody to write, unless the test says otherwise. The folder belongs to the test again afterwards.
class UnprivilegedUser {
 public:
  explicit UnprivilegedUser(const Home& home, const char* permissions = "a+rX,a-w")
      : _home(home), _program((home / "pellor").string()) {
    std::filesystem::copy_file(PELLOR_PROGRAM, _program);
    own("65534");
    change(permissions);
  }
  ~UnprivilegedUser() {
    own("0");
    change("u+rwX");
  }

  ProgramResult run(const std::vector<std::string>& arguments) const {
    std::vector<std::string> command;
    if (::geteuid() == 0) command = {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
    command.push_back(_program);
    command.insert(command.end(), arguments.begin(), arguments.end());
    return Program(_home, command).finish();
  }

 private:
  void own(const char* user) const {
    if (::geteuid() == 0) Program(_home, {"chown", "-R", "-h", user, _home / ""}).finish();
  }
  void change(const char* permissions) const { Program(_home, {"chmod", "-R", permissions, _home / ""}).finish(); }

  const Home& _home;
  const std::string _program;
};

}  // namespace pellor
