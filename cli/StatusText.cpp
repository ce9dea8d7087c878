#include "cli/StatusText.h"

#include <algorithm>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <utility>

#include "cli/JsonForms.h"
#include "pellor/friends/PLDestinationStatus.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/Timer.h"
#include "pellor/runtime/WallClock.h"

namespace pellor::cli {
namespace {

constexpr double Minute = 60, Hour = 60 * Minute, Day = 24 * Hour;
// Nobody minds an answer that is no older.
constexpr double Fresh = 5 * Minute;

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

  /// Whether all were answered within `limit` seconds.
  bool wait(double limit) {
    if (_unanswered.empty()) return true;
    const auto timer = Timer::after(_process.mainQueue(), limit, [this] { _process.mainQueue().stop(); });
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

DestinationSet destinationsOf(const std::vector<FriendAt>& friends) {
  DestinationSet destinations;
  for (const FriendAt& found : friends) {
    if (const auto values = found.person->allValues()) destinations.insert(values->begin(), values->end());
  }
  return destinations;
}

bool decidesOver(const StatusAnswer& answer, const StatusAnswer& other) {
  if (answer.status == other.status) return answer.time > other.time;
  return betterDestinationStatus(answer.status, other.status) == answer.status;
}

}  // namespace

std::string statusMark(DestinationStatus status) {
  if (status == DestinationStatus::valid) return "+";
  return status == DestinationStatus::invalid ? "-" : "?";
}

std::string statusText(DestinationStatus status) {
  switch (status) {
    case DestinationStatus::valid:
      return "reachable";
    case DestinationStatus::invalid:
      return "not reachable";
    case DestinationStatus::unknown:
      return "unknown";
    case DestinationStatus::unspecified:
      break;
  }
  return "not asked yet";
}

// No person at all is not reachable, unless nothing is checked.
bool areStatusesChecked(PLFriendsManager& manager) {
  return manager.statusForPersonRequery(nullptr, false) != DestinationStatus::valid;
}

// A service that keeps answers keeps those to this program too, before the library has them: what it keeps is never the
// older of both.
FriendReachability reachabilityOf(PLFriendsManager& manager, const std::shared_ptr<PLPerson>& person) {
  FriendReachability result{manager.statusForPersonRequery(person, false), std::nullopt,
                            manager.reachableDestinationsForPerson(person)};
  const auto values = person->allValues();
  if (!values || !areStatusesChecked(manager)) return result;
  ReachabilityService& service = *platformOf(Process::current()).reachability;
  bool isValidByLibraryAlone = false;
  for (const std::string& value : *values) {
    const auto answer = service.lastKnownStatus(value);
    if (!answer) {
      isValidByLibraryAlone = isValidByLibraryAlone || result.reachable.contains(value);
      continue;
    }
    result.reachable.erase(value);
    if (answer->status == DestinationStatus::valid) result.reachable.insert(value);
    if (!result.answer || decidesOver(*answer, *result.answer)) result.answer = answer;
  }
  if (isValidByLibraryAlone) result.answer.reset();
  if (result.answer) result.status = result.answer->status;
  return result;
}

std::string ageText(const FriendReachability& reachability) {
  const double age = reachability.answer ? wallClockNow() - reachability.answer->time : 0;
  if (age < Fresh) return "";
  const auto ago = [age](double unit, const char* name) {
    return std::to_string(static_cast<std::int64_t>(age / unit)) + name;
  };
  if (age < Hour) return ago(Minute, " min ago");
  return age < 2 * Day ? ago(Hour, " h ago") : ago(Day, " days ago");
}

void addStatus(Json& json, const FriendReachability& reachability) {
  const auto& answer = reachability.answer;
  json["status"] = destinationStatusName(reachability.status);
  if (!answer) return;
  json["statusTime"] = jsonOf(Value(Date{answer->time}));
  json["statusService"] = answer->service;
}

bool allAreAnswered(PLFriendsManager& manager) {
  ReachabilityService& service = *platformOf(Process::current()).reachability;
  return std::ranges::all_of(destinationsOf(allFriends(manager)), [&](const std::string& destination) {
    return service.lastKnownStatus(destination).has_value();
  });
}

std::optional<double> earliestRequery(PLFriendsManager& manager) {
  ReachabilityService& service = *platformOf(Process::current()).reachability;
  std::optional<double> earliest;
  for (const std::string& destination : destinationsOf(allFriends(manager))) {
    const auto answer = service.lastKnownStatus(destination);
    if (!answer) continue;
    const double end = answer->time + answer->lifetime.value_or(Day);
    earliest = std::min(end, earliest.value_or(end));
  }
  return earliest;
}

bool requeryStatuses(Session& session, const std::vector<FriendAt>& friends, bool asksForAll, double limit) {
  PLFriendsManager& manager = session.manager();
  AnswerWait answers(session.process(), destinationsOf(friends));
  if (asksForAll) {
    manager.refreshDestinationStatuses();
  } else {
    for (const FriendAt& found : friends) manager.statusForPersonRequery(found.person, true);
  }
  return answers.wait(limit);
}

}  // namespace pellor::cli
