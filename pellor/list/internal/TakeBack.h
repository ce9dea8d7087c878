// Takes a step back.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "pellor/list/Edit.h"
#include "pellor/list/History.h"
#include "pellor/list/internal/ListDraft.h"
#include "pellor/list/internal/StepRecord.h"

namespace pellor {

/// What comes of taking a step back, beside the draft.
struct TakenBack {
  using Part = KeptChange::Part;
  /// A friend who comes back. A person is to be made of the form.
  struct Restored {
    FriendId id;  ///< in the draft: the friend's id where the step has it, else a new one
    Dictionary form;
  };
  /// A field that gets its value back: a text, or what the app stored. Of `card` a dictionary with the card's entries
  /// of the stored form; those that it lacks go.
  struct FieldChange {
    FriendId id;
    Part field;
    std::string key = {};             ///< of metadata, or of an entry of a later version
    std::optional<Value> value = {};  ///< absent: is taken away
  };
  std::vector<Restored> restored = {};
  std::vector<FieldChange> changes = {};
  std::vector<KeptChange> kept = {};
  std::optional<Refusal> refusal = {};  ///< notUndoable, noRoom: the draft is worth nothing any more
};

/// Merges three ways, with what the step made as the base, what it found as ours and the list of now as theirs: what is
/// still as the step left it becomes what it was, in the draft; all else stays and is named. Those who leave the list
/// are in no slot of the draft then. `now`: a draft in which nothing was changed yet; `formNow`: of its friends. Pure.
///
/// - A friend whom the step added leaves, from wherever it stands now.
/// - A friend whom it removed comes back with its form, unless it was added anew.
/// - A friend whom it moved goes back, if it stands where the step put it.
/// - Friends who come take their slots; where one is taken, the nearest free one of the page, of two the later one;
///   else the first one on any page; else one on a new last page.
/// - A page that it inserted goes, if nobody stands on it and it has its title; the only one of the list loses that.
/// One that it removed comes back, as far
///   as the list may have so many pages. One that it moved goes back, if its index is the one that the step gave it.
/// - An empty page at the end that the step left there is there, also where this process does not lay it out.
/// - A title and each field of a friend get their values back, if they are those that the step gave them.
TakenBack takeBack(const StepRecord& step, ListDraft& now, const FormOfFriend& formNow,
                   const std::function<FriendId()>& newFriendId);

}  // namespace pellor
