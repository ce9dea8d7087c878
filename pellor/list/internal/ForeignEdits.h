// Steps of what programs did that keep no history.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "pellor/friends/PLStepClient.h"
#include "pellor/list/internal/ListHistory.h"
#include "pellor/list/internal/StepRecord.h"

namespace pellor {

/// One step for what was found in the stored list and no step tells of. All programs that find it call it by the same
/// id, which follows from the version in which it was found; it goes out with the next write of any of them. Its
/// invariant: `unstored` names those that are not stored, as far as this process knows. Main queue.
class ForeignEdits {
 public:
  /// `history` outlives this object. `sign` writes time and program into a step.
  ForeignEdits(ListHistory& history, std::function<void(StepRecord&)> sign);

  void note(const PLForeignEdit& edit);
  /// Takes the steps out of the history that another program told of in `theirs`.
  void judge(const PLStoredPages& theirs);
  /// The ids.
  const std::vector<std::string>& unstored() const { return _unstored; }

 private:
  ListHistory& _history;
  const std::function<void(StepRecord&)> _sign;
  std::vector<std::string> _unstored;
};

/// The step that did it, but for time and program; absent where nobody made an edit: what friends show of their cards
/// follows these, and empty pages at the end each program lays out for itself. Pure.
std::optional<StepRecord> stepOf(const PLForeignEdit& edit);

}  // namespace pellor
