#include "pellor/linux/preferences/internal/UnpairedDevice.h"

namespace pellor {

bool UnpairedDevice::hasCompletedInitialSync() { return false; }

void UnpairedDevice::synchronizeDomainKeys(std::string_view /*domain*/, const std::set<std::string>& /*keys*/) {}

}  // namespace pellor
