// What a command does to the list: one step, stored, or refused with a reason.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "cli/Session.h"
#include "pellor/list/Edit.h"
#include "pellor/list/FriendList.h"

namespace pellor::cli {

/// When a step was refused.
enum class RefusedAt {
  call,   ///< as the list was
  merge,  ///< another program stored an edit first
};

/// What a command says of a refusal in the words of its own.
using RefusalText = std::function<std::string(const Refusal& refusal, RefusedAt at)>;

/// What came of a step.
struct DoneStep {
  std::vector<EditResult> results;
  Snapshot list;  ///< as it is then; in a dry run as it would be
};

/// Does the edits as one step and returns when it is stored. Throws CommandError with that text when it is refused,
/// then or when another program was first: none of it is done. The store has to be writable. Without edits it only
/// waits for what is not stored yet. In a dry run the step is only planned. A step that is too large to be taken back
/// is said to be, before it is stored.
DoneStep applyAndStore(Session& session, const std::vector<Edit>& edits, const RefusalText& text);

/// Imports the list likewise; friends who came are where they stand then. A refusal at once is in the answer; throws
/// where another program was first.
ImportAnswer importAndStore(Session& session, const ExportedList& list, ImportMode mode);

/// What there is to say of a refusal that has no words of its own: "nothing was changed: " and the reason. `who` is the
/// friend or page that the edit was about; empty: nobody.
std::string refusalText(const Refusal& refusal, const std::string& who);

}  // namespace pellor::cli
