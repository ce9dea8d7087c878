#include "cli/Completions.h"

#include <algorithm>
#include <utility>

namespace pellor::cli {
namespace {

// Names are other people's text: none of them may end a quote, or hold what the shell would run. The line is read here
// because the shell gives words with their quotes and breaks them at ":", "=" and "@" too.
constexpr const char* BashScript = R"SHELL(# bash completion for pellor
_pellor() {
  local line=${COMP_LINE:0:COMP_POINT} quote= typed= word= before= found letter index
  local -a words=()
  for ((index = 0; index < ${#line}; index++)); do
    letter=${line:index:1}
    if [[ -z $quote && $letter == [[:space:]] ]]; then
      [[ -n $typed ]] && words+=("$word")
      typed= word=
      continue
    fi
    typed+=$letter
    if [[ $letter == \\ && $quote != \' ]]; then
      ((++index))
      letter=${line:index:1}
      typed+=$letter word+=$letter
    elif [[ -n $quote && $letter == "$quote" ]]; then
      quote=
    elif [[ -z $quote && $letter == [\"\'] ]]; then
      quote=$letter
    else
      word+=$letter
    fi
  done
  [[ -z $quote && $typed == *[:=@]* ]] && before=${typed%"${typed##*[:=@]}"}
  COMPREPLY=()
  while IFS= read -r found; do
    found=${found%%$'\t'*}
    case $quote in
      \') found=${found//\'/\'\\\'\'} ;;
      \")
        found=${found//\\/\\\\}
        found=${found//\"/\\\"}
        found=${found//\$/\\\$}
        found=${found//\`/\\\`}
        found=${found//!/\"\'!\'\"}
        ;;
      *) printf -v found %q "$found" ;;
    esac
    COMPREPLY+=("${found#"$before"}")
  done < <(pellor complete -- "${words[@]:1}" "$word" 2>/dev/null)
}
complete -o default -F _pellor pellor
)SHELL";

constexpr const char* ZshScript = R"SHELL(#compdef pellor
_pellor() {
  local -a candidates
  local word meaning
  while IFS=$'\t' read -r word meaning; do
    word=${word//\\/\\\\}
    candidates+=("${word//:/\\:}${meaning:+:$meaning}")
  done < <(pellor complete -- "${(@Q)words[2,CURRENT-1]}" "${(Q)PREFIX}" 2>/dev/null)
  if (( $#candidates )); then _describe pellor candidates; else _files; fi
}
if [[ $funcstack[1] == _pellor ]]; then _pellor; else compdef _pellor pellor; fi
)SHELL";

constexpr const char* FishScript = R"SHELL(# fish completion for pellor
function __pellor_complete
  set -l typed (commandline -ct)
  # A quote that is not closed yet is closed to read the word.
  set -l word (string unescape -- $typed; or string unescape -- $typed"'"; or string unescape -- $typed'"')
  set -l found (pellor complete -- (commandline -opc)[2..] "$word" 2>/dev/null)
  if set -q found[1]
    printf '%s\n' $found
  else
    __fish_complete_path (commandline -ct)
  end
end
complete -c pellor -f -a '(__pellor_complete)'
)SHELL";

using Options = std::vector<const OptionEntry*>;

void append(Options& options, const std::vector<OptionEntry>& more) {
  for (const OptionEntry& option : more) options.push_back(&option);
}

/// The options that may be given to a command: its own, and those of the program.
Options optionsOf(const CommandEntry& program, const CommandEntry& command) {
  Options options;
  append(options, command.options);
  if (&command == &program) return options;
  append(options, program.options);
  return options;
}

const OptionEntry* optionNamed(const CommandEntry& program, const CommandEntry& command, const std::string& name) {
  Options options = optionsOf(program, command);
  append(options, program.serviceOptions);
  const auto found =
      std::ranges::find_if(options, [&](const OptionEntry* option) { return std::ranges::count(option->names, name); });
  return found == options.end() ? nullptr : *found;
}

std::string lastWord(const std::string& name) { return name.substr(name.rfind(' ') + 1); }

const CommandEntry* below(const CommandEntry& command, const std::string& word) {
  const auto found = std::ranges::find(command.commands, word, [](const auto& each) { return lastWord(each.name); });
  return found == command.commands.end() ? nullptr : &*found;
}

/// How far a command line has come.
struct Position {
  const CommandEntry* command;
  const OptionEntry* openOption = nullptr;  // whose value is next
  std::size_t arguments = 0;                // that went by their place
};

Position positionAfter(const CommandEntry& program, std::span<const std::string> words) {
  Position position{&program};
  for (const std::string& word : words) {
    if (std::exchange(position.openOption, nullptr)) continue;
    if (word.starts_with('-')) {
      const OptionEntry* option = optionNamed(program, *position.command, word);
      if (option && !option->value.empty()) position.openOption = option;
    } else if (const CommandEntry* command = below(*position.command, word)) {
      position.command = command;
    } else {
      ++position.arguments;
    }
  }
  return position;
}

// Who is no friend yet is added, and a contact may be one.
bool wantsFriend(const Position& position) {
  const auto& arguments = position.command->arguments;
  if (arguments.empty() || arguments.front().names.front() != "WHO") return false;
  if (position.command->name == "add" || position.command->name == "allow") return false;
  return !position.command->name.starts_with("favorites") && (position.arguments == 0 || arguments.front().isRepeated);
}

std::vector<Completion> candidates(const CommandEntry& program, const Position& position, bool wantsOption,
                                   const std::function<std::vector<std::string>()>& friendNames) {
  std::vector<Completion> all;
  if (position.openOption) {
    for (const std::string& choice : position.openOption->choices) all.push_back({choice, ""});
    return all;
  }
  if (wantsOption) {
    for (const OptionEntry* option : optionsOf(program, *position.command)) {
      all.push_back({option->names.back(), option->meaning});
    }
    return all;
  }
  for (const CommandEntry& command : position.command->commands)
    all.push_back({lastWord(command.name), command.meaning});
  if (!wantsFriend(position)) return all;
  for (const std::string& name : friendNames()) all.push_back({name, ""});
  return all;
}

}  // namespace

std::vector<Completion> completionsOf(const CommandEntry& program, std::span<const std::string> words,
                                      const std::function<std::vector<std::string>()>& friendNames) {
  if (words.empty()) return {};
  const Position position = positionAfter(program, words.first(words.size() - 1));
  const std::string& begun = words.back();
  std::vector<Completion> all = candidates(program, position, begun.starts_with('-'), friendNames);
  std::erase_if(all, [&](const Completion& candidate) { return !candidate.word.starts_with(begun); });
  return all;
}

std::string completionScript(Shell shell) {
  if (shell == Shell::bash) return BashScript;
  return shell == Shell::zsh ? ZshScript : FishScript;
}

}  // namespace pellor::cli
