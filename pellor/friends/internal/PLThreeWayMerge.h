// Brings together what two processes made of one stored list.
#pragma once

#include "pellor/friends/internal/PLMergeInput.h"

namespace pellor {

/// Our edits made on top of theirs. Where theirs is base the result is ours, clean-up included; where ours is base it
/// is the very chunks of theirs. Lists that share most of their chunks cost what differs. A pure function; any thread
/// on which `writtenForm` may be called.
PLMergeResult threeWayMerge(const PLMergeInput& input);

/// Where the friends of theirs are, by slot of theirs: in base or, of those that both sides added, in ours. Absent:
/// nowhere.
struct PLTheirFriends {
  PLChunkOrigins inBase;
  PLChunkOrigins inOurs;
};
/// As the merge finds them.
PLTheirFriends findTheirFriends(const PLMergeInput& input);

}  // namespace pellor
