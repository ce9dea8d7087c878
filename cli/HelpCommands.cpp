// help, completion, complete

#include <CLI/CLI.hpp>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "cli/CommandLine.h"
#include "cli/CommandTable.h"
#include "cli/Completions.h"
#include "cli/FriendSearch.h"
#include "cli/HelpTopics.h"
#include "cli/ManualPage.h"
#include "cli/Output.h"
#include "cli/Suggestion.h"
#include "pellor/linux/files/UserFolders.h"
#include "pellor/linux/text/TerminalText.h"

namespace pellor::cli {
namespace {

constexpr const char* ServicesTopic = "services";
constexpr const char* WhoTopic = "who";

const std::map<std::string, Shell> Shells = {{"bash", Shell::bash}, {"zsh", Shell::zsh}, {"fish", Shell::fish}};

bool isShown(const CLI::App* command) { return !command->get_group().empty(); }

/// The command of that name below another one. Throws UsageError when there is none.
const CLI::App& commandBelow(const CLI::App& command, const std::string& name) {
  std::vector<std::string> names;
  for (const CLI::App* below : command.get_subcommands(isShown)) {
    if (below->get_name() == name) return *below;
    names.push_back(below->get_name());
  }
  if (command.get_parent() == nullptr) names.insert(names.end(), {ServicesTopic, WhoTopic});
  throw UsageError("there is no help on " + printable(name) + didYouMean(name, names, " (see pellor help)"));
}

// The program's own help leaves them out, which would be most of it.
std::string helpOnServices(const CLI::App& program) {
  CLI::App services(
      "What the user's own services need. Each may stand in the configuration too: --mqtt-host is host in\n"
      "the section [mqtt]. \"pellor doctor\" tells how the chosen ones are.",
      program.get_name());
  services.set_help_flag();
  for (const CLI::Option* option : program.get_options()) {
    if (!option->nonpositional() || !option->get_group().empty()) continue;
    services.add_option("--" + option->get_lnames().front(), option->get_description())
        ->type_name(option->get_type_name());
  }
  return services.help();
}

std::string helpOn(const CLI::App& program, const std::vector<std::string>& topic) {
  if (topic == std::vector<std::string>{ServicesTopic}) return helpOnServices(program);
  if (topic == std::vector<std::string>{WhoTopic}) return HelpOnWho;
  const CLI::App* command = &program;
  std::string before;
  for (const std::string& name : topic) {
    before += (before.empty() ? "" : " ") + command->get_name();
    command = &commandBelow(*command, name);
  }
  // Of the command itself, not of the one on the command line.
  return command->get_formatter()->make_help(command, before + (before.empty() ? "" : " ") + command->get_name(),
                                             CLI::AppFormatMode::Normal);
}

// A store that is elsewhere may be slow, and one that is not there yet is not made for this.
std::vector<std::string> friendNames(Session& session) {
  namespace fs = std::filesystem;
  const Configuration& configuration = session.options().configuration;
  std::error_code ignored;
  const fs::path data = configuration.path("data").value_or(UserFolders::find().data);
  if (configuration.choosesServices() || !fs::exists(data / "preferences.sqlite", ignored)) return {};
  session.open();
  std::vector<std::string> names;
  for (const FriendAt& each : allFriends(session.list().snapshot())) {
    const Friend& person = *each.person;
    const std::string name =
        person.name.empty() ? FriendList::shownNumber(primaryDestination(person).value_or("")) : person.name;
    // A line of the answer is a name; what cannot be seen cannot be typed either.
    if (!name.empty()) names.push_back(visibleText(name));
  }
  return names;
}

void complete(Session& session, const CommandEntry& program, const std::vector<std::string>& words) {
  session.answerText([&] {
    std::string text;
    for (const Completion& each : completionsOf(program, words, [&] { return friendNames(session); })) {
      text += each.word + (each.meaning.empty() ? "" : "\t" + each.meaning) + "\n";
    }
    return text;
  });
}

void addHelp(CLI::App& program, ParsedArguments& parsed) {
  auto* command = program.add_subcommand("help", "Explain a command, the options of services, or how WHO is given");
  const auto topic = std::make_shared<std::vector<std::string>>();
  const auto isManual = std::make_shared<bool>(false);
  command->add_option("TOPIC", *topic, "A command, services or who")->expected(0, -1);
  command->add_flag("--man", *isManual, "Print the manual page: pellor help --man | man -l -");
  command->callback([&program, &parsed, topic, isManual] {
    parsed.text = *isManual ? manualPage(commandTable(program), program.version()) : readable(helpOn(program, *topic));
  });
}

void addCompletion(CLI::App& program, ParsedArguments& parsed) {
  auto* command = program.add_subcommand("completion", "Print what makes a shell complete command lines");
  const auto shell = std::make_shared<std::string>();
  command->add_option("SHELL", *shell, "bash, zsh or fish")->required();
  command->callback([&parsed, shell] {
    const auto found = Shells.find(*shell);
    if (found == Shells.end()) throw UsageError("SHELL is bash, zsh or fish, not " + *shell);
    parsed.text = completionScript(found->second);
  });
}

}  // namespace

void addHelpCommands(CLI::App& program, ParsedArguments& parsed) {
  addHelp(program, parsed);
  addCompletion(program, parsed);
}

void chooseCompletion(const CLI::App& program, CommandLine& line, const std::vector<std::string>& words) {
  line.opensStore = false;
  line.options.noticesChanges = false;
  line.command = [table = commandTable(program), words](Session& session) { complete(session, table, words); };
}

}  // namespace pellor::cli
