// What a messaging service said of friends, and questions to it.
#pragma once

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "pellor/list/Reachability.h"

namespace pellor {

class Observation;
class PLFriendsManager;
class PLPerson;

/// Whether the manager asks anybody. Main queue.
bool checksReachability(PLFriendsManager& manager);

/// What is known of a person. Main queue.
Reachability reachabilityOf(PLFriendsManager& manager, const std::shared_ptr<PLPerson>& person);

/// Calls `answered` once, by a task of its own, when there was an answer for each of these destinations, unless the
/// handle is gone. Main queue.
std::shared_ptr<Observation> whenAnswered(std::set<std::string> destinations, std::function<void()> answered);

}  // namespace pellor
