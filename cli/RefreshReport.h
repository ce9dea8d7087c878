// What a refresh against the contacts changed.
#pragma once

#include <vector>

#include "cli/Change.h"
#include "cli/Session.h"

namespace pellor::cli {

/// Brings the friends in step with the contacts and stores that. Also what the load of the list changed, if this call
/// is the first that needs the list.
std::vector<Change> refreshedFriends(Session& session);

}  // namespace pellor::cli
