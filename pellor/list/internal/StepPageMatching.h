// Which pages of a list are those that a step tells of.
#pragma once

#include <optional>
#include <vector>

#include "pellor/list/internal/ListDraft.h"
#include "pellor/list/internal/StepRecord.h"

namespace pellor {

/// For each page of the step the one of now that it is. By id; else, if the step left it in the list, one to one that
/// with most friends in common, then with the same title, then the nearest one.
std::vector<std::optional<PageId>> pagesOfStep(const StepRecord& step, const ListDraft& now);

}  // namespace pellor
