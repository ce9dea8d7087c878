// Statuses of destinations, for the user.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/FriendSearch.h"
#include "cli/Session.h"
#include "pellor/friends/PLDestination.h"
#include "pellor/platform/ReachabilityService.h"

namespace pellor::cli {

/// One character: "+" can receive messages, "-" cannot, "?" not known.
std::string statusMark(DestinationStatus status);

/// The status in words.
std::string statusText(DestinationStatus status);

/// What is known of one friend: for each destination what the service last said, to this program or to another one.
struct FriendReachability {
  DestinationStatus status = DestinationStatus::unspecified;  ///< the best one of the destinations
  std::optional<StatusAnswer> answer;                         ///< that decided; absent where no answer was kept
  DestinationSet reachable;
};
FriendReachability reachabilityOf(PLFriendsManager& manager, const std::shared_ptr<PLPerson>& person);

/// "2 h ago"; empty where there is no answer, and for one of the last minutes.
std::string ageText(const FriendReachability& reachability);

/// Adds "status", and where there is an answer its "statusTime" and "statusService".
void addStatus(Json& json, const FriendReachability& reachability);

/// Whether the library asks anybody: it does once a messaging service is named, unless it is told not to.
bool areStatusesChecked(PLFriendsManager& manager);

/// Whether the service has answered, at some time, for each destination of each friend.
bool allAreAnswered(PLFriendsManager& manager);
/// When the first answer is too old: a day after it, or when the service says. Seconds of the wall clock; absent while
/// there is no answer at all.
std::optional<double> earliestRequery(PLFriendsManager& manager);

/// Has all friends asked for, or these alone, and waits for the answers. Whether all came within `limit` seconds.
bool requeryStatuses(Session& session, const std::vector<FriendAt>& friends, bool asksForAll, double limit);

}  // namespace pellor::cli
