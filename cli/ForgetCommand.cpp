// forget

#include <unistd.h>

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "cli/CommandError.h"
#include "cli/CommandLine.h"
#include "cli/CommandSyntax.h"
#include "cli/FriendSearch.h"
#include "cli/Keyboard.h"
#include "cli/NameMatch.h"
#include "cli/Output.h"
#include "cli/Session.h"
#include "cli/Steps.h"
#include "pellor/list/History.h"

namespace pellor::cli {
namespace {

struct ForgetArguments {
  std::string who;
  bool isConfirmed = false;
};

/// Somebody to be forgotten: a friend, or who else is known by a number, an address or a GUID.
struct Target {
  std::string who;
  std::optional<FriendAt> person;
  ForgetAnswer plan;
};

Target friendTarget(Session& session, const std::string& who) {
  FriendAt found = friendNamed(session, who);
  ForgetAnswer plan = session.list().planForget(found.person->id);
  return {who, std::move(found), std::move(plan)};
}

std::optional<Target> otherTarget(Session& session, const std::string& who) {
  ForgetAnswer plan = session.list().planForget(who);
  return plan ? std::optional(Target{who, std::nullopt, std::move(plan)}) : std::nullopt;
}

// A number may be a part of a friend's, but is meant as it stands.
Target targetNamed(Session& session, const std::string& who) {
  const bool isFriends = !FriendFinder(session).withDestination(who).empty();
  if (isPlainDestination(who) && !isFriends) {
    if (auto target = otherTarget(session, who)) return *std::move(target);
  }
  try {
    return friendTarget(session, who);
  } catch (const AmbiguousError&) {
    throw;
  } catch (const CommandError&) {
    if (auto target = otherTarget(session, who)) return *std::move(target);
    throw;
  }
}

std::string nameOf(const Target& target) {
  if (target.person) return cli::nameOf(*target.person->person);
  return target.plan.names.empty() ? printable(target.who) : printable(target.plan.names.front());
}

/// What is left of the person, or may be.
std::vector<KeptTrace> keptOf(Session& session, const Target& target, const std::vector<KeptTrace>& kept) {
  std::vector<KeptTrace> all = kept;
  FriendFinder friends(session);
  for (const std::string& destination : target.plan.destinations) {
    for (const FriendAt& other : friends.withDestination(destination)) {
      if (std::ranges::find(target.plan.friends, other.person->id) != target.plan.friends.end()) continue;
      all.push_back({destination, cli::nameOf(*other.person) + " (" + textOf(other.place) + ") has it too"});
    }
  }
  return all;
}

Json jsonOf(const Target& target, const std::vector<std::string>& found, const std::vector<KeptTrace>& kept,
            bool isDone) {
  Json left = Json::array();
  for (const KeptTrace& each : kept) left.push_back({{"where", each.where}, {"why", each.reason}});
  return {{"isDone", isDone},
          {"names", target.plan.names},
          {"destinations", target.plan.destinations},
          {"guids", target.plan.guids},
          {"friends", target.plan.friends.size()},
          {"isInHistory", target.plan.isInHistory},
          {"found", found},
          {"kept", std::move(left)}};
}

std::string textOf(const Target& target, const std::vector<std::string>& found, const std::vector<KeptTrace>& kept,
                   bool isDone) {
  std::string text = (isDone ? "forgot " : "would forget ") + nameOf(target);
  if (target.person) text += " (" + cli::textOf(target.person->place) + ")";
  text += "\n";
  if (target.plan.friends.size() > 1)
    text += "from the list: " + std::to_string(target.plan.friends.size()) + " friends\n";
  if (target.plan.isInHistory) text += "from the history\n";
  for (const std::string& each : found) text += "from " + each + "\n";
  for (const KeptTrace& each : kept) text += "still in " + printable(each.where) + ": " + printable(each.reason) + "\n";
  return text;
}

void answerForgotten(Session& session, const Target& target, const std::vector<std::string>& found,
                     const std::vector<KeptTrace>& kept, bool isDone) {
  const std::vector<KeptTrace> all = keptOf(session, target, kept);
  session.answer([&] { return textOf(target, found, all, isDone); },
                 [&] { return jsonOf(target, found, all, isDone); });
}

void requireConfirmation(Session& session, const Target& target) {
  if (session.options().json || ::isatty(STDIN_FILENO) != 1 || ::isatty(STDERR_FILENO) != 1)
    throw UsageError("what is forgotten cannot be taken back: say --yes, or see what would go by --dry-run");
  writeErrorText(readable(textOf(target, target.plan.found, keptOf(session, target, {}), false)));
  const Keyboard keyboard;
  writeErrorText("It cannot be taken back. Forget? [y/N] ");
  const auto key = keyboard.readKey();
  writeErrorText("\n");
  if (key != 'y' && key != 'Y') throw CommandError("nobody was forgotten");
}

std::string refusalOf(const Target& target, const Refusal& refusal) { return refusalText(refusal, nameOf(target)); }

void forget(Session& session, const ForgetArguments& arguments) {
  if (!session.isDry()) session.requireWritableStore();
  const Target target = targetNamed(session, arguments.who);
  if (target.plan.refusal) throw CommandError(refusalOf(target, *target.plan.refusal));
  if (session.isDry()) return answerForgotten(session, target, target.plan.found, {}, false);
  if (!arguments.isConfirmed) requireConfirmation(session, target);
  // What was looked up for this command is remembered first, and then forgotten.
  session.settle();
  const auto ended = std::make_shared<std::optional<Forgotten>>();
  const auto end = [ended](const Forgotten& forgotten) { *ended = forgotten; };
  FriendList& list = session.list();
  const ForgetAnswer answer =
      target.person ? list.forget(target.person->person->id, end) : list.forget(target.who, end);
  if (answer.refusal) throw CommandError(refusalOf(target, *answer.refusal));
  session.commit();
  if (!*ended) throw CommandError("the list has forgotten " + nameOf(target) + ", its files perhaps not: forget again");
  if ((*ended)->refusal) throw CommandError(refusalOf(target, *(*ended)->refusal));
  answerForgotten(session, target, (*ended)->erased, (*ended)->kept, true);
}

}  // namespace

void addForgetCommand(CommandSyntax program, Command& chosen) {
  const auto command = program.command("forget", "Remove a friend and all that is kept of the person; for good");
  command.offersDryRun();
  const auto arguments = std::make_shared<ForgetArguments>();
  command
      .option("WHO", arguments->who, "The friend; or the number, address or GUID of somebody who is no friend any more")
      .required();
  command.flag("--yes", arguments->isConfirmed, "Do not ask");
  command.whenGiven([&chosen, arguments] { chosen = [arguments](Session& session) { forget(session, *arguments); }; });
}

}  // namespace pellor::cli
