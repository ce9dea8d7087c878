// Statuses of destinations, for the user.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/FriendSearch.h"
#include "cli/Session.h"
#include "pellor/list/Reachability.h"
#include "pellor/list/Snapshot.h"

namespace pellor::cli {

/// One character: "+" can receive messages, "-" cannot, "?" not known.
std::string statusMark(DestinationStatus status);

/// The status in words.
std::string statusText(DestinationStatus status);

/// "2 h ago"; empty where there is no answer, and for one of the last minutes.
std::string ageText(const Reachability& reachability);

/// Adds "status", and where there is an answer its "statusTime" and "statusService".
void addStatus(Json& json, const Reachability& reachability);

/// Whether the service has answered, at some time, for each number and address of each friend.
bool allAreAnswered(const Snapshot& list);
/// When the first answer is too old: a day after it, or when the service says. Seconds of the wall clock; absent while
/// there is no answer at all.
std::optional<double> earliestRequery(const Snapshot& list);

/// Asks the service about these friends, or about all, and waits. Whether all was answered within `limit` seconds.
bool query(Session& session, const std::vector<FriendAt>& friends, double limit);
bool queryAll(Session& session, double limit);

/// To be called when a query is over that began at that time of the wall clock. Throws CommandError with the reason
/// where the service, which is asked for it, answered nothing of one of the friends.
void requireAnswersSince(double start, Session& session, const std::vector<FriendAt>& friends);

}  // namespace pellor::cli
