// Explains a round by an order in which its edits were made one after the other.
#pragma once

#include "tests/pellor/simulation/Edits.h"

namespace pellor {

/// Whether there is an order of all acknowledged edits, and of some of the others, in which each process made its own
/// in their order and after those that it built on, such that the list comes out as it is when each of them is made
/// alone, on what the one before left. An edit that does not apply any more, of a friend or a page that is gone, does
/// nothing.
///
/// For rounds that can be ordered (`Round::canBeOrdered`). A friend who was added or moved may stand in another slot if
/// its own was taken, and so may all of these where pages are not known, when titles are not looked at. Of a friend
/// whom several processes added only that it is there is looked at.
bool isExplainedByAnOrder(const Round& round);

}  // namespace pellor
