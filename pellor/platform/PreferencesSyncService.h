// Pushing preferences to the paired device.
#pragma once

#include <set>
#include <string>
#include <string_view>

namespace pellor {

/// Called on save queues. A push that fails is kept and tried again by the service.
class PreferencesSyncService {
 public:
  virtual ~PreferencesSyncService() = default;
  /// Whether the first full sync with the paired device has completed. Without a paired device it has not.
  virtual bool hasCompletedInitialSync() = 0;
  /// Pushes the current stored values of those keys of the domain to the paired device.
  virtual void synchronizeDomainKeys(std::string_view domain, const std::set<std::string>& keys) = 0;
};

}  // namespace pellor
