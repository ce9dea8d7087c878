// A step in the history of a list.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "pellor/list/internal/StepRecord.h"
#include "pellor/runtime/Value.h"

namespace pellor {

class ForgottenPerson;

/// A plain value. That a step was taken back is kept with the step.
struct HistoryEntry {
  static inline const std::string MomentKey = "moment";  ///< under which an element has it

  StepRecord step;
  std::int64_t moment = 0;                ///< when it was made: greater than all others then
  std::optional<StepRecord> undone = {};  ///< what taking it back did; absent: it is not taken back
  std::int64_t undoneMoment = 0;          ///< when it was taken back, likewise
  std::int64_t changes = 0;               ///< how often it was taken back and done again
};

/// The entry as it is stored.
Dictionary elementOf(const HistoryEntry& entry);
/// Absent where this version cannot read the element.
std::optional<HistoryEntry> historyEntryOf(const Value& element);
/// When the step of an element was made, also of one that this version cannot read; 0 where that is not said.
std::int64_t momentOf(const Value& element);

/// The entry without all that tells of the person; absent where it told of nobody else.
std::optional<HistoryEntry> without(const HistoryEntry& entry, const ForgottenPerson& person);
/// Adds the step, and what taking it back did.
void addRecords(std::vector<StepRecord>& records, const HistoryEntry& entry);

}  // namespace pellor
