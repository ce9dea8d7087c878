// status

#include <CLI/CLI.hpp>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "cli/CommandLine.h"
#include "cli/FriendSearch.h"
#include "cli/JsonForms.h"
#include "cli/Output.h"
#include "cli/StatusText.h"
#include "pellor/friends/PLDestination.h"
#include "pellor/friends/PLDestinationStatus.h"
#include "pellor/runtime/Timer.h"

namespace pellor::cli {
namespace {

// In seconds; the library gives a query up after that time, too.
constexpr double LongestAnswer = 30;

struct StatusArguments {
  std::vector<std::string> who;
  bool requery = false;
};

struct FriendStatus {
  FriendAt found;
  DestinationStatus status;
  DestinationSet reachable;
};

struct Statuses {
  std::optional<std::string> service;
  bool areChecked;
  std::vector<FriendStatus> friends;
};

/// Waits for the answers to queries.
class AnswerWait {
 public:
  /// From now on answers count. `destinations` are the canonical ones that are about to be asked for.
  AnswerWait(Process& process, DestinationSet destinations)
      : _process(process),
        _unanswered(std::move(destinations)),
        _observation(process.notificationCenter().addObserver(
            std::string(PLFriendsManagerDestinationStatusUpdatedNotification),
            [this](const Notification& notification) { answered(notification); })) {}

  /// Whether all were answered in time.
  bool wait() {
    if (_unanswered.empty()) return true;
    const auto limit = Timer::after(_process.mainQueue(), LongestAnswer, [this] { _process.mainQueue().stop(); });
    _process.mainQueue().run();
    return _unanswered.empty();
  }

 private:
  void answered(const Notification& notification) {
    const auto* userInfo = notification.userInfoAs<Dictionary>();
    const Value* statuses =
        userInfo ? valueForKey(*userInfo, PLFriendsManagerDestinationStatusUpdatedDestinationsKey) : nullptr;
    if (!statuses || !statuses->dictionary()) return;
    for (const auto& [destination, status] : *statuses->dictionary()) _unanswered.erase(destination);
    if (_unanswered.empty()) _process.mainQueue().stop();
  }

  Process& _process;
  DestinationSet _unanswered;
  const std::shared_ptr<Observation> _observation;
};

// No person at all is not reachable, unless nothing is checked.
bool areStatusesChecked(PLFriendsManager& manager) {
  return manager.statusForPersonRequery(nullptr, false) != DestinationStatus::valid;
}

DestinationSet destinationsOf(const std::vector<FriendAt>& friends) {
  DestinationSet destinations;
  for (const FriendAt& found : friends) {
    if (const auto values = found.person->allValues()) destinations.insert(values->begin(), values->end());
  }
  return destinations;
}

void requery(Session& session, const std::vector<FriendAt>& friends, bool asksForAll) {
  PLFriendsManager& manager = session.manager();
  AnswerWait answers(session.process(), destinationsOf(friends));
  if (asksForAll) {
    manager.refreshDestinationStatuses();
  } else {
    for (const FriendAt& found : friends) manager.statusForPersonRequery(found.person, true);
  }
  if (answers.wait()) return;
  throw CommandError("the messaging service " + *manager.serviceName() + " did not answer within " +
                     std::to_string(static_cast<int>(LongestAnswer)) + " seconds: try again later");
}

Statuses statusesOf(PLFriendsManager& manager, const std::vector<FriendAt>& friends) {
  Statuses statuses{manager.serviceName(), areStatusesChecked(manager), {}};
  for (const FriendAt& found : friends) {
    statuses.friends.push_back({found, manager.statusForPersonRequery(found.person, false),
                                manager.reachableDestinationsForPerson(found.person)});
  }
  return statuses;
}

std::string textOf(const FriendStatus& status) {
  std::string text = statusMark(status.status) + " " + nameOf(*status.found.person) + " (" +
                     textOf(status.found.place) + "): " + statusText(status.status);
  std::string separator = " at ";
  for (const std::string& destination : status.reachable) {
    text += std::exchange(separator, ", ") + shownDestination(destination);
  }
  return text + "\n";
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
  Json json = jsonOf(status.found);
  json["status"] = destinationStatusName(status.status);
  json["reachableDestinations"] = status.reachable;
  return json;
}

Json jsonOf(const Statuses& statuses) {
  Json friends = Json::array();
  for (const FriendStatus& status : statuses.friends) friends.push_back(jsonOf(status));
  return {{"service", cli::jsonOf(statuses.service)}, {"areChecked", statuses.areChecked}, {"friends", friends}};
}

void status(Session& session, const StatusArguments& arguments) {
  PLFriendsManager& manager = session.manager();
  // What the contacts changed since the last time belongs to the question.
  session.settle();
  const bool asksForAll = arguments.who.empty();
  const auto friends = asksForAll ? allFriends(manager) : friendsNamed(manager, arguments.who);
  if (arguments.requery && areStatusesChecked(manager)) requery(session, friends, asksForAll);
  const Statuses statuses = statusesOf(manager, friends);
  session.answer([&] { return textOf(statuses); }, [&] { return jsonOf(statuses); });
}

}  // namespace

void addStatusCommand(CLI::App& program, Command& chosen) {
  auto* command =
      program.add_subcommand("status", "Tell which friends can receive messages (+ yes, - no, ? not known)");
  const auto arguments = std::make_shared<StatusArguments>();
  command->add_option("WHO", arguments->who, "The friends; without any all of them");
  command->add_flag("--requery", arguments->requery, "Ask the messaging service, and wait for its answer");
  command->callback([&chosen, arguments] { chosen = [arguments](Session& session) { status(session, *arguments); }; });
}

}  // namespace pellor::cli
