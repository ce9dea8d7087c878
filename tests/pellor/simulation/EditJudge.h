// Whether each acknowledged edit of a round shows, or another one explains why it does not.
#pragma once

#include <optional>
#include <string>

#include "tests/pellor/simulation/Edits.h"

namespace pellor {

/// Looks at each thing that edits ask for by itself: whether a friend is there, each of its fields, its place, the
/// title of each page. Where it is now must be what some edit asked for that no acknowledged edit was built on, or what
/// it was if there is no acknowledged edit of it. So a later edit explains an earlier one, either of two that conflict
/// explains the other, and what was not acknowledged may show or not.
///
/// Friends whom no edit touched stand on one page with those with whom they stood, and in their position; a page with
/// such a friend is known by it. Of other pages, and where
/// pages are not known, nothing is said here. The text tells of the first thing that nothing
/// explains; absent when all is explained.
std::optional<std::string> unexplainedThing(const Round& round);

}  // namespace pellor
