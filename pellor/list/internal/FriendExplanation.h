// Puts together what explains a friend.
#pragma once

#include "pellor/list/Explanation.h"
#include "pellor/list/internal/ListExceptions.h"
#include "pellor/list/internal/ListHistory.h"

namespace pellor {

class PLPerson;

/// What history and exceptions tell of a friend, into an explanation whose `id` is set: the contact's GUID, since which
/// step, the steps, the exceptions. A step tells of the friend by its id, or by what the friend was known by then.
/// Pure.
void explainByHistory(Explanation& explanation, const Dictionary& form,
                      const std::vector<DecodedHistory::Entry>& entries, const std::vector<PLException>& exceptions);

/// The number that is shown and what it follows from, and whether the contact is there. Main queue.
void explainByContacts(Explanation& explanation, const PLPerson& person);

}  // namespace pellor
