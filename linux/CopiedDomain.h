// What a store has in one domain, as a copy keeps it.
#pragma once

#include <string>

#include "linux/PreferencesMemory.h"
#include "linux/StoreCopies.h"

namespace pellor {

/// Adds the values to the copy, and the friends of lists to its count. What is damaged and has no good copy is left
/// out.
void addDomain(StoreCopy& copy, const std::string& domain, const PreferencesMemory::Snapshot& snapshot);

}  // namespace pellor
