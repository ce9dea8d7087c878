// How the friend lists of two paired devices become one.
#pragma once

#include <cstddef>
#include <string>

#include "pellor/platform/PreferencesStore.h"
#include "pellor/runtime/Value.h"

namespace pellor {

/// Values of a domain by key.
struct SyncedValues {
  Dictionary values;
  std::size_t leftOut = 0;  ///< friends of `ours` for which there was no room
};

/// The edits of both devices, each of which made something else of `base`. Merges list and titles with the page size
/// and the number of pages of the domain; of any other key it takes the value that changed, theirs if both did. Any
/// thread that has a current process.
SyncedValues mergeSynced(PreferencesStore& preferences, const std::string& domain, const Dictionary& base,
                         const Dictionary& theirs, const Dictionary& ours);

}  // namespace pellor
