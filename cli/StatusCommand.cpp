// status

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "cli/CommandLine.h"
#include "cli/CommandSyntax.h"
#include "cli/FriendSearch.h"
#include "cli/JsonForms.h"
#include "cli/Output.h"
#include "cli/StatusText.h"
#include "pellor/runtime/WallClock.h"

namespace pellor::cli {
namespace {

// In seconds; the library gives a query up after that time, too.
constexpr double LongestAnswer = 30;

struct StatusArguments {
  std::vector<std::string> who;
  bool requery = false;
  bool hasPhotos = false;
};

struct FriendStatus {
  FriendAt found;
  Reachability reachability;
};

struct Statuses {
  std::optional<std::string> service;
  bool areChecked;
  std::vector<FriendStatus> friends;
};

void requery(Session& session, const std::vector<FriendAt>& friends, bool asksForAll) {
  if (asksForAll ? queryAll(session, LongestAnswer) : query(session, friends, LongestAnswer)) return;
  throw CommandError("the messaging service " + *session.list().service() + " did not answer within " +
                     std::to_string(static_cast<int>(LongestAnswer)) + " seconds: try again later");
}

Statuses statusesOf(FriendList& list, const std::vector<FriendAt>& friends) {
  Statuses statuses{list.service(), list.checksReachability(), {}};
  for (const FriendAt& found : friends) statuses.friends.push_back({found, list.reachability(found.person->id)});
  return statuses;
}

std::string textOf(const FriendStatus& friendStatus) {
  const auto& [found, reachability] = friendStatus;
  std::string text = statusMark(reachability.status) + " " + nameOf(*found.person) + " (" + cli::textOf(found.place) +
                     "): " + statusText(reachability.status);
  std::string separator = " at ";
  for (const std::string& destination : reachability.reachable) {
    text += std::exchange(separator, ", ") + shownDestination(destination);
  }
  const std::string age = ageText(reachability);
  return text + (age.empty() ? "" : " (" + age + ")") + "\n";
}

std::string textOf(const Statuses& statuses) {
  std::string text;
  if (!statuses.areChecked) {
    text = std::string("not checked, so everybody counts as reachable: ") +
           (statuses.service ? "the defaults of this computer say so" : "no messaging service is named (--service)") +
           "\n";
  }
  for (const FriendStatus& status : statuses.friends) text += textOf(status);
  return text;
}

Json jsonOf(const FriendStatus& status) {
  Json json = cli::jsonOf(status.found);
  addStatus(json, status.reachability);
  json["reachableDestinations"] = status.reachability.reachable;
  return json;
}

Json jsonOf(const Statuses& statuses) {
  Json friends = Json::array();
  for (const FriendStatus& status : statuses.friends) friends.push_back(jsonOf(status));
  return {{"service", cli::jsonOf(statuses.service)}, {"areChecked", statuses.areChecked}, {"friends", friends}};
}

void status(Session& session, const StatusArguments& arguments) {
  FriendList& list = session.list();
  // What the contacts changed since the last time belongs to the question.
  session.settle();
  const bool asksForAll = arguments.who.empty();
  const auto friends = asksForAll ? allFriends(list.snapshot()) : friendsNamed(session, arguments.who);
  const bool isAsked = arguments.requery && list.checksReachability();
  const double start = wallClockNow();
  if (isAsked) requery(session, friends, asksForAll);
  const Statuses statuses = statusesOf(list, friends);
  session.answer([&] { return textOf(statuses); },
                 [&] { return withPhotos(session, jsonOf(statuses), arguments.hasPhotos); });
  if (isAsked) requireAnswersSince(start, session, friends);
}

}  // namespace

void addStatusCommand(CommandSyntax program, Command& chosen) {
  const auto command = program.command("status", "Tell which friends can receive messages (+ yes, - no, ? not known)");
  const auto arguments = std::make_shared<StatusArguments>();
  command.option("WHO", arguments->who, "The friends; without any all of them");
  command.flag("--photos", arguments->hasPhotos, PhotosMeaning);
  command.flag("--requery", arguments->requery, "Ask the messaging service, and wait for its answer");
  command.whenGiven([&chosen, arguments] { chosen = [arguments](Session& session) { status(session, *arguments); }; });
}

}  // namespace pellor::cli
