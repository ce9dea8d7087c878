// Exported friends and the forms in which friends are stored.
#pragma once

#include "pellor/list/ExportedList.h"
#include "pellor/runtime/Value.h"

namespace pellor {

/// Of a form as a person writes it.
ExportedFriend exportedFriendOf(const Dictionary& form);

/// The entries that a later version of the library made.
Dictionary otherEntriesOf(const Dictionary& form);

/// A form that a person can be made of, linked with no record: the contact may come later.
Dictionary formOf(const ExportedFriend& person);

}  // namespace pellor
