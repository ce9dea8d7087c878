// Which destinations of friends can receive messages, as far as is known.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "pellor/friends/PLDestination.h"
#include "pellor/friends/PLDestinationStatus.h"
#include "pellor/platform/ReachabilityService.h"
#include "pellor/runtime/Process.h"
#include "pellor/runtime/Timer.h"

namespace pellor {

class PLPerson;

/// What reachability asks of its list, and tells it. Main queue.
class PLReachabilityClient {
 public:
  virtual ~PLReachabilityClient() = default;
  /// Calls `visit` for each friend, in the order of the list.
  virtual void forEachFriend(const std::function<void(const PLPerson&)>& visit) const = 0;
  /// Statuses, by canonical destination, were taken over.
  virtual void statusesWereUpdated(const DestinationStatuses& statuses) = 0;
  /// How many friends have no destination that is known to be valid; none while nothing at all is.
  virtual void unreachableFriendsWereCounted(std::int64_t count) = 0;
};

/// The statuses that are known, and the queries for them. A service that answers no queries is stood in for: 5 seconds
/// after a query every destination that was asked for counts as valid. Main queue.
///
/// Its invariant: while destinations of a query with priority wait for their answer no batch query goes out, and a
/// timer gives them up 30 seconds after the last that was heard of the service.
class PLReachability final : public std::enable_shared_from_this<PLReachability>, private ReachabilityClient {
  struct Passkey {};

 public:
  /// `domain` is that of the list, whose own defaults may switch the check of statuses off.
  static std::shared_ptr<PLReachability> make(Process& process, std::string domain);
  PLReachability(Passkey, Process& process, std::string domain) : _process(process), _domain(std::move(domain)) {}
  /// Before the first query; held weakly, but by the answers that stand in for those of a service.
  void setClient(std::weak_ptr<PLReachabilityClient> client) { _client = std::move(client); }

  /// The name of the messaging service; absent while none is set: then no status is checked.
  const std::optional<std::string>& serviceName() const { return _serviceName; }
  void setServiceName(std::optional<std::string> serviceName);

  /// Asks for the statuses of all friends' destinations, unless a query with priority waits for its answer.
  void refreshDestinationStatuses();
  /// The best status of the person's destinations; invalid for a person without one and for null, valid for everybody
  /// while statuses are not checked. With `requery` it is asked for again, with priority.
  DestinationStatus statusForPersonRequery(const PLPerson* person, bool requery);
  /// Those that are known to be valid; empty for null.
  DestinationSet reachableDestinationsForPerson(const PLPerson* person) const;
  /// Takes over statuses by destination in any spelling; the others stay as they were.
  void idStatusUpdatedForDestinations(const DestinationStatuses& statuses);

 private:
  DestinationSet _destinations() const;
  static DestinationStatus _compareStatusToStatus(DestinationStatus left, DestinationStatus right);
  bool _shouldBypassDestinationStatusCheck() const;
  bool _startQuery(const DestinationSet& destinations, bool hasPriority);
  void _queryDestinations(const DestinationSet& destinations);
  void queryDidStart(const DestinationSet& destinations, bool hasPriority) override;
  void queryDidAnswer(const DestinationStatuses& statuses) override;
  std::int64_t _numberOfUnreachableFriends() const;
  void _dropPendingDestinations();
  void _startRelayQueryTimeoutTimer();
  void _stopRelayQueryTimeoutTimer();
  void _relayQueryTimeoutTimerFired();
  void _forEachFriend(const std::function<void(const PLPerson&)>& visit) const;

  Process& _process;
  const std::string _domain;
  std::weak_ptr<PLReachabilityClient> _client;
  std::optional<std::string> _serviceName;
  DestinationSet _highPriorityDestinations;            // while there are any, no batch query starts
  std::optional<DestinationSet> _pendingDestinations;  // of the batch query that did not start
  PLDestinationStatusCache _cachedStatuses;
  std::shared_ptr<Timer> _relayQueryTimeoutTimer;
};

}  // namespace pellor
