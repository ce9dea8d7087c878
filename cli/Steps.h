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

/// Does the edits as one step and returns when it is stored; their results. Throws CommandError with that text when it
/// is refused, then or when another program was first: none of it is done. The store has to be writable. Without edits
/// it only waits for what is not stored yet.
std::vector<EditResult> applyAndStore(Session& session, const std::vector<Edit>& edits, const RefusalText& text);

/// What there is to say of a refusal that has no words of its own: "nothing was changed: " and the reason. `who` is the
/// friend or page that the edit was about; empty: nobody.
std::string refusalText(const Refusal& refusal, const std::string& who);

}  // namespace pellor::cli
