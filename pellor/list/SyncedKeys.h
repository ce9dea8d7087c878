// What of a domain goes to the paired device.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "pellor/platform/PreferencesStore.h"

namespace pellor {

/// The keys that the friend list is made of: what the initial sync brings to a paired device.
std::set<std::string> syncedKeys();

/// The key of the setting whether the list is kept in step with the contacts: one of several machines does so.
std::string followsContactsKey();

/// The names to be posted, in this order, after code that is no manager wrote keys of a domain, so that all managers of
/// the domain read them: the pages first, then their titles. Any thread.
std::vector<std::string> changeNames(PreferencesStore& preferences, const std::string& domain,
                                     const std::set<std::string>& keys);

}  // namespace pellor
