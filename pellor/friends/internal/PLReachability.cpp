#include "pellor/friends/internal/PLReachability.h"

#include <utility>

#include "pellor/friends/PLBundle.h"
#include "pellor/friends/PLFriendsManagerKeys.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/friends/PLUtility.h"
#include "pellor/friends/internal/PLMainQueueCheck.h"
#include "pellor/platform/Platform.h"

namespace pellor {
namespace {

constexpr double DefaultAnswerDelay = 5.0;
constexpr double RelayQueryTimeout = 30.0;

// Whether statuses are checked in this process, decided once.
struct DestinationStatusCheck {
  std::optional<bool> isSkipped;
};

bool isTrue(const std::optional<Value>& value) {
  if (!value) return false;
  return value->boolean().value_or(value->integer().value_or(0) != 0);
}

std::string joined(const DestinationSet& destinations) {
  std::string text;
  for (const std::string& destination : destinations) text += (text.empty() ? "" : ", ") + destination;
  return text;
}

DestinationStatuses allValid(const DestinationSet& destinations) {
  DestinationStatuses statuses;
  for (const std::string& destination : destinations) statuses.emplace(destination, DestinationStatus::valid);
  return statuses;
}

}  // namespace

std::shared_ptr<PLReachability> PLReachability::make(Process& process, std::string domain) {
  return std::make_shared<PLReachability>(Passkey{}, process, std::move(domain));
}

void PLReachability::setServiceName(std::optional<std::string> serviceName) {
  if (serviceName == _serviceName) return;
  _serviceName = std::move(serviceName);
  _PLGetLogSystem().log("setting service name for reachability queries to %@", _serviceName);
}

void PLReachability::_forEachFriend(const std::function<void(const PLPerson&)>& visit) const {
  if (const auto client = _client.lock()) client->forEachFriend(visit);
}

DestinationSet PLReachability::_destinations() const {
  DestinationSet identifiers;
  _forEachFriend([&](const PLPerson& person) {
    const auto values = person.allValues();
    if (!values) return;
    for (const std::string& value : *values) {
      if (auto identifier = plMessageRelayIdentifier(value)) identifiers.insert(*std::move(identifier));
    }
  });
  return identifiers;
}

void PLReachability::refreshDestinationStatuses() {
  if (!_highPriorityDestinations.empty()) {
    _PLGetLogSystem().log("not starting batch query because high priority query is in progress for [ %@ ]",
                          redactable(joined(_highPriorityDestinations)));
    _pendingDestinations = _destinations();
    return;
  }
  if (_startQuery(_destinations(), false)) return;
  // The answer is about the friends that there are when it comes, and comes: the list is kept until then.
  _process.mainQueue().asyncAfter(DefaultAnswerDelay, [self = shared_from_this(), client = _client.lock()] {
    const DestinationStatuses statuses = allValid(self->_destinations());
    _PLGetLogSystem().log("faking Relay status update");
    self->idStatusUpdatedForDestinations(statuses);
  });
}

void PLReachability::_queryDestinations(const DestinationSet& destinations) {
  if (_startQuery(destinations, true)) return;
  _process.mainQueue().asyncAfter(
      DefaultAnswerDelay, [self = shared_from_this(), client = _client.lock(), destinations] {
        _PLGetLogSystem().log("faking Relay status update for [ %@ ]", redactable(joined(destinations)));
        self->idStatusUpdatedForDestinations(allValid(destinations));
      });
}

// False when the service answers no queries.
bool PLReachability::_startQuery(const DestinationSet& destinations, bool hasPriority) {
  const std::shared_ptr<ReachabilityClient> client(shared_from_this(), this);
  return platformOf(_process).reachability->queryStatusForDestinations(destinations, _serviceName, hasPriority, client);
}

void PLReachability::queryDidStart(const DestinationSet& destinations, bool hasPriority) {
  checkMainQueue(_process, "queryDidStart");
  if (hasPriority) _highPriorityDestinations.insert(destinations.begin(), destinations.end());
  _startRelayQueryTimeoutTimer();
}

void PLReachability::queryDidAnswer(const DestinationStatuses& statuses) {
  checkMainQueue(_process, "queryDidAnswer");
  idStatusUpdatedForDestinations(statuses);
}

DestinationStatus PLReachability::_compareStatusToStatus(DestinationStatus left, DestinationStatus right) {
  return betterDestinationStatus(left, right);
}

DestinationStatus PLReachability::statusForPersonRequery(const PLPerson* person, bool requery) {
  if (_shouldBypassDestinationStatusCheck()) return DestinationStatus::valid;
  const auto values = person ? person->allValues() : nullptr;
  if (!values || values->empty()) return DestinationStatus::invalid;
  auto best = DestinationStatus::unspecified;
  for (const std::string& value : *values) best = _compareStatusToStatus(best, _cachedStatuses.status(value));
  if (requery) {
    _queryDestinations(*values);
    if (best == DestinationStatus::unspecified) best = DestinationStatus::unknown;
  }
  _PLGetLogSystem().log("%@ has cached best status of: %@", redactable(person->description()),
                        destinationStatusName(best));
  return best;
}

DestinationSet PLReachability::reachableDestinationsForPerson(const PLPerson* person) const {
  const auto values = person ? person->allValues() : nullptr;
  return values ? _cachedStatuses.validAmong(*values) : DestinationSet{};
}

void PLReachability::idStatusUpdatedForDestinations(const DestinationStatuses& statuses) {
  _stopRelayQueryTimeoutTimer();
  DestinationStatuses updated;
  for (const auto& [destination, status] : statuses) {
    // What has no canonical form is no friend's destination either.
    if (auto canonical = plMessageCanonicalRawAddress(destination)) updated.insert_or_assign(*canonical, status);
  }
  _PLGetLogSystem().log("Relay statusues updated: %@", redactable(Value(destinationStatusNumbers(statuses))));
  _cachedStatuses.update(updated);
  if (const auto client = _client.lock()) {
    client->statusesWereUpdated(updated);
    if (_highPriorityDestinations.empty()) client->unreachableFriendsWereCounted(_numberOfUnreachableFriends());
  }
  // By the names that were asked for, not by the canonical ones.
  for (const auto& [destination, status] : statuses) _highPriorityDestinations.erase(destination);
  _dropPendingDestinations();
  // A service that answers in parts may say no more after any of them.
  if (!_highPriorityDestinations.empty()) _startRelayQueryTimeoutTimer();
}

// The batch query that was held back is not made up for: a caller asks again.
void PLReachability::_dropPendingDestinations() {
  if (_highPriorityDestinations.empty()) _pendingDestinations.reset();
}

// While nothing at all is known to be valid, nobody counts: that says more of the service than of the friends.
std::int64_t PLReachability::_numberOfUnreachableFriends() const {
  if (!_cachedStatuses.hasValid()) return 0;
  std::int64_t count = 0;
  _forEachFriend([&](const PLPerson& person) {
    const auto values = person.allValues();
    if (!(values && _cachedStatuses.hasValidAmong(*values))) ++count;
  });
  return count;
}

void PLReachability::_startRelayQueryTimeoutTimer() {
  if (_relayQueryTimeoutTimer) return;
  _relayQueryTimeoutTimer = Timer::after(_process.mainQueue(), RelayQueryTimeout, [weak = weak_from_this()] {
    if (auto self = weak.lock()) self->_relayQueryTimeoutTimerFired();
  });
}

void PLReachability::_stopRelayQueryTimeoutTimer() { _relayQueryTimeoutTimer = nullptr; }

void PLReachability::_relayQueryTimeoutTimerFired() {
  _relayQueryTimeoutTimer = nullptr;
  _PLGetLogSystem().log("Relay Query took too long to respond, clearing request queues");
  // A batch that waits for no priority query is none of this timer's.
  if (_highPriorityDestinations.empty()) return;
  _highPriorityDestinations.clear();
  _dropPendingDestinations();
}

bool PLReachability::_shouldBypassDestinationStatusCheck() const {
  if (!_serviceName) return true;
  auto& check = _process.local<DestinationStatusCheck>();
  if (!check.isSkipped) {
    PreferencesStore& preferences = *platformOf(_process).preferences;
    check.isSkipped = isTrue(preferences.persistentValueForKey(PLSkipHasSatelliteCheckKey, _domain));
  }
  return *check.isSkipped;
}

}  // namespace pellor
