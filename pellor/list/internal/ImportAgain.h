// Judges an import that was overtaken.
#pragma once

#include <optional>

#include "pellor/list/Edit.h"
#include "pellor/list/internal/ListDraft.h"
#include "pellor/list/internal/StepRecord.h"

namespace pellor {

/// Does an import that was done before to the list of another program: what it did is in `step`, to the list `before`.
/// Refused, the draft is worth nothing.
///
/// - Somebody who was added here and there is known there, and stays where he stands.
/// - All others who were added find room: near the slot that they have here, else anywhere; without room it is refused.
/// - A friend whom a replacement moved or changed is there; else it is refused. Who was removed may be gone already.
/// - What the other program added, and did to friends and pages of which the import does not tell, stays.
std::optional<Refusal> importAgain(const StepRecord& step, const Snapshot& before, ListDraft& draft);

}  // namespace pellor
