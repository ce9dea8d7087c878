// What the word under the cursor of a shell may become.
#pragma once

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "cli/CommandTable.h"

namespace pellor::cli {

struct Completion {
  std::string word;
  std::string meaning;  ///< empty for a value and for a friend
};

/// What the last of `words` may become, those before it being the command line without the program's name: commands,
/// options, values of options, and names of friends, which `friendNames` tells when they are wanted. None where a file
/// or a free text is wanted.
std::vector<Completion> completionsOf(const CommandEntry& program, std::span<const std::string> words,
                                      const std::function<std::vector<std::string>()>& friendNames);

enum class Shell { bash, zsh, fish };

/// What a user gives to the shell: it asks `pellor complete`, and offers files where that has nothing.
std::string completionScript(Shell shell);

}  // namespace pellor::cli
