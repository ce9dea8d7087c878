// Judges what a three-way merge gave by the edits that made both sides, not by another merge.
#pragma once

#include <string>
#include <vector>

#include "tests/pellor/MergeTriples.h"

namespace pellor::merging {

/// Whether pages and friends of base can be told in theirs, by the rules that say which is which. Where they cannot, as
/// nearly all friends moved or one took the place of another with the same number, what is to come out is not known.
bool areToldApart(const Triple& triple);

/// What does not hold of what came out, by the edits that made both sides: one line for each rule; empty when all hold.
std::vector<std::string> faultsOf(const Triple& triple, const PLMergeInput& input, const PLMergeResult& result);

}  // namespace pellor::merging
