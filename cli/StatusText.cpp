#include "cli/StatusText.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

#include "cli/JsonForms.h"
#include "cli/Output.h"
#include "cli/Services.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/NotificationCenter.h"
#include "pellor/runtime/Process.h"
#include "pellor/runtime/Timer.h"
#include "pellor/runtime/WallClock.h"

namespace pellor::cli {
namespace {

constexpr double Minute = 60, Hour = 60 * Minute, Day = 24 * Hour;
// Nobody minds an answer that is no older.
constexpr double Fresh = 5 * Minute;

const char* nameOf(DestinationStatus status) {
  switch (status) {
    case DestinationStatus::valid:
      return "valid";
    case DestinationStatus::invalid:
      return "invalid";
    case DestinationStatus::unknown:
      return "unknown";
    case DestinationStatus::unspecified:
      break;
  }
  return "unspecified";
}

std::set<std::string> destinationsOf(const Snapshot& list) {
  std::set<std::string> destinations;
  for (const FriendAt& found : allFriends(list))
    destinations.insert(found.person->destinations.begin(), found.person->destinations.end());
  return destinations;
}

// `ask` is given what to call at the last answer.
bool isAnswered(Process& process, double limit,
                const std::function<std::shared_ptr<Observation>(std::function<void()>)>& ask) {
  bool isAnswered = false;
  const auto wait = ask([&] {
    isAnswered = true;
    process.mainQueue().stop();
  });
  const auto timer = Timer::after(process.mainQueue(), limit, [&process] { process.mainQueue().stop(); });
  process.mainQueue().run();
  return isAnswered;
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

std::string ageText(const Reachability& reachability) {
  const double age = reachability.answer ? wallClockNow() - reachability.answer->time : 0;
  if (age < Fresh) return "";
  const auto ago = [age](double unit, const char* name) {
    return std::to_string(static_cast<std::int64_t>(age / unit)) + name;
  };
  if (age < Hour) return ago(Minute, " min ago");
  return age < 2 * Day ? ago(Hour, " h ago") : ago(Day, " days ago");
}

void addStatus(Json& json, const Reachability& reachability) {
  const auto& answer = reachability.answer;
  json["status"] = nameOf(reachability.status);
  if (!answer) return;
  json["statusTime"] = jsonOf(Value(Date{answer->time}));
  json["statusService"] = answer->service;
}

bool allAreAnswered(const Snapshot& list) {
  ReachabilityService& service = *platformOf(Process::current()).reachability;
  return std::ranges::all_of(destinationsOf(list), [&](const std::string& destination) {
    return service.lastKnownStatus(destination).has_value();
  });
}

std::optional<double> earliestRequery(const Snapshot& list) {
  ReachabilityService& service = *platformOf(Process::current()).reachability;
  std::optional<double> earliest;
  for (const std::string& destination : destinationsOf(list)) {
    const auto answer = service.lastKnownStatus(destination);
    if (!answer) continue;
    const double end = answer->time + answer->lifetime.value_or(Day);
    earliest = std::min(end, earliest.value_or(end));
  }
  return earliest;
}

bool query(Session& session, const std::vector<FriendAt>& friends, double limit) {
  std::vector<FriendId> ids;
  for (const FriendAt& each : friends) ids.push_back(each.person->id);
  return isAnswered(session.process(), limit,
                    [&](std::function<void()> answered) { return session.list().query(ids, std::move(answered)); });
}

bool queryAll(Session& session, double limit) {
  return isAnswered(session.process(), limit,
                    [&](std::function<void()> answered) { return session.list().queryAll(std::move(answered)); });
}

// The library tells that a query has ended, not why nothing came of it.
void requireAnswersSince(double start, Session& session, const std::vector<FriendAt>& friends) {
  const auto isNew = [&](const FriendAt& found) {
    const auto answer = session.list().reachability(found.person->id).answer;
    return answer && answer->time >= start;
  };
  if (std::ranges::all_of(friends, isNew)) return;
  Process process;
  const ServiceReport report = reportOn(process, "reachability", session.options().configuration);
  if (report.state != ServiceReport::State::fails) return;
  throw CommandError("the messaging service was not asked: " + printable(report.detail) +
                     " (pellor doctor tells more)");
}

}  // namespace pellor::cli
