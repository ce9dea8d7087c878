// One way in which a race may have gone, held against the list that it left.
#pragma once

#include <cstddef>
#include <set>
#include <vector>

#include "tests/e2e/RaceJudge.h"
#include "tests/e2e/RaceModel.h"

namespace pellor {

/// What each attempt brought about, null for one that did nothing, and which pages of the list before are gone.
struct RaceCourse {
  std::vector<const RaceFacts*> facts;
  std::set<std::size_t> gonePages;
};

/// What it leaves unexplained: lost and torn. Of a race whose list could be read.
RaceVerdict explain(const RaceRecord& race, const RaceCourse& course);

}  // namespace pellor
