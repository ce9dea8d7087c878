// The sync service of a user without a paired device.
#pragma once

#include "pellor/platform/PreferencesSyncService.h"

namespace pellor {

/// The initial sync has never completed, so nothing is pushed. Any thread.
class UnpairedDevice final : public PreferencesSyncService {
 public:
  bool hasCompletedInitialSync() override;
  /// Does nothing: a device that is paired later gets everything by its initial sync.
  void synchronizeDomainKeys(std::string_view domain, const std::set<std::string>& keys) override;
};

}  // namespace pellor
