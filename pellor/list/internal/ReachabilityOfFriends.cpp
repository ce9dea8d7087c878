#include "pellor/list/internal/ReachabilityOfFriends.h"

#include <optional>
#include <utility>

#include "pellor/friends/PLDestinationStatus.h"
#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/NotificationCenter.h"
#include "pellor/runtime/Process.h"

namespace pellor {
namespace {

bool decidesOver(const StatusAnswer& answer, const StatusAnswer& other) {
  if (answer.status == other.status) return answer.time > other.time;
  return betterDestinationStatus(answer.status, other.status) == answer.status;
}

/// Waits for answers.
class AnswerWait final : public Observation, public std::enable_shared_from_this<AnswerWait> {
 public:
  AnswerWait(std::set<std::string> destinations, std::function<void()> answered)
      : _process(Process::current()), _unanswered(std::move(destinations)), _answered(std::move(answered)) {}

  void start() {
    if (_unanswered.empty()) return tell();
    _observation =
        _process.notificationCenter().addObserver(std::string(PLFriendsManagerDestinationStatusUpdatedNotification),
                                                  [this](const Notification& notification) { take(notification); });
  }

 private:
  void take(const Notification& notification) {
    const auto* userInfo = notification.userInfoAs<Dictionary>();
    const Value* statuses =
        userInfo ? valueForKey(*userInfo, PLFriendsManagerDestinationStatusUpdatedDestinationsKey) : nullptr;
    if (!statuses || !statuses->dictionary() || _unanswered.empty()) return;
    for (const auto& [destination, status] : *statuses->dictionary()) _unanswered.erase(destination);
    if (_unanswered.empty()) tell();
  }

  void tell() {
    _process.mainQueue().async([weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->_answered();
    });
  }

  Process& _process;
  std::set<std::string> _unanswered;
  const std::function<void()> _answered;
  std::shared_ptr<Observation> _observation;
};

}  // namespace

// No person at all is not reachable, unless nothing is checked.
bool checksReachability(PLFriendsManager& manager) {
  return manager.statusForPersonRequery(nullptr, false) != DestinationStatus::valid;
}

// A service that keeps answers keeps those to this program too, before the library has them: what it keeps is never the
// older of both.
Reachability reachabilityOf(PLFriendsManager& manager, const std::shared_ptr<PLPerson>& person) {
  Reachability result{manager.statusForPersonRequery(person, false), std::nullopt,
                      manager.reachableDestinationsForPerson(person)};
  const auto values = person->allValues();
  if (!values || !checksReachability(manager)) return result;
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

std::shared_ptr<Observation> whenAnswered(std::set<std::string> destinations, std::function<void()> answered) {
  auto wait = std::make_shared<AnswerWait>(std::move(destinations), std::move(answered));
  wait->start();
  return wait;
}

}  // namespace pellor
