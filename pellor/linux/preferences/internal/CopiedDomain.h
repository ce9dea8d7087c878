// What a store has in one domain, as a copy keeps it.
#pragma once

#include <string>

#include "pellor/linux/preferences/StoreCopies.h"
#include "pellor/linux/preferences/internal/PreferencesMemory.h"

namespace pellor {

/// Adds the values to the copy. What is damaged and has no good copy is left out.
void addDomain(StoreCopy& copy, const std::string& domain, const PreferencesMemory::Snapshot& snapshot);
/// Counts the friends of all lists in the copy.
void countFriends(StoreCopy& copy);

}  // namespace pellor
