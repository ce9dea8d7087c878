// How the friend lists of two paired devices become one.
#pragma once

#include <memory>

#include "pellor/linux/mosquitto/ValuesMerge.h"
#include "pellor/platform/PreferencesStore.h"
#include "pellor/runtime/Process.h"

namespace pellor::cli {

/// Merges list and titles with the page size and the number of pages of the domain; of any other key it takes the value
/// that changed, theirs if both did. May be called on any thread while the process lives.
ValuesMerge syncedMerge(Process& process, std::shared_ptr<PreferencesStore> preferences);

}  // namespace pellor::cli
