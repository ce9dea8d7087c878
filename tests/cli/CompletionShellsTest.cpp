// What shells put on the command line for names that other people wrote. Nothing of a name may be run.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "tests/cli/Story.h"

namespace pellor {
namespace {

using testing::ElementsAreArray;

const std::vector<std::string> Names = {"Ann Lee",
                                        "Bob 'The Boss' Ray",
                                        "Cy \"Q\" Dot",
                                        "Eve $(touch pwned)",
                                        "Fay `touch pwned`",
                                        "Gus; touch pwned #",
                                        "Hal'; touch pwned; '",
                                        "Ida\"; touch pwned; \"",
                                        "Jo: in=out @home",
                                        "Kim\\back \\$(touch pwned)",
                                        "Lou [br]* ~x !y %z {a,b} <c> |d &",
                                        "Zoë Öztürk",
                                        "Ned Away"};

bool isInstalled(const std::string& shell) {
  if (std::filesystem::exists("/usr/bin/" + shell) || std::filesystem::exists("/bin/" + shell)) return true;
  std::cerr << shell << " is not installed: its completions are left out\n";
  return false;
}

class CompletionShells : public testing::Test {
 protected:
  CompletionShells() {
    Arguments add = {"add"};
    for (std::size_t index = 0; index < Names.size(); ++index) {
      const std::string guid = "guid-" + std::to_string(index), name = escaped(Names[index]);
      _home.addContact(guid, name, "N:;" + name + ";;;\nTEL:03055501" + std::to_string(10 + index) + "\n");
      add.push_back(guid);
    }
    EXPECT_EQ(pellor(_home, add).errors, "");
  }
  ~CompletionShells() override { EXPECT_FALSE(std::filesystem::exists(_home / "pwned")) << "part of a name was run"; }

  /// The lines that a script prints, run in the home folder with these arguments.
  std::vector<std::string> run(const Arguments& shell, const std::string& script, const Arguments& arguments) const {
    Arguments command = {"/usr/bin/env", "-C", (_home / "").string(), "LC_ALL=C.UTF-8"};
    command.insert(command.end(), shell.begin(), shell.end());
    command.push_back(script);
    command.insert(command.end(), arguments.begin(), arguments.end());
    const ProgramResult result = Program(_home, command).finish();
    EXPECT_EQ(result.errors, "");
    return linesOf(result.output);
  }

  /// The beginning of each name behind each kind of quote.
  static Arguments begunLines() {
    Arguments lines;
    for (const std::string& name : Names) {
      for (const char* quote : {"", "'", "\""})
        lines.push_back(std::string("pellor remove ") + quote + name.substr(0, 2));
    }
    for (const char* line :
         {"pellor --json  remove 'Ann Lee' Eve\\ ", "pellor remove \"Ned A", "pellor remove 'Eve $("})
      lines.emplace_back(line);
    return lines;
  }
  /// The words that each of those lines becomes, each between < and >.
  static std::vector<std::string> expectedWords() {
    std::vector<std::string> lines;
    for (const std::string& name : Names) lines.insert(lines.end(), 3, "<remove><" + name + ">");
    lines.insert(lines.end(),
                 {"<--json><remove><Ann Lee><" + Names[3] + ">", "<remove><Ned Away>", "<remove><" + Names[3] + ">"});
    return lines;
  }

 private:
  static std::string escaped(const std::string& text) {
    std::string result;
    for (const char c : text) {
      if (std::string(";,\\").find(c) != std::string::npos) result += '\\';
      result += c;
    }
    return result;
  }

  const Home _home;
};

constexpr const char* ProgramAndWords = "pellor() { '" PELLOR_PROGRAM
                                        "' \"$@\"; }\n"
                                        "words() { printf '<%s>' \"$@\"; printf '\\n'; }\n";

TEST_F(CompletionShells, BashPutsTheNameAsOneWord) {
  const std::string script = R"SHELL(
eval "$(pellor completion bash)"
for line in "$@"; do
  COMP_LINE=$line COMP_POINT=${#line}
  _pellor
  begun=${line##*[\ \"\']}
  quote=
  for each in \" \'; do [[ ${line//[^$each]/} == $each ]] && quote=$each; done
  [[ -n $quote ]] && begun=${line##*"$quote"}
  [[ $begun == '' ]] && begun='Eve\ '
  eval "words ${line:7:${#line} - 7 - ${#begun}}${COMPREPLY[0]}$quote"
done
)SHELL";
  Arguments arguments = begunLines();
  arguments.insert(arguments.begin(), "bash");
  EXPECT_THAT(run({"/bin/bash", "-c"}, ProgramAndWords + script, arguments), ElementsAreArray(expectedWords()));
}

// The line is run by the shell that completed it, with another command in front.
TEST_F(CompletionShells, ZshPutsTheNameAsOneWord) {
  if (!isInstalled("zsh")) return;
  const std::string script = R"SHELL(
zmodload zsh/zpty
zpty shell "zsh -f -i"
zpty -w shell "PROMPT=; autoload -Uz compinit; compinit -D; $(functions pellor); source <(pellor completion zsh)
words() { printf '@''@'; printf '<%s>' \"\$@\"; printf '#''#' }
show() { BUFFER=\"words \${BUFFER#pellor}\"; zle .accept-line }; zle -N show; bindkey '^G' show
unsetopt zle_bracketed_paste; print rea''dy"
zpty -r shell seen '*ready*'
for line in "$@"; do
  zpty -w -n shell "$line"$'\t\a'
  zpty -r shell seen '*@@*##*'
  print -r -- "${${seen##*@@}%%##*}"
done
zpty -d shell
)SHELL";
  Arguments arguments = begunLines();
  arguments.insert(arguments.begin(), "zsh");
  EXPECT_THAT(run({"zsh", "-fc"}, ProgramAndWords + script, arguments), ElementsAreArray(expectedWords()));
}

// The shell itself quotes what it is told.
TEST_F(CompletionShells, FishIsToldTheName) {
  if (!isInstalled("fish")) return;
  const std::string script = "function pellor; '" PELLOR_PROGRAM
                             "' $argv; end; pellor completion fish | source; "
                             "for line in $argv; complete -C \"$line\"; end";
  std::vector<std::string> expected;
  for (const std::string& name : Names) expected.insert(expected.end(), 3, name);
  expected.insert(expected.end(), {Names[3], "Ned Away", Names[3]});
  EXPECT_THAT(run({"fish", "--private", "-c"}, script, begunLines()), ElementsAreArray(expected));
}

}  // namespace
}  // namespace pellor
