// The adapters that this build has.
#pragma once

#include "pellor/linux/services/internal/ServiceAdapter.h"

namespace pellor {

// One for each folder of an adapter; of those that are not built there is no more than the declaration.
ServiceAdapters edsAdapters();
ServiceAdapters journalAdapters();
ServiceAdapters ldapAdapters();
ServiceAdapters matrixAdapters();
ServiceAdapters mosquittoAdapters();
ServiceAdapters postgresqlAdapters();
ServiceAdapters sdbusAdapters();

/// All that are built. Written by the build.
ServiceAdapters builtAdapters();

}  // namespace pellor
