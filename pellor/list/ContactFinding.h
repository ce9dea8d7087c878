// Finding contacts by what somebody calls them.
#pragma once

#include <string_view>
#include <vector>

#include "pellor/platform/ContactSearch.h"

namespace pellor {

// All of it sees the contacts as they are then, and finds nobody while they cannot be read. Main queue, of the current
// process.

/// The search of the process's contacts: the platform's, else one that walks through them.
ContactSearch& contactSearch();

/// The contacts for whom a text is meant, each person once. The first of these that finds anybody decides: a GUID; a
/// number or an address; a whole name or nickname, where there is one with nothing around it that one alone; and what
/// `ContactSearch::find` finds best, unless that is worse than `worst`, or of one or two digits, which are no part of
/// anybody's number. One: that contact is meant; several: a person has to choose. Of those who were found in whole the
/// fit is `destination` or `name`.
std::vector<FoundContact> contactsNamed(std::string_view text, ContactFit worst = ContactFit::numberEnding);

}  // namespace pellor
